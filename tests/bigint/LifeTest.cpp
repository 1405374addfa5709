// Creation, sizes, growth and exchange of records, and the default precision.
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <functional>

#include "bigint/Integer.h"
#include "bigint/Numbers.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

class Record : public testing::Test {
protected:
    void TearDown() override { mp_set_prec(0); }
};

TEST_F(Record, HasFieldsInOrder) {
    EXPECT_EQ(offsetof(mp_int, sign), 0U);
    EXPECT_EQ(sizeof(mp_int::sign), 1U);
    EXPECT_EQ(offsetof(mp_int, alloc), 4U);
    EXPECT_EQ(offsetof(mp_int, used), 8U);
    EXPECT_EQ(offsetof(mp_int, dp), 16U);
    EXPECT_EQ(sizeof(mp_digit), 2U);
}

TEST_F(Record, DefaultPrecisionIs64) {
    EXPECT_EQ(mp_get_prec(), 64U);
    EXPECT_EQ(mp_set_prec(10), 10U);
    EXPECT_EQ(mp_get_prec(), 10U);
    EXPECT_EQ(mp_set_prec(0), 64U);
    EXPECT_EQ(mp_get_prec(), 64U);
}

TEST_F(Record, StartsAsZeroWithDefaultPrecision) {
    mp_int mp;
    mp_set_prec(7);
    ASSERT_EQ(mp_init(&mp), MP_SUCCESS);
    EXPECT_EQ(mp.alloc, 7U);
    EXPECT_EQ(mp.used, 1U);
    EXPECT_EQ(Hex(&mp), "0");
    mp_clear(&mp);
}

TEST_F(Record, HasRequestedSize) {
    mp_int mp;
    ASSERT_EQ(mp_init_size(&mp, 3), MP_SUCCESS);
    EXPECT_EQ(mp.alloc, 3U);
    EXPECT_EQ(Hex(&mp), "0");
    mp_clear(&mp);
    EXPECT_EQ(mp_init_size(&mp, 0), MP_INVALID_PARAMETER);
}

TEST_F(Record, InitializesAndClearsArray) {
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

TEST_F(Record, RejectsCountBelowOne) {
    mp_int mp[1] = {};
    for (const int count : {0, -1, INT_MIN}) {
        EXPECT_EQ(mp_init_array(mp, count), MP_INVALID_PARAMETER);
        EXPECT_EQ(mp_clear_array(mp, count), MP_INVALID_PARAMETER);
    }
}

TEST_F(Record, CopiesSizeAndDigitsOfSource) {
    Integer source("-123456789abc", 9);
    mp_int copy;
    ASSERT_EQ(mp_init_copy(&copy, source), MP_SUCCESS);
    EXPECT_EQ(copy.alloc, 9U);
    mp_zero(source);
    EXPECT_EQ(Hex(&copy), "-123456789abc");
    mp_clear(&copy);
}

TEST_F(Record, GrowsToMultipleOfPrecisionWhenSet) {
    const std::string ones(4 * 65, 'f');
    const std::vector<unsigned char> bytes(2 * 65, 0xff);
    struct Case {
        const char* name;
        std::function<int(mp_int*)> grow;
        uint32_t digits;
    };
    for (const Case& c : std::vector<Case>{
             {"mp_set_int", [](mp_int* mp) { return mp_set_int(mp, LONG_MAX); }, 4},
             {"mp_read_radix, power of 2",
              [&](mp_int* mp) { return mp_read_radix(mp, ones.c_str(), 16); }, 65},
             {"mp_read_radix, other",
              [](mp_int* mp) { return mp_read_radix(mp, "4294967296", 10); }, 3},
             {"mp_read_signed_bin",
              [&](mp_int* mp) { return mp_read_signed_bin(mp, bytes.data(), 2 * 65); }, 65},
             {"mp_read_unsigned_bin",
              [&](mp_int* mp) { return mp_read_unsigned_bin(mp, bytes.data(), 2 * 65); }, 65}}) {
        for (const auto& [precision, size] : {std::pair{64U, c.digits > 64 ? 128U : 64U},
                                              {7U, c.digits > 7 ? 70U : 7U},
                                              {1U, c.digits}}) {
            mp_set_prec(precision);
            Integer target("5");
            EXPECT_EQ(c.grow(target), MP_SUCCESS) << c.name;
            EXPECT_EQ(target->used, c.digits) << c.name;
            EXPECT_EQ(target->alloc, size) << c.name;
        }
    }
}

class Growth : public testing::TestWithParam<Operation> {
protected:
    void TearDown() override { mp_set_prec(0); }
};

TEST_P(Growth, RoundsUpToMultipleOfPrecision) {
    const Operation& operation = GetParam();
    for (const uint32_t precision : {64U, 7U}) {
        mp_set_prec(precision);
        Numbers numbers(precision);
        std::vector<bool> hasGrown(operation.results);
        for (int round = 0; round < 60; ++round) {
            const unsigned extra = numbers.ExtraFor(operation, 3000);
            std::vector<std::string> operands = numbers.OperandsFor(operation, 3000);
            // So that common divisors are long, too.
            if (round % 2 == 0 && operation.domain == Domain::Any && operation.operands == 2)
                operands[1] = operands[0];
            const Call call(operation, extra, operands, "5");
            if (call.Run() != MP_SUCCESS)
                continue;
            for (size_t i = 0; i < operation.results; ++i) {
                const mp_int* result = call.results[i];
                EXPECT_EQ(result->alloc, result->used > 1 ? RoundedSize(result->used) : 1);
                hasGrown[i] = hasGrown[i] || result->used > 1;
            }
        }
        EXPECT_EQ(hasGrown, std::vector<bool>(operation.results, true));
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, Growth, testing::ValuesIn(OperationsWithResults()),
                         operationName);

TEST_F(Record, KeepsItsMemoryWhenValueFits) {
    const Integer source("123456789abcdef0");
    Integer target("1", 4);
    const mp_digit* const before = target->dp;
    ASSERT_EQ(mp_copy(source, target), MP_SUCCESS);
    EXPECT_EQ(target->dp, before);
    EXPECT_EQ(target->alloc, 4U);
}

TEST_F(Record, ExchangesContentsAndMemory) {
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

TEST_F(Record, ClearsTwice) {
    mp_int mp;
    ASSERT_EQ(mp_init(&mp), MP_SUCCESS);
    EXPECT_EQ(mp_clear(&mp), MP_SUCCESS);
    EXPECT_EQ(mp.dp, nullptr);
    EXPECT_EQ(mp_clear(&mp), MP_SUCCESS);
}

TEST_F(Record, SetReplacesValue) {
    Integer mp("-123456789abcdef0123456789");
    ASSERT_EQ(mp_set(mp, 65535), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "ffff");
    ASSERT_EQ(mp_zero(mp), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "0");
    ASSERT_EQ(mp_set(mp, 0), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "0");
}

TEST_F(Record, SetTakesEveryLong) {
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

TEST_F(Record, ShrinksToDigitsInUse) {
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
