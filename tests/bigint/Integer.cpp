#include "bigint/Integer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

namespace hx_test {

namespace {

constexpr uint32_t nibblesPerDigit = 4;

void ExpectRules(const mp_int* mp) {
    EXPECT_NE(mp->dp, nullptr);
    EXPECT_GE(mp->used, 1U);
    EXPECT_LE(mp->used, mp->alloc);
    EXPECT_LE(mp->sign, 1);
    const bool topIsZero = mp->dp[mp->used - 1] == 0;
    EXPECT_TRUE(!topIsZero || mp->used == 1) << "zero digits at the top";
    EXPECT_TRUE(!topIsZero || mp->sign == 0) << "a negative zero";
}

}  // namespace

Integer::Integer(const std::string& hex, uint32_t alloc) {
    const bool negative = hex.starts_with('-');
    const std::string nibbles = negative ? hex.substr(1) : hex;
    const uint32_t used =
        (static_cast<uint32_t>(nibbles.size()) + nibblesPerDigit - 1) / nibblesPerDigit;
    if (mp_init_size(&m_mp, std::max(used, alloc)) != MP_SUCCESS)
        std::abort();
    m_mp.used = used;
    m_mp.sign = negative ? 1 : 0;
    size_t end = nibbles.size();
    for (uint32_t i = 0; i < used; ++i) {
        const size_t start = end < nibblesPerDigit ? 0 : end - nibblesPerDigit;
        m_mp.dp[i] =
            static_cast<mp_digit>(std::stoul(nibbles.substr(start, end - start), nullptr, 16));
        end = start;
    }
}

std::string Hex(const mp_int* mp) {
    ExpectRules(mp);
    std::string text;
    for (uint32_t i = mp->used; i > 0; --i) {
        char digit[nibblesPerDigit + 1];
        std::snprintf(digit, sizeof digit, "%04x", static_cast<unsigned>(mp->dp[i - 1]));
        text += digit;
    }
    text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
    return (mp->sign != 0 ? "-" : "") + text;
}

}  // namespace hx_test
