#include "bigint/Numbers.h"

#include <algorithm>

namespace hx_test {

namespace {

// Converts bits, least significant first, to hexadecimal.
std::string HexOf(std::vector<bool> bits) {
    while (bits.size() % 4 != 0)
        bits.push_back(false);
    std::string text;
    for (size_t i = bits.size(); i > 0; i -= 4) {
        const int nibble = bits[i - 1] * 8 + bits[i - 2] * 4 + bits[i - 3] * 2 + bits[i - 4];
        if (nibble != 0 || !text.empty())
            text += "0123456789abcdef"[nibble];
    }
    return text.empty() ? "0" : text;
}

}  // namespace

std::string Numbers::Magnitude(unsigned bits) {
    // Every third length is near the border of a digit.
    unsigned length = Below(bits + 1);
    if (Below(3) == 0)
        length = std::min(bits, length / 16 * 16 + Below(3));
    std::vector<bool> value(length);
    const unsigned shape = Below(7);
    if (shape <= 2) {
        std::generate(value.begin(), value.end(), [&] { return Below(2) == 1; });
    } else if (shape == 3) {
        // Runs of zeros and ones.
        for (unsigned i = 0; i < length;) {
            const bool one = Below(2) == 1;
            for (unsigned run = 1 + Below(150); run > 0 && i < length; --run)
                value[i++] = one;
        }
    } else if (shape == 4) {
        value.flip();
    } else if (shape == 5) {
        // Zeros at the bottom.
        std::generate(value.begin() + length / 2, value.end(), [&] { return Below(2) == 1; });
    } else if (length > 0) {
        value[length - 1] = true;
        value[0] = Below(2) == 1;
    }
    return HexOf(value);
}

std::string Numbers::Signed(unsigned bits) {
    const std::string magnitude = Magnitude(bits);
    return magnitude != "0" && Below(3) == 0 ? "-" + magnitude : magnitude;
}

std::vector<std::string> Numbers::OperandsFor(const Operation& operation, unsigned bits) {
    std::vector<std::string> operands;
    for (size_t i = 0; i < operation.operands; ++i)
        operands.push_back(Signed(i == 0 ? bits : 1 + Below(bits)));
    const bool isBad = Below(20) == 0;
    if (operation.domain == Domain::ModularPower)
        operands[1] = Magnitude(1 + Below(bits > 1040 ? 200 : bits));
    if (operation.domain == Domain::Modulus || operation.domain == Domain::ModularPower) {
        const std::string modulus = Magnitude(1 + Below(bits));
        operands.back() = modulus == "0" ? "1" : modulus;
        std::string& changed = operands[Below(2) == 0 ? operands.size() - 1 : 1];
        if (isBad && changed != "0" && changed.front() != '-')
            changed.insert(0, "-");
    }
    if (operation.domain == Domain::SmallPower) {
        operands[0] = Signed(std::max(1U, bits / 16));
        if (operation.operands == 2)
            operands[1] = std::string(1, "0123456789abcdef"[Below(16)]);
    }
    return operands;
}

unsigned Numbers::ExtraFor(const Operation& operation, unsigned bits) {
    switch (operation.extra) {
        case Extra::None:
            return 0;
        case Extra::Exponent:
            return Below(16);
        case Extra::Bits:
            return Below(3) == 0 ? Below(bits / 16 + 1) * 16 : Below(bits + 100);
        case Extra::Digit:
            break;
    }
    return Below(2) == 0 ? Below(65536) : 65535 >> Below(16);
}

}  // namespace hx_test
