#include "probes/NominalClock.h"

#include <cstdlib>

namespace {

constexpr double Third = 33.33333;  // kept at this precision, not a third of 100
constexpr double Half = 50.0;
constexpr double TooLarge = 2e9;  // keeps every conversion to int defined; infinity is above it

int Truncated(double figure) {
    return static_cast<int>(figure);
}

int OnGridOfTens(double figure) {
    const int tens = Truncated(figure / 10);
    const int rest = Truncated(figure - tens * 10.0);
    return 10 * tens + (rest > 5 ? 10 : 0);
}

int OnGridOfHalves(int halves, int rest) {
    return 50 * halves + (rest > 25 ? 50 : 0);
}

int OnGridOfThirds(int thirds, int rest) {
    // The addend makes up for the precision of the grid.
    const int base = Truncated(static_cast<double>(static_cast<float>(thirds)) * Third + 0.1);
    if (rest <= 16)
        return base;
    return base + 33 + (base % 100 == 66 ? 1 : 0);
}

bool NearerToThirds(int restOfThird, int restOfHalf) {
    const int toNextHalf = 50 - restOfHalf;
    if (restOfThird <= restOfHalf && restOfThird <= toNextHalf)
        return true;
    const int toNextThird = 33 - restOfThird;
    return toNextThird <= restOfHalf && toNextThird <= toNextHalf;
}

}  // namespace

std::optional<int> hx::NominalClock(const char* text) {
    // Kept: a word that is no number counts as 0.
    const double figure = std::strtod(text, nullptr);
    // Written so that a NaN fails it too.
    if (!(figure > -TooLarge && figure < TooLarge))
        return std::nullopt;
    if (figure < 100) {
        const int tens = OnGridOfTens(figure);
        return tens >= 0 ? std::optional(tens) : std::nullopt;
    }
    const int thirds = Truncated(figure / Third);
    const int halves = Truncated(figure / Half);
    const int restOfThird = Truncated(figure - thirds * Third);
    const int restOfHalf = Truncated(figure - halves * Half);
    return NearerToThirds(restOfThird, restOfHalf) ? OnGridOfThirds(thirds, restOfThird)
                                                   : OnGridOfHalves(halves, restOfHalf);
}
