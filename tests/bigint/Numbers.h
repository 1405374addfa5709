// Operands that are hard for an integer library: borders of digits and limbs, runs of ones, which
// make carries, runs of zeros, and plain random ones. Always the same ones for the same seed.
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
    // Hexadecimal, of up to `bits` bits, negative for one in three.
    std::string Signed(unsigned bits);
    std::string Magnitude(unsigned bits);

    // Operands and the extra number for a call of the operation; the first operand has up to
    // `bits` bits.
    std::vector<std::string> OperandsFor(const Operation& operation, unsigned bits);
    unsigned ExtraFor(const Operation& operation, unsigned bits);

private:
    std::mt19937_64 m_random;
};

}  // namespace hx_test
