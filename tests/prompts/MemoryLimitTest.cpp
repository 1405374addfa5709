// The question for the memory of each thread.
#include <csignal>

#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

class MemoryLimit : public PromptTest {
protected:
    // Asks with these figures and expects this result.
    void Ask(int ramMB, int jobLimit, int expectedMB, const std::vector<Turn>& turns) {
        Converse(turns, [=](CInstallBase& run) {
            run.m_ramMB = ramMB;
            run.m_jobLimit = jobLimit;
            const int previous[] = {run.m_prevJobLimit, run.m_prevMemoryLimitMB};
            run.PromptMemoryLimit();
            EXPECT_EQ(run.m_memoryLimitMB, expectedMB);
            EXPECT_EQ(run.m_jobLimit, jobLimit);
            EXPECT_EQ(run.m_prevJobLimit, previous[0]);
            EXPECT_EQ(run.m_prevMemoryLimitMB, previous[1]);
        });
    }
};
HX_OVER_BOTH_CONSOLES(MemoryLimit);

TEST_P(MemoryLimit, SharesTheMemoryOutAndTruncates) {
    Ask(32000, 3, 10666,
        {{MemoryIntroduction(32000, 3, 10666) + MemoryQuestion(10666), "\n"},
         {MemoryClosing(10666) + Pause, "\n"}});
}

TEST_P(MemoryLimit, ATypedNumberWinsAlsoAboveTheMachinesMemory) {
    Ask(32000, 8, 64000,
        {{MemoryIntroduction(32000, 8, 4000) + MemoryQuestion(4000), "64000\n"},
         {MemoryClosing(64000) + Pause, "\n"}});
}

TEST_P(MemoryLimit, AnotherJobLimitDiscardsThePreviousMemoryLimit) {
    LastInstallation("MaxThreads: 8\nMemoryPerThreadMB: 2000\n");
    Ask(48000, 16, 3000,
        {{MemoryIntroduction(48000, 16, 3000) + MemoryQuestion(3000), "\n"},
         {MemoryClosing(3000) + Pause, "\n"}});
}

TEST_P(MemoryLimit, TheSameJobLimitPreservesThePreviousMemoryLimit) {
    LastInstallation("MaxThreads: 8\nMemoryPerThreadMB: 2000\n");
    Ask(4000, 8, 2000,
        {{MemoryIntroduction(4000, 8, 500) + MemoryNotice(2000) + MemoryQuestion(2000), "\n"},
         {MemoryClosing(2000) + Pause, "\n"}});
}

TEST_P(MemoryLimit, ATypedNumberWinsOverThePreviousMemoryLimit) {
    LastInstallation("MaxThreads: 8\nMemoryPerThreadMB: 2000\n");
    Ask(32000, 8, 1024,
        {{MemoryIntroduction(32000, 8, 4000) + MemoryNotice(2000) + MemoryQuestion(2000), "1024\n"},
         {MemoryClosing(1024) + Pause, "\n"}});
}

TEST_P(MemoryLimit, APreviousMemoryLimitOfZeroIsNotOffered) {
    LastInstallation("MaxThreads: 8\nMemoryPerThreadMB: much\n");
    Ask(32000, 8, 4000,
        {{MemoryIntroduction(32000, 8, 4000) + MemoryQuestion(4000), "\n"},
         {MemoryClosing(4000) + Pause, "\n"}});
}

TEST_P(MemoryLimit, ABareJobLimitOfAnEarlierInstallationPreservesItsBuiltInMemoryLimit) {
    LastInstallation("8");
    Ask(32000, 8, 1024,
        {{MemoryIntroduction(32000, 8, 4000) + MemoryNotice(1024) + MemoryQuestion(1024), "\n"},
         {MemoryClosing(1024) + Pause, "\n"}});
}

