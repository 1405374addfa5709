// Each allocation of every function fails in turn: the function returns a code, changes nothing and
// leaks nothing. Freed memory contains no digits.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>

#include "bigint/CountingMemory.h"
#include "bigint/Integer.h"
#include "bigint/Numbers.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

// The complete state of a record.
struct State {
    explicit State(const mp_int* mp)
        : record(*mp), digits(mp->dp, mp->dp + (mp->dp == nullptr ? 0 : mp->used)) {}
    bool operator==(const State& other) const {
        return record.sign == other.record.sign && record.alloc == other.record.alloc &&
               record.used == other.record.used && record.dp == other.record.dp &&
               digits == other.digits;
    }
    mp_int record;
    std::vector<mp_digit> digits;
};

// Calls `call` with each allocation failing in turn until it succeeds. Expects `records` to stay
// unchanged after each failure, and freed memory to be clean if it contains only digits. Returns
// the number of allocations.
int FailEach(const std::function<int()>& call, const std::vector<const mp_int*>& records,
             bool onlyDigits = true) {
    std::vector<State> before;
    for (const mp_int* record : records)
        before.emplace_back(record);
    const size_t living = CountingMemory::Living();
    for (int failing = 0;; ++failing) {
        CountingMemory::Watch(failing);
        const int code = call();
        CountingMemory::Stop();
        EXPECT_TRUE(!onlyDigits || CountingMemory::Unclean() == 0);
        if (CountingMemory::Calls() <= failing) {
            EXPECT_EQ(code, MP_SUCCESS);
            return failing;
        }
        EXPECT_EQ(code, MP_OUT_OF_MEMORY) << "allocation " << failing;
        for (size_t i = 0; i < records.size(); ++i)
            EXPECT_TRUE(State(records[i]) == before[i]) << "record " << i;
        EXPECT_EQ(CountingMemory::Living(), living) << "allocation " << failing;
        if (testing::Test::HasFailure())
            return failing;
    }
}

class AllocationFailure : public testing::TestWithParam<Operation> {
protected:
    // Returns operands for which the function succeeds.
    static std::vector<std::string> Values(const Operation& operation, unsigned bits) {
        Numbers numbers(bits);
        for (;;) {
            std::vector<std::string> values = numbers.OperandsFor(operation, bits);
            if (Answer(operation, 3, values).starts_with("0 "))
                return values;
        }
    }
};

