// A result may be the same record as any operand.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <iterator>

#include "bigint/Integer.h"
#include "bigint/Numbers.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

// The values of the results, or only the code of a failure.
struct Outcome {
    int code = 0;
    std::vector<std::string> results = {};
    mp_digit digit = 0;

    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << outcome.code;
    for (const std::string& result : outcome.results)
        *out << " " << result;
}

// Calls the function with result `i` in the record of operand `places[i]`, or in a separate record
// if that operand does not exist.
Outcome CallWith(const Operation& operation, unsigned extra, const std::vector<std::string>& values,
                 const std::vector<size_t>& places) {
    std::deque<Integer> records;
    Arguments arguments;
    Outcome outcome;
    for (const std::string& value : values)
        arguments.operands.push_back(records.emplace_back(value));
    for (const size_t place : places)
        arguments.results.push_back(place < values.size() ? records[place]
                                                          : records.emplace_back("7"));
    arguments.extra = extra;
    arguments.digit = &outcome.digit;
    outcome.code = operation.call(arguments);
    for (size_t i = 0; i < places.size() && outcome.code == MP_SUCCESS; ++i)
        outcome.results.push_back(Hex(arguments.results[i]));
    return outcome;
}

// Returns all ways to put the results into different records.
std::vector<std::vector<size_t>> Places(const Operation& operation) {
    std::vector<std::vector<size_t>> all = {{}};
    for (size_t i = 0; i < operation.results; ++i) {
        std::vector<std::vector<size_t>> longer;
        for (const std::vector<size_t>& places : all) {
            for (size_t place = 0; place <= operation.operands; ++place) {
                const bool taken = place < operation.operands &&
                                   std::find(places.begin(), places.end(), place) != places.end();
                if (!taken) {
                    longer.push_back(places);
                    longer.back().push_back(place);
                }
            }
        }
        all = longer;
    }
    return all;
}

class SharedRecord : public testing::TestWithParam<Operation> {};

TEST_P(SharedRecord, ServesAsOperandAndResult) {
    const Operation& operation = GetParam();
    Numbers numbers(5);
    for (int round = 0; round < 6 && !HasFailure(); ++round) {
        const unsigned bits = round % 2 == 0 ? 200 : 3000;
        const unsigned extra = numbers.ExtraFor(operation, bits);
        const std::vector<std::string> values = numbers.OperandsFor(operation, bits);
        const Outcome expected = CallWith(operation, extra, values,
                                          std::vector<size_t>(operation.results, values.size()));
        for (const std::vector<size_t>& places : Places(operation))
            EXPECT_EQ(CallWith(operation, extra, values, places), expected)
                << Question(operation, extra, values) << "\nresults in "
                << testing::PrintToString(places);
    }
}

std::vector<Operation> OperationsOfSeveral() {
    std::vector<Operation> several;
    std::copy_if(Operations().begin(), Operations().end(), std::back_inserter(several),
                 [](const Operation& o) { return o.operands > 1 && o.results > 0; });
    return several;
}

class OneRecord : public testing::TestWithParam<Operation> {};

TEST_P(OneRecord, ServesAsAllOperandsAndFirstResult) {
    const Operation& operation = GetParam();
    Numbers numbers(6);
    for (int round = 0; round < 12 && !HasFailure(); ++round) {
        std::string value = numbers.OperandsFor(operation, round < 8 ? 200 : 2000).back();
        if (operation.domain == Domain::ModularPower || operation.domain == Domain::SmallPower)
            value = value.substr(0, 2);
        const std::vector<std::string> values(operation.operands, value);
        const std::vector<size_t> apart(operation.results, values.size());
        const Outcome expected = CallWith(operation, 0, values, apart);
        Integer record(value);
        std::deque<Integer> others(operation.results - 1);
        Arguments arguments;
        arguments.operands.assign(operation.operands, record);
        arguments.results.push_back(record);
        for (Integer& other : others)
            arguments.results.push_back(other);
        EXPECT_EQ(operation.call(arguments), expected.code);
        for (size_t i = 0; i < arguments.results.size() && expected.code == MP_SUCCESS; ++i) {
            // The cofactors of a number and itself are not unique.
            const bool unique = i == 0 || std::string("mp_xgcd") != operation.name;
            EXPECT_TRUE(!unique || Hex(arguments.results[i]) == expected.results[i]) << value;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, SharedRecord,
                         testing::ValuesIn(Operations().begin(), Operations().end()),
                         operationName);

INSTANTIATE_TEST_SUITE_P(Functions, OneRecord, testing::ValuesIn(OperationsOfSeveral()),
                         operationName);

}  // namespace
