// Each allocation of every function fails in turn: the code tells, nothing changes, nothing leaks.
// And no digits are left in memory that is given back.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <functional>

#include "bigint/CountingMemory.h"
#include "bigint/Integer.h"
#include "bigint/Numbers.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

// All that there is to know of a record.
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

// Calls `call` with every allocation failing in turn until it needs no more of them. `records` must
// be as they were after each failure. All memory must be given back clean where it holds only
// digits. Returns how many allocations there were.
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

class MemoryOf : public testing::TestWithParam<Operation> {
protected:
    // Operands that make a success of every function.
    static std::vector<std::string> Values(const Operation& operation, unsigned bits) {
        Numbers numbers(bits);
        for (;;) {
            std::vector<std::string> values = numbers.OperandsFor(operation, bits);
            if (Answer(operation, 3, values).starts_with("0 "))
                return values;
        }
    }
};

TEST_P(MemoryOf, MayRunOutAtAnyCall) {
    const Operation& operation = GetParam();
    // Work memory of short operands is on the stack, that of long ones is not.
    for (const unsigned bits : {300U, 40000U}) {
        std::vector<std::string> values;
        if (operation.results > 0)
            values = Values(operation, bits);
        else
            values.assign(operation.operands, std::string(bits / 4, 'f'));
        {
            std::deque<Integer> records;
            Arguments arguments;
            std::vector<const mp_int*> watched;
            mp_digit digit = 0;
            for (const std::string& value : values)
                watched.push_back(arguments.operands.emplace_back(records.emplace_back(value)));
            for (size_t i = 0; i < operation.results; ++i)
                watched.push_back(arguments.results.emplace_back(records.emplace_back("-5")));
            arguments.extra = 3;
            arguments.digit = &digit;
            if (operation.results == 0) {
                CountingMemory::Watch();
                operation.call(arguments);
                CountingMemory::Stop();
                EXPECT_EQ(CountingMemory::Calls(), 0);
            } else {
                FailEach([&] { return operation.call(arguments); }, watched);
            }
        }
        EXPECT_EQ(CountingMemory::Living(), 0U) << "after the records were cleared";
        EXPECT_EQ(CountingMemory::Unclean(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, MemoryOf,
                         testing::ValuesIn(Operations().begin(), Operations().end()),
                         [](const auto& test) { return std::string(test.param.name); });

class Memory : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(CountingMemory::Living(), 0U);
        EXPECT_EQ(CountingMemory::Unclean(), 0);
    }
};

TEST_F(Memory, OfANewRecordMayBeRefused) {
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

TEST_F(Memory, OfAnArrayIsThereForAllRecordsOrForNone) {
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

TEST_F(Memory, OfARecordIsZeroedBeforeItIsFreed) {
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

TEST_F(Memory, MayRunOutWhenARecordIsSet) {
    Integer mp("1");
    EXPECT_EQ(FailEach([&] { return mp_set_int(mp, -123456789); }, {mp}), 1);
    EXPECT_EQ(Hex(mp), "-75bcd15");
}

TEST_F(Memory, MayRunOutWhenARecordShrinks) {
    CountingMemory::Watch();
    mp_int mp;
    mp_init_size(&mp, 100);
    mp_set_int(&mp, -123456789);
    CountingMemory::Stop();
    EXPECT_EQ(FailEach([&] { return mp_shrink(&mp); }, {&mp}), 1);
    EXPECT_EQ(Hex(&mp), "-75bcd15");
    mp_clear(&mp);
}

TEST_F(Memory, MayRunOutInTextAndBinaryForm) {
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
