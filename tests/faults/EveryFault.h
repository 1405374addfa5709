// How many of the possible faults these tests try.
#pragma once

#include <cstdlib>

// True in scripts/soak. Otherwise the tests try each kind of fault once.
inline bool TriesEveryFault() {
    return std::getenv("HX_TEST_EVERY_FAULT") != nullptr;
}
