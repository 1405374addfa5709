// Binary forms.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "bigint/Integer.h"
#include "bigint/Numbers.h"

namespace {

using hx_test::Hex;
using hx_test::Integer;
using Bytes = std::vector<unsigned char>;

// Checks that the byte after the form stays unchanged.
Bytes Written(const mp_int* mp, int size, int (*write)(const mp_int*, unsigned char*)) {
    Bytes bytes(static_cast<size_t>(size) + 1, 0xA5);
    EXPECT_EQ(write(mp, bytes.data()), MP_SUCCESS);
    EXPECT_EQ(bytes.back(), 0xA5);
    bytes.pop_back();
    return bytes;
}

Bytes Unsigned(const mp_int* mp) {
    return Written(mp, mp_unsigned_bin_size(mp), mp_to_unsigned_bin);
}

Bytes Signed(const mp_int* mp) {
    return Written(mp, mp_signed_bin_size(mp), mp_to_signed_bin);
}

TEST(Binary, WritesBigEndianWithoutLeadingZeros) {
    EXPECT_EQ(Unsigned(Integer("0")), (Bytes{0}));
    EXPECT_EQ(Unsigned(Integer("ff")), (Bytes{0xff}));
    EXPECT_EQ(Unsigned(Integer("-100")), (Bytes{1, 0}));
    EXPECT_EQ(Unsigned(Integer("123456789abcdef01")),
              (Bytes{1, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef, 1}));
}

TEST(Binary, WritesSignByteFirst) {
    EXPECT_EQ(Signed(Integer("0")), (Bytes{0, 0}));
    EXPECT_EQ(Signed(Integer("ff")), (Bytes{0, 0xff}));
    EXPECT_EQ(Signed(Integer("-100")), (Bytes{1, 1, 0}));
}

TEST(Binary, ReadsAnySignByteExceptZeroAsNegative) {
    for (const int sign : {1, 2, 128, 255}) {
        const Bytes bytes = {static_cast<unsigned char>(sign), 5};
        Integer mp;
        ASSERT_EQ(mp_read_signed_bin(mp, bytes.data(), 2), MP_SUCCESS);
        EXPECT_EQ(Hex(mp), "-5");
    }
}

TEST(Binary, ReadsZeroWithoutSign) {
    Integer mp("5");
    const Bytes bytes = {1, 0, 0};
    ASSERT_EQ(mp_read_signed_bin(mp, bytes.data(), 3), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "0");
    ASSERT_EQ(mp_read_signed_bin(mp, bytes.data(), 1), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "0");
}

TEST(Binary, SkipsLeadingZeros) {
    Integer mp;
    const Bytes bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34, 0x56};
    ASSERT_EQ(mp_read_unsigned_bin(mp, bytes.data(), 12), MP_SUCCESS);
    EXPECT_EQ(Hex(mp), "123456");
}

TEST(Binary, RejectsLengthBelowOne) {
    Integer mp("5");
    const Bytes bytes = {1, 2};
    for (const int length : {0, -1, INT_MIN}) {
        EXPECT_EQ(mp_read_signed_bin(mp, bytes.data(), length), MP_INVALID_PARAMETER);
        EXPECT_EQ(mp_read_unsigned_bin(mp, bytes.data(), length), MP_INVALID_PARAMETER);
    }
    EXPECT_EQ(Hex(mp), "5");
}

TEST(Binary, ReadsWhatItWrites) {
    hx_test::Numbers numbers(9);
    for (int i = 0; i < 300; ++i) {
        const Integer value(numbers.Signed(i < 200 ? 140 : 8192));
        const Bytes bytes = Signed(value);
        Integer back("77");
        ASSERT_EQ(mp_read_signed_bin(back, bytes.data(), static_cast<int>(bytes.size())),
                  MP_SUCCESS);
        EXPECT_EQ(Hex(back), Hex(value));
        const Bytes magnitude = Unsigned(value);
        EXPECT_EQ(Bytes(bytes.begin() + 1, bytes.end()), magnitude);
        ASSERT_EQ(mp_read_unsigned_bin(back, magnitude.data(), static_cast<int>(magnitude.size())),
                  MP_SUCCESS);
        Integer absolute;
        mp_abs(value, absolute);
        EXPECT_EQ(Hex(back), Hex(absolute));
    }
}

TEST(Binary, CountsBitsAndBytes) {
    EXPECT_EQ(mp_count_bits(Integer("0")), 0);
    EXPECT_EQ(mp_count_bits(Integer("-1")), 1);
    EXPECT_EQ(mp_count_bits(Integer("10000")), 17);
    EXPECT_EQ(mp_unsigned_bin_size(Integer("0")), 1);
    EXPECT_EQ(mp_unsigned_bin_size(Integer("100")), 2);
    EXPECT_EQ(mp_signed_bin_size(Integer("0")), 2);
}

}  // namespace
