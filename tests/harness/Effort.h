// How much of what is possible the tests try.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <type_traits>
#include <vector>

namespace hx_test {

// True in scripts/soak. Otherwise the tests try a fixed part of the faults, and of the points at
// which a setup can be killed.
inline bool TriesEveryFault() {
    return std::getenv("HX_TEST_EVERY_FAULT") != nullptr;
}

// The distance of the points of a setup that are tried.
inline size_t PointStep() {
    return TriesEveryFault() ? 1 : 150;
}

// The rows that a test tries if each of them needs whole setups: all in scripts/soak, otherwise
// every fifth, which meets all values of a table that repeats them every second to fourth row.
template <class Rows>
auto TriedRows(const Rows& rows) {
    const size_t step = TriesEveryFault() ? 1 : 5;
    std::vector<std::decay_t<decltype(*std::begin(rows))>> tried;
    for (size_t i = 0; i < std::size(rows); i += step)
        tried.push_back(rows[i]);
    return tried;
}

// All rows in scripts/soak, otherwise none.
template <class Rows>
auto RowsOfSoak(const Rows& rows) {
    using Row = std::decay_t<decltype(*std::begin(rows))>;
    return TriesEveryFault() ? std::vector<Row>(std::begin(rows), std::end(rows))
                             : std::vector<Row>();
}

// The number of times a race is tried: 100 in scripts/soak.
inline int RaceRounds() {
    const char* text = std::getenv("HX_TEST_ROUNDS");
    return text == nullptr ? 1 : std::atoi(text);
}

}  // namespace hx_test
