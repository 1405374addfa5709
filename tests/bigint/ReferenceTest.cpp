// Every function against Python's integers, on operands of up to 8192 bits and beyond.
#include "bigint/Reference.h"

#include <gtest/gtest.h>

#include "bigint/Numbers.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

class PythonComparison : public testing::TestWithParam<Operation> {
protected:
    void SetUp() override {
        if (!HasPython())
            GTEST_SKIP() << "python3 is not installed";
    }

    // Compares the operation on random operands, each pair of numbers being bits and rounds.
    static void Compare(const std::vector<std::pair<unsigned, int>>& sizes) {
        const Operation& operation = GetParam();
        std::vector<std::string> questions;
        std::vector<std::string> answers;
        for (const auto& [bits, rounds] : sizes) {
            Numbers numbers(bits);
            for (int i = 0; i < rounds; ++i) {
                const unsigned extra = numbers.ExtraFor(operation, bits);
                const std::vector<std::string> operands = numbers.OperandsFor(operation, bits);
                questions.push_back(Question(operation, extra, operands));
                answers.push_back(Answer(operation, extra, operands));
            }
        }
        const std::vector<std::string> expected = AnswersOfPython(questions);
        for (size_t i = 0; i < questions.size() && !HasFailure(); ++i)
            EXPECT_EQ(answers[i], expected[i]) << questions[i];
    }
};

TEST_P(PythonComparison, Matches) {
    Compare({{40, 100}, {300, 100}, {1040, 24}, {8192, 16}});
}

INSTANTIATE_TEST_SUITE_P(Functions, PythonComparison,
                         testing::ValuesIn(Operations().begin(), Operations().end()),
                         operationName);

class LongPythonComparison : public PythonComparison {};

// Long enough for every method of multiplication and division.
TEST_P(LongPythonComparison, Matches) {
    Compare({{60000, 4}});
}

std::vector<Operation> LongOperations() {
    std::vector<Operation> operations;
    for (const char* name : {"mp_mul", "mp_sqr", "mp_div", "mp_mod", "mp_mulmod", "mp_sqrt",
                             "mp_gcd", "mp_xgcd", "mp_lcm", "mp_invmod", "mp_expt"})
        operations.push_back(FindOperation(name));
    return operations;
}

INSTANTIATE_TEST_SUITE_P(Functions, LongPythonComparison, testing::ValuesIn(LongOperations()),
                         operationName);

}  // namespace
