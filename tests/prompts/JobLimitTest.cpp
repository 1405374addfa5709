// The question for the number of threads that may run at once.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

class JobLimit : public PromptTest {};
HX_OVER_BOTH_CONSOLES(JobLimit);

TEST_P(JobLimit, EnterTakesTheNumberOfCores) {
    Converse({{JobIntroduction(8) + JobQuestion(8), "\n"}}, [](CInstallBase& run) {
        run.m_coreCount = 8;
        run.PromptJobLimit();
        EXPECT_EQ(run.m_jobLimit, 8);
    });
}

TEST_P(JobLimit, ATypedNumberWinsAlsoAboveTheNumberOfCores) {
    Converse({{JobIntroduction(8) + JobQuestion(8), "64\n"}}, [](CInstallBase& run) {
        run.m_coreCount = 8;
        run.PromptJobLimit();
        EXPECT_EQ(run.m_jobLimit, 64);
    });
}

TEST_P(JobLimit, DoesNotOfferTheLimitOfAnEarlierInstallation) {
    LastInstallation("MaxThreads: 4\nMemoryPerThreadMB: 2000\n");
    Converse({{JobIntroduction(8) + JobQuestion(8), "\n"}}, [](CInstallBase& run) {
        run.m_coreCount = 8;
        run.PromptJobLimit();
        EXPECT_EQ(run.m_jobLimit, 8);
        EXPECT_EQ(run.m_prevJobLimit, 4);
    });
}

TEST_P(JobLimit, AnswersItselfInARunWithoutQuestions) {
    m_options = {"--cluster-node"};
    Converse({{JobIntroduction(8) + JobQuestion(8) + "8\n"}}, [](CInstallBase& run) {
        run.m_coreCount = 8;
        run.PromptJobLimit();
        EXPECT_EQ(run.m_jobLimit, 8);
    });
}

TEST_P(JobLimit, ARefusedAnswerIsFollowedByAPauseAndTheQuestionAlone) {
    // What is typed at the pause is no answer.
    Converse({{JobIntroduction(8) + JobQuestion(8), "all\n"},
              {JobComplaint + Pause, "5\n"},
              {JobQuestion(8), "0\n"},
              {JobComplaint + Pause, "\n"},
              {JobQuestion(8), "6\n"}},
             [](CInstallBase& run) {
                 run.m_coreCount = 8;
                 run.PromptJobLimit();
                 EXPECT_EQ(run.m_jobLimit, 6);
             });
}

TEST_P(JobLimit, TakesACoreCountThatIsUnknownAsItIs) {
    Converse({{JobIntroduction(-1) + JobQuestion(-1), "\n"}}, [](CInstallBase& run) {
        run.m_coreCount = -1;
        run.PromptJobLimit();
        EXPECT_EQ(run.m_jobLimit, -1);
    });
}

TEST_P(JobLimit, AsksOnTheConsoleAlsoInAGraphicalSetup) {
    m_options = {"--gui"};
    Converse({{JobIntroduction(8) + JobQuestion(8), "2\n"}}, [](CInstallBase& run) {
        g_hx_gui_installer = 1;
        run.m_coreCount = 8;
        run.PromptJobLimit();
        EXPECT_EQ(run.m_jobLimit, 2);
    });
}

}  // namespace
}  // namespace hx_test