TEST_P(AllocationFailure, ChangesNothing) {
    const Operation& operation = GetParam();
    // Work memory is on the stack for short operands, and on the heap for long ones.
    for (const unsigned bits : {300U, 40000U}) {
        const std::vector<std::string> values =
            operation.results > 0
                ? Values(operation, bits)
                : std::vector<std::string>(operation.operands, std::string(bits / 4, 'f'));
        {
            Call call(operation, 3, values, "-5");
            std::vector<const mp_int*> watched = call.arguments.operands;
            watched.insert(watched.end(), call.results.begin(), call.results.end());
            if (operation.results == 0) {
                CountingMemory::Watch();
                call.Run();
                CountingMemory::Stop();
                EXPECT_EQ(CountingMemory::Calls(), 0);
            } else {
                FailEach(
                    [&] {
                        const int code = call.Run();
                        EXPECT_TRUE(code == MP_SUCCESS || call.digit == Call::digitBefore);
                        return code;
                    },
                    watched);
            }
        }
        EXPECT_EQ(CountingMemory::Living(), 0U) << "after the records were cleared";
        EXPECT_EQ(CountingMemory::Unclean(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, AllocationFailure,
                         testing::ValuesIn(Operations().begin(), Operations().end()),
                         operationName);

class Memory : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(CountingMemory::Living(), 0U);
        EXPECT_EQ(CountingMemory::Unclean(), 0);
    }
};

TEST_F(Memory, FailsForNewRecord) {
    mp_int mp = {1, 2, 3, nullptr};
    const Integer source("-123456789", 20);
    for (const std::function<int()>& call : std::vector<std::function<int()>>{
             [&] { return mp_init(&mp); }, [&] { return mp_init_size(&mp, 9); },
             [&] { return mp_init_copy(&mp, source); }}) {
        mp = {1, 2, 3, nullptr};
        EXPECT_EQ(FailEach(call, {&mp}), 1);
        mp_clear(&mp);
    }
}

TEST_F(Memory, FailsForWholeArray) {
    mp_int mp[5];
    std::memset(mp, 0, sizeof mp);
    std::vector<const mp_int*> watched;
    for (mp_int& one : mp)
        watched.push_back(&one);
    EXPECT_GE(FailEach([&] { return mp_init_array(mp, 5); }, watched, false), 5);
    for (mp_int& one : mp)
        mp_set_int(&one, -123456789);
    CountingMemory::Watch();
    mp_clear_array(mp, 5);
    CountingMemory::Stop();
}

TEST_F(Memory, IsZeroedBeforeItIsFreed) {
    CountingMemory::Watch();
    mp_int mp;
    mp_init_size(&mp, 8);
    mp_set_int(&mp, 0x123456789abcdef);
    mp_sqr(&mp, &mp);
    mp_sqr(&mp, &mp);
    EXPECT_EQ(mp.alloc, 64U);
    EXPECT_EQ(CountingMemory::Unclean(), 0) << "in growth";
    mp_clear(&mp);
    EXPECT_EQ(CountingMemory::Unclean(), 0) << "when cleared";
    CountingMemory::Stop();
}

TEST_F(Memory, FailsForSetRecord) {
    Integer mp("1");
    EXPECT_EQ(FailEach([&] { return mp_set_int(mp, -123456789); }, {mp}), 1);
    EXPECT_EQ(Hex(mp), "-75bcd15");
}

TEST_F(Memory, ShrinksWithRealloc) {
    for (const auto& [value, digits] : {std::pair{-123456789L, 2U}, {1L, 1U}, {LONG_MAX, 4U}}) {
        for (const uint32_t alloc : {digits + 1, 100U, 70000U}) {
            CountingMemory::Watch();
            mp_int mp;
            mp_init_size(&mp, alloc);
            mp_set_int(&mp, value);
            CountingMemory::Stop();
            EXPECT_EQ(FailEach([&] { return mp_shrink(&mp); }, {&mp}), 1);
            EXPECT_EQ(CountingMemory::Reallocations(), 1);
            EXPECT_EQ(CountingMemory::SizeOf(mp.dp), digits * sizeof(mp_digit));
            EXPECT_EQ(mp_cmp_int(&mp, value), 0);
            mp_clear(&mp);
        }
    }
}

TEST_F(Memory, FailsForTextAndBinaryForm) {
    const std::string text(20000, '7');
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const int length = static_cast<int>(text.size());
    for (const std::function<int(mp_int*)>& call : std::vector<std::function<int(mp_int*)>>{
             [&](mp_int* mp) { return mp_read_radix(mp, text.c_str(), 10); },
             [&](mp_int* mp) { return mp_read_radix(mp, text.c_str(), 16); },
             [&](mp_int* mp) { return mp_read_signed_bin(mp, bytes, length); },
             [&](mp_int* mp) { return mp_read_unsigned_bin(mp, bytes, length); }}) {
        Integer mp("-9");
        EXPECT_EQ(FailEach([&] { return call(mp); }, {mp}), 2);
    }
    const Integer mp(std::string(20000, 'f'));
    for (const int radix : {2, 10, 37}) {
        std::string out(80002, '#');
        EXPECT_EQ(FailEach(
                      [&] {
                          const int code = mp_toradix(mp, out.data(), radix);
                          EXPECT_TRUE(code == MP_SUCCESS || out.front() == '#');
                          return code;
                      },
                      {mp}),
                  1);
    }
}

}  // namespace
