// The two options with a number: what converts, and what is left for the next pass.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

struct NumberOption {
    const char* spelling;
    int CInstallBase::*field;
};

class CommandLineNumber : public testing::TestWithParam<NumberOption> {
protected:
    // The option's field after these words, of which "N" stands for the option.
    void Expect(std::vector<std::string> words, int number, bool setup) const {
        for (std::string& word : words)
            word = word == "N" ? GetParam().spelling : word;
        words.insert(words.begin(), "cv_install");
        ExpectInChild([&] {
            Arguments arguments(words);
            const CInstallBase run(true, arguments.argc(), arguments.argv());
            EXPECT_EQ(run.*GetParam().field, number) << testing::PrintToString(words);
            EXPECT_EQ(run.m_setup, setup) << testing::PrintToString(words);
            const bool isScratch = GetParam().field == &CInstallBase::m_argScratchLimitGB;
            EXPECT_EQ(isScratch ? run.m_argMemoryLimitMB : run.m_argScratchLimitGB, -1);
        });
    }
};

TEST_P(CommandLineNumber, IsStored) {
    Expect({"N", "12", "--setup"}, 12, true);
    Expect({"N", "2147483647"}, 2147483647, false);
    Expect({"N", "+7"}, 7, false);
}

TEST_P(CommandLineNumber, OfZeroOrBelowIsStored) {
    Expect({"N", "0", "--setup"}, 0, true);
    Expect({"N", "-5", "--setup"}, -5, true);
    Expect({"N", "-2147483648"}, -2147483647 - 1, false);
}

TEST_P(CommandLineNumber, ThatDoesNotFitIsPassedOver) {
    Expect({"N", "99999999999", "--setup"}, -1, true);
    Expect({"N", "2147483648"}, -1, false);
    Expect({"N", "-2147483649"}, -1, false);
}

TEST_P(CommandLineNumber, ThatDoesNotConvertIsReadAsAnOption) {
    Expect({"N", "foo", "--setup"}, -1, true);
    Expect({"N", "--setup"}, -1, true);
    Expect({"N", "N", "3"}, 3, false);
}

TEST_P(CommandLineNumber, IsOneDecimalNumberAndNothingElse) {
    for (const char* word : {"", "5GB", "0x10", "1.5", "1e3", "5,0", "--5"})
        Expect({"N", word}, -1, false);
    Expect({"N", "010"}, 10, false);
}

TEST_P(CommandLineNumber, ThatIsMissingStoresNothing) {
    Expect({"N"}, -1, false);
    Expect({"--setup", "N"}, -1, true);
}

TEST_P(CommandLineNumber, ALaterOneWinsAndABadOneDoesNot) {
    Expect({"N", "3", "N", "4"}, 4, false);
    Expect({"N", "3", "N", "four"}, 3, false);
    Expect({"N", "3", "N"}, 3, false);
}

INSTANTIATE_TEST_SUITE_P(
    Spellings, CommandLineNumber,
    testing::Values(NumberOption{"-s", &CInstallBase::m_argScratchLimitGB},
                    NumberOption{"--scratch-limit", &CInstallBase::m_argScratchLimitGB},
                    NumberOption{"-m", &CInstallBase::m_argMemoryLimitMB},
                    NumberOption{"--memory-limit", &CInstallBase::m_argMemoryLimitMB}),
    [](const auto& spelling) {
        const std::string word = spelling.param.spelling;
        return word == "-s"     ? "ShortScratchLimit"
               : word == "-m"   ? "ShortMemoryLimit"
               : word[2] == 's' ? "ScratchLimit"
                                : "MemoryLimit";
    });

TEST(CommandLineNumbers, AreKeptApart) {
    ExpectInChild([] {
        Arguments arguments({"cv_install", "-s", "5", "-m", "700"});
        const CInstallBase run(true, arguments.argc(), arguments.argv());
        EXPECT_EQ(run.m_argScratchLimitGB, 5);
        EXPECT_EQ(run.m_argMemoryLimitMB, 700);
        EXPECT_EQ(run.m_scratchLimitGB, 0);
        EXPECT_EQ(run.m_memoryLimitMB, 0);
    });
}

}  // namespace
