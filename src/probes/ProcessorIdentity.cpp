// Classifies the processor and the distribution by words in /proc/cpuinfo and /proc/version.
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>

#include "probes/StoredFile.h"
#include "probes/processor_identity.h"

namespace {

constexpr char cpuInfo[] = "/proc/cpuinfo";
constexpr char whitespace[] = " \t\n";

struct Code {
    const char* text;
    int code;
};

constexpr Code vendors[] = {
    {"GenuineIntel", 1}, {"AuthenticAMD", 2}, {"CyrixInstead", 3},
    {"GenuineTMx86", 4}, {"TransmetaCPU", 4},
};
constexpr int otherVendor = 5;

// Order matters in the lists below, because some names contain others.
constexpr Code intelModels[] = {
    {"486", 1},        {"Pentium Pro", 2}, {"Pentium IIII", 6},
    {"Pentium IV", 6}, {"Pentium 4", 6},   {"Pentium III", 4},
    {"Celeron", 5},    {"Pentium II", 3},  {"Pentium", 2},
};

constexpr Code amdModels[] = {
    {"K5", 1},          {"K6-2", 3},      {"K6-3", 4},      {"K6", 2},
    {"Duron", 6},       {"AthlonMP", 7},  {"Athlon MP", 7}, {"Athlon 4", 8},
    {"Athlon IIII", 8}, {"Athlon IV", 8}, {"Athlon", 5},
};

constexpr Code families[] = {
    {"redhat", 1}, {"RedHat", 1}, {"REDHAT", 1}, {"red hat", 1}, {"Red Hat", 1},  {"RED HAT", 1},
    {"suse", 2},   {"SuSE", 2},   {"SUSE", 2},   {"mdk", 3},     {"mandrake", 3},
};

std::optional<int> FirstContained(const char* line, std::span<const Code> codes) {
    for (const Code& entry : codes) {
        if (std::strstr(line, entry.text) != nullptr)
            return entry.code;
    }
    return std::nullopt;
}

// Returns the text after `key` if the line starts with it in upper or lower case, otherwise null.
char* TextAfter(const char* key, char* line) {
    const size_t length = std::strlen(key);
    return strncasecmp(line, key, length) == 0 ? line + length : nullptr;
}

// Returns the next word that is not ":". `text` is the argument of strtok.
const char* NextWord(char* text) {
    const char* word = std::strtok(text, whitespace);
    while (word != nullptr && std::strcmp(word, ":") == 0)
        word = std::strtok(nullptr, whitespace);
    return word;
}

int VendorCode(const char* name) {
    for (const Code& vendor : vendors) {
        if (strcasecmp(name, vendor.text) == 0)
            return vendor.code;
    }
    return otherVendor;
}

// Compatibility: value and unit carry over to the next stanza.
struct CacheSize {
    int value = -1;
    int unit = 1;

    void TakeWord(const char* word) {
        if (std::strcmp(word, "KB") == 0)
            unit = 1;
        else if (std::strcmp(word, "MB") == 0)
            unit = 1024;
        else if (value < 0)
            TakeNumber(word);
    }

    void TakeNumber(const char* word) {
        char* end = nullptr;
        const long number = std::strtol(word, &end, 10);
        if (end != word)
            value = static_cast<int>(number);
    }
};

// Wraps around at 32 bits.
int Kilobytes(const CacheSize& size) {
    return static_cast<int>(static_cast<unsigned int>(size.value) *
                            static_cast<unsigned int>(size.unit));
}

// Compatibility: this precision decides where results change. It is not 100 / 3.
constexpr double third = 33.33333;
constexpr double half = 50.0;
constexpr double tooLarge = 2e9;  // keeps every conversion to int defined

int Truncate(double value) {
    return static_cast<int>(value);
}

int OnGridOfTens(double clock) {
    const int tens = Truncate(clock / 10);
    const int rest = Truncate(clock - tens * 10.0);
    return 10 * tens + (rest > 5 ? 10 : 0);
}

int OnGridOfHalves(int halves, int rest) {
    return 50 * halves + (rest > 25 ? 50 : 0);
}

int OnGridOfThirds(int thirds, int rest) {
    // The addend compensates for the precision of the grid.
    const int base = Truncate(static_cast<double>(static_cast<float>(thirds)) * third + 0.1);
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

// Moves the clock in `text`, in MHz, onto one of two grids: multiples of 33.33333 MHz or of 50 MHz
// (below 100 MHz: of 10 MHz). Returns nothing for a negative result and for a clock that is not
// finite or is too large for an int.
std::optional<int> NominalClock(const char* text) {
    // Compatibility: a word that is not a number is 0.
    const double clock = std::strtod(text, nullptr);
    // NaN is out of range too.
    if (!(clock > -tooLarge && clock < tooLarge))
        return std::nullopt;
    if (clock < 100) {
        const int tens = OnGridOfTens(clock);
        return tens >= 0 ? std::optional(tens) : std::nullopt;
    }
    const int thirds = Truncate(clock / third);
    const int halves = Truncate(clock / half);
    const int restOfThird = Truncate(clock - thirds * third);
    const int restOfHalf = Truncate(clock - halves * half);
    return NearerToThirds(restOfThird, restOfHalf) ? OnGridOfThirds(thirds, restOfThird)
                                                   : OnGridOfHalves(halves, restOfHalf);
}

}  // namespace

int procCPU() {
    return hx::FirstAnswer(cpuInfo, {}, [](char* line) -> std::optional<int> {
        const char* key = std::strtok(line, whitespace);
        if (key == nullptr || strcasecmp(key, "vendor_id") != 0)
            return std::nullopt;
        const char* name = NextWord(nullptr);
        return name == nullptr ? std::nullopt : std::optional(VendorCode(name));
    });
}

int procCPUModel(int vendor) {
    return hx::FirstAnswer(cpuInfo, {}, [vendor](char* line) -> std::optional<int> {
        if (TextAfter("model name", line) == nullptr)
            return std::nullopt;
        if (vendor == 1)
            return FirstContained(line, intelModels);
        if (vendor == 2)
            return FirstContained(line, amdModels);
        return 0;
    });
}

int procVersion() {
    return hx::FirstAnswer("/proc/version", {},
                           [](const char* line) { return FirstContained(line, families); });
}

int procCacheSize() {
    CacheSize size;
    return hx::FirstAnswer(cpuInfo, {}, [&size](char* line) -> std::optional<int> {
        char* rest = TextAfter("cache size", line);
        if (rest == nullptr)
            return std::nullopt;
        for (const char* word = NextWord(rest); word != nullptr; word = NextWord(nullptr))
            size.TakeWord(word);
        return size.value >= 0 ? std::optional(Kilobytes(size)) : std::nullopt;
    });
}

int procCPUMhz() {
    return hx::FirstAnswer(cpuInfo, {.unreadable = 0, .none = -1}, [](char* line) {
        std::optional<int> clock;
        char* rest = TextAfter("cpu MHz", line);
        if (rest == nullptr)
            return clock;
        // The last word decides, even if it has no usable value.
        for (const char* word = NextWord(rest); word != nullptr; word = NextWord(nullptr))
            clock = NominalClock(word);
        return clock;
    });
}
