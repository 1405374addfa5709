// Signs, borders and result codes of the arithmetic.
#include <gtest/gtest.h>

#include <climits>

#include "bigint/Integer.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

TEST(Arithmetic, DivisionRoundsTowardZero) {
    EXPECT_EQ(Do("mp_div", {"7", "2"}), "0 3 1");
    EXPECT_EQ(Do("mp_div", {"-7", "2"}), "0 -3 -1");
    EXPECT_EQ(Do("mp_div", {"7", "-2"}), "0 -3 1");
    EXPECT_EQ(Do("mp_div", {"-7", "-2"}), "0 3 -1");
    EXPECT_EQ(Do("mp_div", {"-1", "2"}), "0 0 -1");
    EXPECT_EQ(Do("mp_div", {"-4", "2"}), "0 -2 0");
}

TEST(Arithmetic, DigitDivisionReturnsMagnitudeOfRemainder) {
    EXPECT_EQ(Do("mp_div_d", {"-7"}, 2), "0 -3 1");
    EXPECT_EQ(Do("mp_mod_d", {"-7"}, 2), "0 1");
    EXPECT_EQ(Do("mp_mod_d", {"-7"}, 5), "0 3");
    EXPECT_EQ(Do("mp_mod_d", {"-a"}, 5), "0 0");
}

TEST(Arithmetic, RejectsDivisorBelowItsRange) {
    EXPECT_EQ(Do("mp_div", {"5", "0"}), "-3");
    EXPECT_EQ(Do("mp_div_d", {"5"}, 0), "-3");
    EXPECT_EQ(Do("mp_mod_d", {"5"}, 0), "-3");
    EXPECT_EQ(Do("mp_mod", {"5", "0"}), "-3");
    EXPECT_EQ(Do("mp_mod", {"5", "-3"}), "-3");
}

TEST(Arithmetic, ShiftsMagnitude) {
    EXPECT_EQ(Do("mp_div_2", {"-1"}), "0 0");
    EXPECT_EQ(Do("mp_div_2", {"-3"}), "0 -1");
    EXPECT_EQ(Do("mp_div_2d", {"-9"}, 2), "0 -2 -1");
    EXPECT_EQ(Do("mp_div_2d", {"-3"}, 4), "0 0 -3");
    EXPECT_EQ(Do("mp_div_2d", {"-9"}, 0), "0 -9 0");
    EXPECT_EQ(Do("mp_div_2d", {"9"}, UINT_MAX), "0 0 9");
    EXPECT_EQ(Do("mp_mul_2d", {"-1"}, 16), "0 -10000");
    EXPECT_EQ(Do("mp_mul_2d", {"0"}, UINT_MAX), "0 0");
    EXPECT_EQ(Do("mp_2expt", {}, 0), "0 1");
}

TEST(Arithmetic, ReturnsNoNegativeZero) {
    EXPECT_EQ(Do("mp_neg", {"0"}), "0 0");
    EXPECT_EQ(Do("mp_mul", {"-5", "0"}), "0 0");
    EXPECT_EQ(Do("mp_mul_d", {"-5"}, 0), "0 0");
    EXPECT_EQ(Do("mp_add", {"-5", "5"}), "0 0");
    EXPECT_EQ(Do("mp_sub", {"-5", "-5"}), "0 0");
    EXPECT_EQ(Do("mp_div", {"-1", "5"}), "0 0 -1");
    EXPECT_EQ(Do("mp_div", {"-5", "5"}), "0 -1 0");
}

TEST(Arithmetic, CarriesAndBorrowsThroughEveryDigit) {
    const std::string ones(500, 'f');
    const std::string power = "1" + std::string(500, '0');
    EXPECT_EQ(Do("mp_add", {ones, "1"}), "0 " + power);
    EXPECT_EQ(Do("mp_sub", {power, "1"}), "0 " + ones);
    EXPECT_EQ(Do("mp_add_d", {ones}, 1), "0 " + power);
    EXPECT_EQ(Do("mp_sub_d", {power}, 1), "0 " + ones);
    EXPECT_EQ(Do("mp_add", {power, "-1"}), "0 " + ones);
    EXPECT_EQ(Do("mp_sub", {ones, power}), "0 -1");
}

TEST(Arithmetic, PowerWithExponentZeroIsOne) {
    EXPECT_EQ(Do("mp_expt", {"0", "0"}), "0 1");
    EXPECT_EQ(Do("mp_expt", {"-5", "0"}), "0 1");
    EXPECT_EQ(Do("mp_expt_d", {"0"}, 0), "0 1");
    EXPECT_EQ(Do("mp_expt", {"5", "-1"}), "-3");
    EXPECT_EQ(Do("mp_expt", {"-2", "3"}), "0 -8");
}

TEST(Arithmetic, PowerOfUnitTakesExponentOfAnySize) {
    const std::string huge = "1" + std::string(100, '0');
    EXPECT_EQ(Do("mp_expt", {"0", huge}), "0 0");
    EXPECT_EQ(Do("mp_expt", {"1", huge}), "0 1");
    EXPECT_EQ(Do("mp_expt", {"-1", huge}), "0 1");
    EXPECT_EQ(Do("mp_expt", {"-1", huge.substr(0, 100) + "1"}), "0 -1");
}

