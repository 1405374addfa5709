// How much of what is possible the tests try.
#pragma once

#include <cstddef>
#include <cstdlib>

namespace hx_test {

// True in scripts/soak. Otherwise the tests try each kind of fault, and a fixed tenth of the points
// at which a setup can be killed.
inline bool TriesEveryFault() {
    return std::getenv("HX_TEST_EVERY_FAULT") != nullptr;
}

// The distance of the points of a setup that are tried.
inline size_t PointStep() {
    return TriesEveryFault() ? 1 : 10;
}

// The number of times a race is tried: 100 in scripts/soak.
inline int RaceRounds() {
    const char* text = std::getenv("HX_TEST_ROUNDS");
    return text == nullptr ? 3 : std::atoi(text);
}

}  // namespace hx_test
