// Every function against Python's integers, on operands of up to 8192 bits and beyond.
#include "bigint/Reference.h"

#include <gtest/gtest.h>

#include "bigint/Numbers.h"
#include "bigint/Operations.h"

namespace {

using namespace hx_test;

class AgainstPython : public testing::TestWithParam<Operation> {
protected:
    void SetUp() override {
        if (!m_python.Available())
            GTEST_SKIP() << "there is no python3 to compare with";
    }

    void Compare(const Operation& operation, unsigned bits, int rounds, uint64_t seed) {
        Numbers numbers(seed);
        for (int i = 0; i < rounds && !HasFailure(); ++i) {
            const unsigned extra = numbers.ExtraFor(operation, bits);
            const std::vector<std::string> operands = numbers.OperandsFor(operation, bits);
            const std::string question = Question(operation, extra, operands);
            EXPECT_EQ(Answer(operation, extra, operands), m_python.Ask(question)) << question;
        }
    }

    Reference m_python;
};

TEST_P(AgainstPython, AgreesOnOperandsOfUpTo8192Bits) {
    Compare(GetParam(), 40, 100, 1);
    Compare(GetParam(), 300, 100, 2);
    Compare(GetParam(), 8192, 16, 3);
}

INSTANTIATE_TEST_SUITE_P(Functions, AgainstPython,
                         testing::ValuesIn(Operations().begin(), Operations().end()),
                         [](const auto& test) { return std::string(test.param.name); });

class LongAgainstPython : public AgainstPython {};

// Long enough for every method of multiplication and division.
TEST_P(LongAgainstPython, AgreesOnLongOperands) {
    Compare(GetParam(), 60000, 4, 4);
}

std::vector<Operation> LongOperations() {
    std::vector<Operation> operations;
    for (const char* name : {"mp_mul", "mp_sqr", "mp_div", "mp_mod", "mp_mulmod", "mp_sqrt",
                             "mp_gcd", "mp_xgcd", "mp_lcm", "mp_invmod", "mp_expt"})
        operations.push_back(*FindOperation(name));
    return operations;
}

INSTANTIATE_TEST_SUITE_P(Functions, LongAgainstPython, testing::ValuesIn(LongOperations()),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
