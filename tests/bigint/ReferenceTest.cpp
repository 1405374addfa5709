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
        if (!m_python.Available())
            GTEST_SKIP() << "python3 is not installed";
    }

    void Compare(unsigned bits, int rounds) {
        const Operation& operation = GetParam();
        Numbers numbers(bits);
        for (int i = 0; i < rounds && !HasFailure(); ++i) {
            const unsigned extra = numbers.ExtraFor(operation, bits);
            const std::vector<std::string> operands = numbers.OperandsFor(operation, bits);
            const std::string question = Question(operation, extra, operands);
            EXPECT_EQ(Answer(operation, extra, operands), m_python.Ask(question)) << question;
        }
    }

    Reference m_python;
};

TEST_P(PythonComparison, Matches) {
    Compare(40, 100);
    Compare(300, 100);
    Compare(1040, 24);
    Compare(8192, 16);
}

INSTANTIATE_TEST_SUITE_P(Functions, PythonComparison,
                         testing::ValuesIn(Operations().begin(), Operations().end()),
                         operationName);

class LongPythonComparison : public PythonComparison {};

// Long enough for every method of multiplication and division.
TEST_P(LongPythonComparison, Matches) {
    Compare(60000, 4);
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
