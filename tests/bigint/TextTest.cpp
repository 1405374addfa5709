// Text form in every radix, and the texts of the result codes.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "bigint/Integer.h"
#include "bigint/Numbers.h"
#include "bigint/Reference.h"

namespace {

using namespace hx_test;

std::string ToText(const mp_int* mp, int radix) {
    // The byte after the text must stay unchanged.
    const size_t room = static_cast<size_t>(mp_count_bits(mp)) + 2 + (mp->sign != 0 ? 1 : 0);
    std::string text(room + 1, '#');
    EXPECT_EQ(mp_toradix(mp, text.data(), radix), MP_SUCCESS);
    EXPECT_EQ(text.back(), '#');
    return text.c_str();
}

std::string Read(const std::string& text, int radix) {
    Integer mp("-9999");
    EXPECT_EQ(mp_read_radix(mp, text.c_str(), radix), MP_SUCCESS);
    return Hex(mp);
}

// From radix 63 on, + is a digit, but a leading + is read as the sign.
std::string WithSign(const std::string& text) {
    return text.starts_with('-') ? text : "+" + text;
}

TEST(Text, ReadsWhatItWritesInEveryRadix) {
    Numbers numbers(7);
    for (int radix = 2; radix <= 64; ++radix) {
        for (const unsigned bits : {70U, 1300U, 8192U}) {
            const Integer value(numbers.Signed(bits));
            EXPECT_EQ(Read(WithSign(ToText(value, radix)), radix), Hex(value)) << radix;
        }
    }
}

std::string HexPower(int radix, unsigned exponent) {
    Integer power;
    mp_set(power, static_cast<mp_digit>(radix));
    mp_expt_d(power, static_cast<mp_digit>(exponent), power);
    return Hex(power);
}

std::string HexBelow(const std::string& hex) {
    Integer below(hex);
    mp_sub_d(below, 1, below);
    return Hex(below);
}

TEST(Text, MatchesPythonInEveryRadix) {
    if (!HasPython())
        GTEST_SKIP() << "python3 is not installed";
    Numbers numbers(8);
    std::vector<std::pair<int, std::string>> cases;
    std::vector<std::string> questions;
    for (int radix = 2; radix <= 64; ++radix) {
        const std::string power = HexPower(radix, 5 + numbers.Below(35));
        std::vector<std::string> values = {"0", HexBelow(HexPower(radix, 1)), HexPower(radix, 1),
                                           power, HexBelow(power)};
        for (const unsigned bits : {400U, 400U, 1040U, 8192U})
            values.push_back(numbers.Signed(bits));
        if (radix % 9 == 1)
            values.push_back(numbers.Signed(40000));
        for (const std::string& hex : values) {
            cases.emplace_back(radix, hex);
            questions.push_back("text " + std::to_string(radix) + " " + hex);
        }
    }
    const std::vector<std::string> texts = AnswersOfPython(questions);
    for (size_t i = 0; i < cases.size(); ++i) {
        const auto& [radix, hex] = cases[i];
        EXPECT_EQ(ToText(Integer(hex), radix), texts[i]) << hex << " in radix " << radix;
        EXPECT_EQ(Read(WithSign(texts[i]), radix), hex) << texts[i] << " in radix " << radix;
    }
}

// Numbers with long runs of zeros, because the parts of a split number are then short.
TEST(Text, ConvertsPowersOfTen) {
    for (const size_t zeros : {18U, 19U, 20U, 37U, 38U, 379U, 380U, 381U, 1000U, 3000U}) {
        const std::string text = "1" + std::string(zeros, '0');
        Integer value;
        ASSERT_EQ(mp_read_radix(value, text.c_str(), 10), MP_SUCCESS);
        EXPECT_EQ(ToText(value, 10), text);
        mp_sub_d(value, 1, value);
        EXPECT_EQ(ToText(value, 10), std::string(zeros, '9'));
        EXPECT_EQ(Read("000" + text, 10), Read(text, 10));
    }
}

TEST(Text, WritesZeroAsOneDigit) {
    for (int radix = 2; radix <= 64; ++radix)
        EXPECT_EQ(ToText(Integer("0"), radix), "0");
}

TEST(Text, ReadsFromFirstDigitOrSignToOtherCharacter) {
    EXPECT_EQ(Read("  12x34", 10), "c");
    EXPECT_EQ(Read("abc-12", 10), "-c");
    EXPECT_EQ(Read("$ +12,5", 10), "c");
    EXPECT_EQ(Read("1-2", 10), "1");
    EXPECT_EQ(Read("12", 2), "1");
    EXPECT_EQ(Read("zZ", 36), "50f");
    EXPECT_EQ(Read("ff", 16), "ff");
}

TEST(Text, ReadsOneSignOnly) {
    EXPECT_EQ(Read("--5", 10), "0");
    EXPECT_EQ(Read("-+5", 10), "0");
    EXPECT_EQ(Read("- 5", 10), "0");
}

TEST(Text, ReadsZeroWithoutDigits) {
    for (const char* text : {"", "-", "+", "   ", "xyz", "-x", "-0", "-000"})
        EXPECT_EQ(Read(text, 10), "0") << text;
}

TEST(Text, ReadsLeadingPlusAsSignInEveryRadix) {
    EXPECT_EQ(Read("+1", 64), "1");
    EXPECT_EQ(Read("++1", 64), "f81");
    EXPECT_EQ(Read("1+", 64), "7e");
    EXPECT_EQ(Read("-+", 63), "-3e");
    EXPECT_EQ(Read("/", 64), "3f");
    EXPECT_EQ(Read("/", 63), "0");
}

TEST(Text, RejectsBadRadixWithDifferentCodes) {
    Integer value("5");
    char text[4] = "abc";
    for (const int radix : {INT_MIN, -1, 0, 1, 65, INT_MAX}) {
        EXPECT_EQ(mp_read_radix(value, "7", radix), MP_INVALID_PARAMETER);
        EXPECT_EQ(mp_toradix(value, text, radix), MP_OUT_OF_RANGE);
    }
    EXPECT_EQ(Hex(value), "5");
    EXPECT_STREQ(text, "abc");
}

TEST(Text, ReturnsValueOfEveryCharacterInEveryRadix) {
    const std::string alphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz+/";
    for (int radix = 0; radix <= 64; ++radix) {
        for (int byte = 0; byte < 256; ++byte) {
            const char c = static_cast<char>(byte);
            const bool upper = radix < 37 && c >= 'a' && c <= 'z';
            const size_t place = alphabet.find(upper ? static_cast<char>(c - 'a' + 'A') : c);
            const bool digit = place != std::string::npos && static_cast<int>(place) < radix;
            EXPECT_EQ(mp_char2value(c, radix), digit ? static_cast<int>(place) : -1)
                << byte << " in radix " << radix;
        }
    }
}

TEST(TextSize, MatchesExamples) {
    EXPECT_EQ(mp_radix_size(Integer("0"), 10), 1);
    EXPECT_EQ(mp_radix_size(Integer("ff"), 10), 3);
    EXPECT_EQ(mp_radix_size(Integer("-ff"), 10), 4);
    EXPECT_EQ(mp_radix_size(Integer("ff"), 2), 9);
    // 8192 * log 2 / log 10 = 2466.03
    EXPECT_EQ(mp_radix_size(Integer(std::string(2048, 'f')), 10), 2467);
}

// The factor of other radixes is 0.
TEST(TextSize, IgnoresBadRadix) {
    for (const int radix : {INT_MIN, -1, 0, 1, 65})
        EXPECT_EQ(mp_radix_size(Integer("ff"), radix), 1);
}

// Computed with Python: struct rounds the factor, the bits and the product to 32-bit floats.
TEST(TextSize, IsProductAsFloat) {
    struct Case {
        int bits;
        int radix;
        int size;
    };
    const Case cases[] = {
        {1, 2, 1},
        {8, 3, 5},
        {8, 10, 2},
        {8, 36, 1},
        {8, 63, 1},
        {8, 64, 1},
        {64, 3, 40},
        {64, 10, 19},
        {64, 36, 12},
        {64, 63, 10},
        {64, 64, 10},
        {1000, 3, 630},
        {1000, 10, 301},
        {1000, 36, 193},
        {1000, 63, 167},
        {1000, 64, 166},
        {8192, 3, 5168},
        {8192, 10, 2466},
        {8192, 36, 1584},
        {8192, 63, 1370},
        {8192, 64, 1365},
        {1000003, 3, 630931},
        {1000003, 10, 301030},
        {1000003, 36, 193426},
        {1000003, 63, 167300},
        {1000003, 64, 166667},
        {123456789, 3, 77892568},
        {123456789, 10, 37164200},
        {123456789, 36, 23879802},
        {123456789, 63, 20654344},
        {123456789, 64, 20576132},
    };
    for (const Case& c : cases)
        EXPECT_EQ(mp_value_radix_size(1, c.bits, c.radix), c.size) << c.bits << " " << c.radix;
    EXPECT_EQ(mp_value_radix_size(500, 16, 10), 2408);
    EXPECT_EQ(mp_value_radix_size(0, 16, 10), 0);
}

TEST(TextSize, IsZeroForBadArguments) {
    EXPECT_EQ(mp_value_radix_size(-1, 16, 10), 0);
    EXPECT_EQ(mp_value_radix_size(4, 0, 10), 0);
    EXPECT_EQ(mp_value_radix_size(4, -16, 10), 0);
    for (const int radix : {INT_MIN, -1, 0, 1, 65, INT_MAX})
        EXPECT_EQ(mp_value_radix_size(4, 16, radix), 0);
}

TEST(TextSize, StaysWithinInt) {
    EXPECT_EQ(mp_value_radix_size(INT_MAX, INT_MAX, 2), INT_MAX);
}

TEST(ResultCode, HasText) {
    EXPECT_STREQ(mp_strerror(0), "boolean true");
    EXPECT_STREQ(mp_strerror(-1), "boolean false");
    EXPECT_STREQ(mp_strerror(-2), "out of memory");
    EXPECT_STREQ(mp_strerror(-3), "argument out of range");
    EXPECT_STREQ(mp_strerror(-4), "invalid input parameter");
    EXPECT_STREQ(mp_strerror(-5), "result is undefined");
    for (const int code : {1, -6, INT_MIN, INT_MAX})
        EXPECT_STREQ(mp_strerror(code), "unknown result code");
}

}  // namespace
