// Difficult operands for an integer library: lengths around the borders of digits and limbs, runs
// of ones, which cause carries, runs of zeros, and plain random ones. The same seed returns the
// same operands.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "bigint/Operations.h"

namespace hx_test {

class Numbers {
public:
    explicit Numbers(uint64_t seed) : m_random(seed) {}

    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
    // Hexadecimal numbers of up to `bits` bits; every third Signed one is negative.
    std::string Signed(unsigned bits);
    std::string Magnitude(unsigned bits);

    // Operands and extra number for a call of the operation; the first operand has up to `bits`
    // bits. Now and then an operand is negative where the function does not allow it.
    std::vector<std::string> OperandsFor(const Operation& operation, unsigned bits);
    unsigned ExtraFor(const Operation& operation, unsigned bits);

private:
    std::mt19937_64 m_random;
};

}  // namespace hx_test