TEST_P(MemoryLimit, LessMemoryThanThreadsOffersZeroWhichCannotBeTyped) {
    Ask(4, 8, 0,
        {{MemoryIntroduction(4, 8, 0) + MemoryQuestion(0), "0\n"},
         {Complaint + Pause, "\n"},
         {MemoryQuestion(0), "\n"},
         {MemoryClosing(0) + Pause, "\n"}});
}

TEST_P(MemoryLimit, ANegativeJobLimitDividesAsItIs) {
    Ask(32000, -1, -32000,
        {{MemoryIntroduction(32000, -1, -32000) + MemoryQuestion(-32000), "\n"},
         {MemoryClosing(-32000) + Pause, "\n"}});
}

TEST_P(MemoryLimit, ARefusedAnswerRepeatsTheNoticeWithTheQuestion) {
    LastInstallation("MaxThreads: 8\nMemoryPerThreadMB: 2000\n");
    Ask(32000, 8, 3000,
        {{MemoryIntroduction(32000, 8, 4000) + MemoryNotice(2000) + MemoryQuestion(2000), "2GB\n"},
         {Complaint + Pause, "512\n"},
         {MemoryNotice(2000) + MemoryQuestion(2000), "3000\n"},
         {MemoryClosing(3000) + Pause, "\n"}});
}

TEST_P(MemoryLimit, TheOptionLeavesTheClosingBlockAndThePause) {
    LastInstallation("MaxThreads: 8\nMemoryPerThreadMB: 2000\n");
    for (const std::string option : {"--memory-limit", "-m"}) {
        m_options = {option, "4000"};
        Ask(32000, 8, 4000, {{MemoryClosing(4000) + Pause, "\n"}});
    }
}

TEST_P(MemoryLimit, TheOptionNeedsNoJobLimit) {
    m_options = {"--memory-limit", "4000"};
    Ask(32000, 0, 4000, {{MemoryClosing(4000) + Pause, "\n"}});
}

TEST_P(MemoryLimit, AnOptionOfZeroOrLessCountsAsNotGiven) {
    for (const std::string value : {"0", "-5"}) {
        m_options = {"--memory-limit", value};
        Ask(32000, 8, 4000,
            {{MemoryIntroduction(32000, 8, 4000) + MemoryQuestion(4000), "\n"},
             {MemoryClosing(4000) + Pause, "\n"}});
    }
}

TEST_P(MemoryLimit, AnswersItselfInARunWithoutQuestions) {
    m_options = {"--cluster-node"};
    Ask(32000, 8, 4000,
        {{MemoryIntroduction(32000, 8, 4000) + MemoryQuestion(4000) + "4000\n" +
          MemoryClosing(4000)}});
}

TEST_P(MemoryLimit, AnswersItselfWithThePreviousMemoryLimit) {
    LastInstallation("MaxThreads: 8\nMemoryPerThreadMB: 2000\n");
    m_options = {"--cluster-node"};
    Ask(32000, 8, 2000,
        {{MemoryIntroduction(32000, 8, 4000) + MemoryNotice(2000) + MemoryQuestion(2000) +
          "2000\n" + MemoryClosing(2000)}});
}

TEST_P(MemoryLimit, TheOptionLeavesNoPauseInARunWithoutQuestions) {
    m_options = {"--cluster-node", "--memory-limit", "4000"};
    Ask(32000, 8, 4000, {{MemoryClosing(4000)}});
}

TEST(MemoryLimitWithoutJobLimit, DiesOfTheDivision) {
#if defined(HX_TEST_KEEP_MALLOC) || !defined(__x86_64__)
    GTEST_SKIP() << "the division does not end the process by a signal here";
#endif
    HX_REQUIRE_NAMESPACES();
    const World world{.identity = World::Identity::User};
    const auto result = RunInChild(world, [] {
        char name[] = "/nowhere/cv_install";
        char* argv[] = {name, nullptr};
        CInstallBase run(true, 1, argv);
        run.m_jobLimit = 0;
        run.PromptMemoryLimit();
    });
    EXPECT_EQ(result.status, 128 + SIGFPE);
}

}  // namespace
}  // namespace hx_test
