// The life of a record: sizes, growth, exchange, the default precision.
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstring>

#include "bigint/Integer.h"

namespace {

using hx_test::Hex;
using hx_test::Integer;

class Life : public testing::Test {
protected:
    void TearDown() override { mp_set_prec(0); }
};

TEST_F(Life, TheRecordHasItsFieldsInOrder) {
    EXPECT_EQ(offsetof(mp_int, sign), 0U);
    EXPECT_EQ(sizeof(mp_int::sign), 1U);
    EXPECT_EQ(offsetof(mp_int, alloc), 4U);
    EXPECT_EQ(offsetof(mp_int, used), 8U);
    EXPECT_EQ(offsetof(mp_int, dp), 16U);
    EXPECT_EQ(sizeof(mp_digit), 2U);
}

TEST_F(Life, ThePrecisionIs64UntilItIsSet) {
    EXPECT_EQ(mp_get_prec(), 64U);
    EXPECT_EQ(mp_set_prec(10), 10U);
    EXPECT_EQ(mp_get_prec(), 10U);
    EXPECT_EQ(mp_set_prec(0), 64U);
    EXPECT_EQ(mp_get_prec(), 64U);
}

TEST_F(Life, ANewRecordIsZeroWithThePrecisionsDigits) {
    mp_int mp;
    mp_set_prec(7);
    ASSERT_EQ(mp_init(&mp), MP_SUCCESS);
    EXPECT_EQ(mp.alloc, 7U);
    EXPECT_EQ(mp.used, 1U);
    EXPECT_EQ(Hex(&mp), "0");
    mp_clear(&mp);
}

TEST_F(Life, ASizeIsTakenAsGiven) {
    mp_int mp;
    ASSERT_EQ(mp_init_size(&mp, 3), MP_SUCCESS);
    EXPECT_EQ(mp.alloc, 3U);
    EXPECT_EQ(Hex(&mp), "0");
    mp_clear(&mp);
    EXPECT_EQ(mp_init_size(&mp, 0), MP_INVALID_PARAMETER);
}

TEST_F(Life, AnArrayIsSetUpAndClearedAsAWhole) {
    mp_int mp[3];
    ASSERT_EQ(mp_init_array(mp, 3), MP_SUCCESS);
    for (const mp_int& one : mp) {
        EXPECT_EQ(one.alloc, 64U);
        EXPECT_EQ(Hex(&one), "0");
    }
    EXPECT_NE(mp[0].dp, mp[1].dp);
    EXPECT_EQ(mp_clear_array(mp, 3), MP_SUCCESS);
    for (const mp_int& one : mp)
        EXPECT_EQ(one.dp, nullptr);
}

TEST_F(Life, ACountBelowOneIsABadParameter) {
    mp_int mp[1] = {};
    for (const int count : {0, -1, INT_MIN}) {
        EXPECT_EQ(mp_init_array(mp, count), MP_INVALID_PARAMETER);
        EXPECT_EQ(mp_clear_array(mp, count), MP_INVALID_PARAMETER);
    }
}

TEST_F(Life, ACopyTakesTheSourcesSizeAndLivesOnItsOwn) {
    Integer source("-123456789abc", 9);
    mp_int copy;
    ASSERT_EQ(mp_init_copy(&copy, source), MP_SUCCESS);
    EXPECT_EQ(copy.alloc, 9U);
    mp_zero(source);
    EXPECT_EQ(Hex(&copy), "-123456789abc");
    mp_clear(&copy);
}

TEST_F(Life, ARecordGrowsToMultiplesOfThePrecision) {
    const Integer source("-" + std::string(4 * 65, 'f'));
    Integer target("5");
    ASSERT_EQ(mp_copy(source, target), MP_SUCCESS);
    EXPECT_EQ(target->alloc, 128U);
    mp_set_prec(10);
    Integer other("5");
    ASSERT_EQ(mp_copy(source, other), MP_SUCCESS);
    EXPECT_EQ(other->alloc, 70U);
    EXPECT_EQ(Hex(other), Hex(source));
}

TEST_F(Life, ARecordWithRoomKeepsItsMemory) {
    const Integer source("123456789abcdef0");
    Integer target("1", 4);
    const mp_digit* const before = target->dp;
    ASSERT_EQ(mp_copy(source, target), MP_SUCCESS);
    EXPECT_EQ(target->dp, before);
    EXPECT_EQ(target->alloc, 4U);
}

TEST_F(Life, ExchangeSwapsTheContentsWithTheirMemory) {
    Integer a("-1");
    Integer b("123456789");
    const mp_digit* const digits = a->dp;
    ASSERT_EQ(mp_exch(a, b), MP_SUCCESS);
    EXPECT_EQ(Hex(a), "123456789");
    EXPECT_EQ(Hex(b), "-1");
    EXPECT_EQ(b->dp, digits);
    ASSERT_EQ(mp_exch(a, a), MP_SUCCESS);
    EXPECT_EQ(Hex(a), "123456789");
}

TEST_F(Life, ClearingTwiceIsHarmless) {
    mp_int mp;
    ASSERT_EQ(mp_init(&mp), MP_SUCCESS);
    EXPECT_EQ(mp_clear(&mp), MP_SUCCESS);
    EXPECT_EQ(mp.dp, nullptr);
    EXPECT_EQ(mp_clear(&mp), MP_SUCCESS);
}

TEST_F(Life, SettingReplacesTheValue) {
    Integer mp("-123456789abcdef0123456789");
    ASSERT_EQ(mp_set(mp, 65535), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "ffff");
    ASSERT_EQ(mp_zero(mp), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "0");
    ASSERT_EQ(mp_set(mp, 0), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "0");
}

TEST_F(Life, SettingTakesEveryLong) {
    for (const auto& [value, hex] : {std::pair{0L, "0"},
                                     {1L, "1"},
                                     {-1L, "-1"},
                                     {65536L, "10000"},
                                     {-65535L, "-ffff"},
                                     {INT_MIN + 0L, "-80000000"},
                                     {LONG_MAX, "7fffffffffffffff"},
                                     {LONG_MIN, "-8000000000000000"}}) {
        Integer mp("7");
        ASSERT_EQ(mp_set_int(mp, value), MP_SUCCESS);
        EXPECT_EQ(Hex(mp), hex);
    }
}

TEST_F(Life, ShrinkingLeavesTheDigitsInUse) {
    Integer mp("-123456789", 100);
    ASSERT_EQ(mp_shrink(mp), MP_SUCCESS);
    EXPECT_EQ(mp->alloc, 3U);
    EXPECT_EQ(Hex(mp), "-123456789");
    ASSERT_EQ(mp_shrink(mp), MP_SUCCESS);
    EXPECT_EQ(mp->alloc, 3U);
    ASSERT_EQ(mp_mul(mp, mp, mp), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "14b66dc326fb98751");
}

}  // namespace
