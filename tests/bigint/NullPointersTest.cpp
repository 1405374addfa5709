// Null pointers and records without memory are checked before values.
#include <gtest/gtest.h>

#include <deque>

#include "bigint/Integer.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

class NullPointer : public testing::TestWithParam<Operation> {};

// Uses values that are out of range where possible: zeros and a negative one.
TEST_P(NullPointer, IsRejectedBeforeValues) {
    const Operation& operation = GetParam();
    mp_int cleared = {};
    for (const mp_int* missing :
         {static_cast<const mp_int*>(nullptr), &const_cast<const mp_int&>(cleared)}) {
        const size_t pointers =
            operation.operands + operation.results + (operation.returnsDigit ? 1 : 0);
        for (size_t absent = 0; absent < pointers; ++absent) {
            std::deque<Integer> records;
            Arguments arguments;
            mp_digit digit = 77;
            for (size_t i = 0; i < operation.operands; ++i) {
                const mp_int* operand = records.emplace_back(i == 0 ? "-5" : "0");
                arguments.operands.push_back(i == absent ? missing : operand);
            }
            for (size_t i = 0; i < operation.results; ++i) {
                mp_int* result = records.emplace_back("9");
                arguments.results.push_back(
                    operation.operands + i == absent ? const_cast<mp_int*>(missing) : result);
            }
            arguments.digit = operation.operands + operation.results == absent ? nullptr : &digit;
            EXPECT_EQ(operation.call(arguments), MP_INVALID_PARAMETER) << "pointer " << absent;
            for (size_t i = operation.operands; i < records.size(); ++i)
                EXPECT_EQ(Hex(records[i]), "9");
            EXPECT_EQ(digit, 77);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, NullPointer,
                         testing::ValuesIn(Operations().begin(), Operations().end()),
                         operationName);

TEST(NullPointers, AreRejectedByOtherFunctions) {
    Integer a("5");
    unsigned char bytes[4] = {};
    char text[8] = {};
    mp_int* const none = nullptr;
    EXPECT_EQ(mp_init(none), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_init_size(none, 1), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_init_array(none, 1), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_init_copy(none, a), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_init_copy(a, none), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_exch(none, a), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_exch(a, none), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_clear(none), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_clear_array(none, 1), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_zero(none), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_set(none, 1), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_set_int(none, 1), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_shrink(none), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_cmp_int(none, 1), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_read_signed_bin(none, bytes, 4), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_read_signed_bin(a, nullptr, 4), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_read_unsigned_bin(none, bytes, 4), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_read_unsigned_bin(a, nullptr, 4), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_to_signed_bin(none, bytes), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_to_signed_bin(a, nullptr), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_to_unsigned_bin(none, bytes), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_to_unsigned_bin(a, nullptr), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_read_radix(none, "1", 10), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_read_radix(a, nullptr, 10), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_toradix(none, text, 99), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_toradix(a, nullptr, 99), MP_INVALID_PARAMETER);
    EXPECT_EQ(mp_radix_size(none, 10), MP_INVALID_PARAMETER);
    EXPECT_EQ(Hex(a), "5");
}

}  // namespace
