// Every function against the stored answers of Python's integers (see make_expected.py).
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "bigint/Operations.h"

namespace {

using namespace hx_test;

TEST(ExpectedAnswers, AreGivenByEveryFunction) {
    std::ifstream file(HX_EXPECTED_DIR "/bigint/operations.txt");
    std::set<std::string> seen;
    for (std::string line; std::getline(file, line);) {
        const size_t equals = line.find(" = ");
        ASSERT_NE(equals, std::string::npos) << line;
        std::istringstream question(line.substr(0, equals));
        std::string name;
        unsigned extra = 0;
        question >> name >> extra;
        std::vector<std::string> operands;
        for (std::string operand; question >> operand;)
            operands.push_back(operand);
        const Operation* operation = FindOperation(name);
        ASSERT_NE(operation, nullptr) << name;
        ASSERT_EQ(operands.size(), operation->operands) << line;
        EXPECT_EQ(Answer(*operation, extra, operands), line.substr(equals + 3)) << line;
        seen.insert(name);
    }
    EXPECT_EQ(seen.size(), Operations().size());
}

}  // namespace