TEST(Arithmetic, PowerIsOutOfMemoryWhenTooLong) {
    EXPECT_EQ(Do("mp_expt", {"2", "1" + std::string(40, '0')}), "-2");
    EXPECT_EQ(Do("mp_expt", {"2", "ffffffffffffffff"}), "-2");
    EXPECT_EQ(Do("mp_expt", {"-12345", "ffffffffff"}), "-2");
}

TEST(Arithmetic, RootRoundsDownAndRejectsNegativeValue) {
    EXPECT_EQ(Do("mp_sqrt", {"-1"}), "-3");
    EXPECT_EQ(Do("mp_sqrt", {"0"}), "0 0");
    EXPECT_EQ(Do("mp_sqrt", {"1"}), "0 1");
    EXPECT_EQ(Do("mp_sqrt", {"3"}), "0 1");
    EXPECT_EQ(Do("mp_sqrt", {"4"}), "0 2");
}

TEST(Arithmetic, RootIsExactAroundSquares) {
    for (size_t nibbles = 1; nibbles < 120; ++nibbles) {
        for (const std::string& root :
             {std::string(nibbles, 'f'), "1" + std::string(nibbles, '0')}) {
            Integer value(root);
            mp_sqr(value, value);
            EXPECT_EQ(Do("mp_sqrt", {Hex(value)}), "0 " + root);
            Integer below;
            mp_sub_d(value, 1, below);
            Integer rootBelow(root);
            mp_sub_d(rootBelow, 1, rootBelow);
            EXPECT_EQ(Do("mp_sqrt", {Hex(below)}), "0 " + Hex(rootBelow));
        }
    }
}

TEST(Comparison, RespectsSigns) {
    EXPECT_EQ(Do("mp_cmp_z", {"-5"}), "-1");
    EXPECT_EQ(Do("mp_cmp_z", {"0"}), "0");
    EXPECT_EQ(Do("mp_cmp", {"-5", "4"}), "-1");
    EXPECT_EQ(Do("mp_cmp", {"-5", "-4"}), "-1");
    EXPECT_EQ(Do("mp_cmp_mag", {"-5", "4"}), "1");
    EXPECT_EQ(Do("mp_cmp_d", {"-5"}, 4), "-1");
    EXPECT_EQ(Do("mp_cmp_d", {"10000"}, 65535), "1");
}

TEST(Comparison, TakesEveryLong) {
    const long values[] = {LONG_MIN, LONG_MIN + 1, -65536, -1, 0, 1, 65535, 65536, LONG_MAX};
    for (const long left : values) {
        Integer mp;
        ASSERT_EQ(mp_set_int(mp, left), MP_SUCCESS);
        for (const long right : values)
            EXPECT_EQ(mp_cmp_int(mp, right), (left > right) - (left < right));
    }
    EXPECT_EQ(mp_cmp_int(Integer("10000000000000000"), LONG_MAX), 1);
    EXPECT_EQ(mp_cmp_int(Integer("-10000000000000000"), LONG_MIN), -1);
}

TEST(Comparison, ReturnsYesOrNoForParity) {
    EXPECT_EQ(Do("mp_isodd", {"-3"}), "0");
    EXPECT_EQ(Do("mp_isodd", {"0"}), "-1");
    EXPECT_EQ(Do("mp_iseven", {"0"}), "0");
    EXPECT_EQ(Do("mp_iseven", {"10001"}), "-1");
}

TEST(NumberTheory, RejectsTwoZeros) {
    EXPECT_EQ(Do("mp_gcd", {"0", "0"}), "-3");
    EXPECT_EQ(Do("mp_lcm", {"0", "0"}), "-3");
    EXPECT_EQ(Do("mp_xgcd", {"0", "0"}), "-3");
}

TEST(NumberTheory, ReturnsNoNegativeResult) {
    EXPECT_EQ(Do("mp_gcd", {"-c", "8"}), "0 4");
    EXPECT_EQ(Do("mp_gcd", {"-c", "0"}), "0 c");
    EXPECT_EQ(Do("mp_gcd", {"0", "-c"}), "0 c");
    EXPECT_EQ(Do("mp_lcm", {"-4", "6"}), "0 c");
    EXPECT_EQ(Do("mp_lcm", {"-4", "0"}), "0 0");
    EXPECT_EQ(Do("mp_lcm", {"0", "4"}), "0 0");
}

// Answer() checks the cofactors.
TEST(NumberTheory, CofactorsMatchSignedOperands) {
    for (const char* a : {"-f", "f", "-6", "6", "-1", "1", "0", "123456789abcdef123456789"}) {
        for (const char* b : {"-f", "f", "a", "-a", "1", "-1", "-123456789abcdef123456789"})
            EXPECT_EQ(Do("mp_xgcd", {a, b}), Do("mp_gcd", {a, b})) << a << " " << b;
    }
    EXPECT_EQ(Do("mp_xgcd", {"-f", "0"}), "0 f");
}

// Neighbors in Fibonacci's sequence need the most steps of Euclid's method.
TEST(NumberTheory, FindsDivisorOfFibonacciNumbers) {
    Integer a("1");
    Integer b("1");
    for (int i = 0; i < 3000; ++i) {
        mp_add(a, b, a);
        mp_exch(a, b);
    }
    EXPECT_EQ(Do("mp_xgcd", {Hex(a), Hex(b)}), "0 1");
}

}  // namespace
