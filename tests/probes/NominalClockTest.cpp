// Nominal clocks for measured clocks.
#include <gtest/gtest.h>

#include <string>

#include "probes/ProcFile.h"
#include "probes/processor_identity.h"

namespace {

class NominalClock : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    static void ExpectClocks(const hx_test::Cases& files) {
        hx_test::ExpectEach("/proc/cpuinfo", files, procCPUMhz);
    }
};

std::string Measured(const std::string& clock) {
    return "cpu MHz\t\t: " + clock + "\n";
}

TEST_F(NominalClock, RoundsToUsualClock) {
    ExpectClocks({{Measured("66.5"), 70},
                  {Measured("99.9"), 100},
                  {Measured("133.3"), 133},
                  {Measured("866.6"), 866},
                  {Measured("1250.0"), 1250},
                  {Measured("1699.0"), 1700},
                  {Measured("2400.0"), 2400},
                  {Measured("3591.7"), 3600},
                  {Measured("233.863"), 233},
                  {Measured("400.913857"), 400}});
}

// A clock that ends in these digits, such as 1017.1, moves to the multiple of `step` below it, plus
// `nominal`.
struct Ending {
    int whole;
    int tenths;
    int nominal;
};

// Clocks with these endings, for each multiple of `step` from `first` to `last`.
template <size_t Count>
hx_test::Cases EveryEnding(int first, int last, int step, const Ending (&endings)[Count]) {
    hx_test::Cases files;
    for (int base = first; base <= last; base += step) {
        for (const Ending& ending : endings) {
            files.emplace_back(
                Measured(std::to_string(base + ending.whole) + "." + std::to_string(ending.tenths)),
                base + ending.nominal);
        }
    }
    return files;
}

TEST_F(NominalClock, RoundsToTensBelow100) {
    ExpectClocks(EveryEnding(0, 90, 10, {{0, 0, 0}, {5, 9, 0}, {6, 0, 10}, {9, 9, 10}}));
}

// The limits between two results are 17, 42 1/3, 58 1/3, and 83 2/3.
TEST_F(NominalClock, RoundsToHalvesAndThirdsFrom100) {
    ExpectClocks(EveryEnding(100, 5200, 100,
                             {{0, 0, 0},
                              {16, 9, 0},
                              {17, 1, 33},
                              {42, 3, 33},
                              {42, 4, 50},
                              {58, 3, 50},
                              {58, 4, 66},
                              {83, 6, 66},
                              {83, 7, 100},
                              {99, 9, 100}}));
}

// Large clocks show the precision of the grid: 33.33333 times a single-precision number.
TEST_F(NominalClock, KeepsPrecisionOfGrid) {
    ExpectClocks({{Measured("2000000"), 1999999}, {Measured("559240512"), 559240477}});
}

TEST_F(NominalClock, UsesLastWordOfLine) {
    ExpectClocks({{"cpu MHz : 400 500\n", 500},
                  {"cpu MHz static : 5208\n", 5200},
                  {"cpu MHz 300\n", 300},
                  {"CPU mhz : : 700 :\n", 700},
                  {"cpu MHz : 800MHz\n", 800}});
}

TEST_F(NominalClock, ReturnsMinusOneWithoutClock) {
    ExpectClocks({{"", -1},
                  {"processor : 0\n", -1},
                  {" cpu MHz : 400\n", -1},
                  {"clock : 3166.000000MHz\n", -1},
                  {"cpu MHz :\n", -1}});
}

TEST_F(NominalClock, SkipsLineWithUnusableClock) {
    for (const char* word : {"", "-10", "-20", "-500.5", "nan", "-nan", "inf", "-inf", "1e999",
                             "1e300", "2147483648"}) {
        const std::string line = Measured(word);
        ExpectClocks({{line, -1}, {line + Measured("500"), 500}});
    }
}

TEST_F(NominalClock, CountsOtherWordsAsZero) {
    ExpectClocks({{Measured("unknown") + Measured("500"), 0}, {Measured("2400.0 MHz"), 0}});
}

TEST_F(NominalClock, UsesFirstLineWithResult) {
    ExpectClocks({{Measured("500") + Measured("700"), 500},
                  {Measured("0") + Measured("700"), 0},
                  {Measured("-1") + Measured("500"), 0},
                  {Measured("-5") + Measured("500"), 0}});
}

}  // namespace
