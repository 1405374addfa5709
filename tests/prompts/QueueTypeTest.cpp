// The menu for the type of queue, and the summary of the queue's settings.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

class QueueType : public PromptTest {
protected:
    QueueType() { Replace("/opt"); }

    void Ask(int expected, const std::vector<Turn>& turns) {
        Converse(turns, [=](CInstallBase& run) {
            run.PromptQueueType();
            EXPECT_EQ(run.m_queueType, expected);
        });
    }

    // The menu is skipped; the summary stands alone.
    void ExpectSummary(int type, const std::string& summary) {
        Ask(type, {{summary + Pause, "\n"}});
    }

    // Types a choice and, for the external queue, Torque with everything as offered.
    void ExpectChoice(const std::string& line, int type) {
        SCOPED_TRACE(line);
        std::vector<Turn> turns = {{Separator + QueueMenu, line}};
        if (type == CInstallBase::QueueExternal) {
            turns.push_back({Separator + SchedulerMenu, "1\n"});
            turns.push_back({QueueNameQuestion, "\n"});
            turns.push_back({CommandQuestion("qsub", "/usr/local/bin/qsub"), "\n"});
            turns.push_back({CommandQuestion("qdel", "/usr/local/bin/qdel"), "\n"});
            turns.push_back({CommandQuestion("qsig", "/usr/local/bin/qsig"), "\n"});
            turns.push_back({ExternalSummary(LocalTorque) + Pause, "\n"});
        } else {
            turns.push_back({InternalSummary + Pause, "\n"});
        }
        Ask(type, turns);
    }

    const std::string LocalTorque =
        TorqueSettings("/usr/local/bin/qsub", "/usr/local/bin/qdel", "/usr/local/bin/qsig");
    const std::string UsualSlurm = SlurmSettings("/usr/bin/sbatch", "/usr/bin/scancel");
};
HX_OVER_BOTH_CONSOLES(QueueType);

TEST_P(QueueType, TheFirstChoiceIsInternal) {
    ExpectChoice("1\n", CInstallBase::QueueInternal);
}

TEST_P(QueueType, TheSecondChoiceIsExternalAndAsksForTheScheduler) {
    ExpectChoice("2\n", CInstallBase::QueueExternal);
}

TEST_P(QueueType, WhatStandsAroundTheNumberDoesNotMatter) {
    for (const std::string line : {"  1  \n", "\t1\n", "+1\n", "01\n", "1abc\n", "1 2\n", "1.9\n"})
        ExpectChoice(line, CInstallBase::QueueInternal);
    ExpectChoice("2abc\n", CInstallBase::QueueExternal);
    ExpectChoice(std::string("1\0002\n", 4), CInstallBase::QueueInternal);
}

TEST_P(QueueType, TheNumberIsCutTo32Bits) {
    ExpectChoice("4294967297\n", CInstallBase::QueueInternal);
    ExpectChoice("-4294967295\n", CInstallBase::QueueInternal);
    ExpectChoice("4294967298\n", CInstallBase::QueueExternal);
}

TEST_P(QueueType, AnInvalidChoiceIsFollowedByAPauseAndTheMenu) {
    std::vector<Turn> turns = {{Separator}};
    for (const std::string line :
         {"\n", "0\n", "3\n", "-1\n", "0x2\n", "x1\n", "one\n", "2147483649\n", "4294967296\n",
          "9223372036854775809\n", "18446744073709551617\n"}) {
        turns.back().says += QueueMenu;
        turns.back().typed = line;
        turns.push_back({Invalid + Pause, "1\n"});
        turns.push_back({""});
    }
    turns.back() = {QueueMenu, "1\n"};
    turns.push_back({InternalSummary + Pause, "\n"});
    Ask(CInstallBase::QueueInternal, turns);
}

TEST_P(QueueType, TheRestOfALongLineIsLeftForTheNextRead) {
    const std::string blanks(1022, ' ');
    Ask(CInstallBase::QueueInternal,
        {{Separator + QueueMenu, blanks + "12\n"}, {InternalSummary + Pause}});
    // Here the scheduler's menu reads it.
    Ask(CInstallBase::QueueExternal, {{Separator + QueueMenu, blanks + "22\n"},
                                      {Separator + SchedulerMenu},
                                      {PartitionNameQuestion, "\n"},
                                      {CommandQuestion("sbatch", "/usr/bin/sbatch"), "\n"},
                                      {CommandQuestion("scancel", "/usr/bin/scancel"), "\n"},
                                      {ExternalSummary(UsualSlurm) + Pause, "\n"}});
}

TEST_P(QueueType, OffersNothingOfAnEarlierInstallation) {
    LastInstallation("MaxThreads: 8\nScratch: /data/scr\n");
    ExpectChoice("1\n", CInstallBase::QueueInternal);
}

TEST_P(QueueType, ReadsTheConsoleAlsoInARunWithoutQuestions) {
    Converse({{Separator + QueueMenu, "3\n"}, {Invalid + QueueMenu, "1\n"}, {InternalSummary}},
             [](CInstallBase& run) {
                 run.m_interactive = false;
                 run.PromptQueueType();
                 EXPECT_EQ(run.m_queueType, CInstallBase::QueueInternal);
             });
}

TEST_P(QueueType, AnOptionForTheInternalQueueLeavesTheSummary) {
    m_options = {"--internal-default-queue"};
    ExpectSummary(CInstallBase::QueueInternal, InternalSummary);
}

TEST_P(QueueType, AnOptionForTheExternalQueueGivesTorqueWithoutAQueueName) {
    m_options = {"--external-default-queue"};
    ExpectSummary(CInstallBase::QueueExternal, ExternalSummary(LocalTorque));
}

TEST_P(QueueType, AQueueNameOfTheCommandLineStandsInTheSummary) {
    m_options = {"--external-queue", "lång kö"};
    ExpectSummary(CInstallBase::QueueExternal,
                  ExternalSummary("    queue=\"lång kö\"\n" + LocalTorque));
    m_options = {"--external-queue", ""};
    ExpectSummary(CInstallBase::QueueExternal, ExternalSummary(LocalTorque));
}

TEST_P(QueueType, APartitionOfTheCommandLineStandsInTheSummary) {
    m_options = {"--external-partiton", "gpu"};
    ExpectSummary(CInstallBase::QueueExternal,
                  ExternalSummary("    partition=\"gpu\"\n" + UsualSlurm));
    m_options = {"--external-partiton", ""};
    ExpectSummary(CInstallBase::QueueExternal, ExternalSummary(UsualSlurm));
}

TEST_P(QueueType, ARunWithoutAQueueReportsItselfAsExternal) {
    m_options = {"--no-queue"};
    ExpectSummary(CInstallBase::QueueNone, ExternalSummary(LocalTorque));
}

TEST_P(QueueType, ARunWithoutQuestionsSaysTheSameWithoutThePause) {
    m_options = {"--cluster-node"};
    Ask(CInstallBase::QueueNone, {{ExternalSummary(LocalTorque)}});
}

TEST_P(QueueType, TheSummaryShowsTheFieldsAsTheyAre) {
    const auto body = [](CInstallBase& run) {
        run.m_queueType = 7;
        run.m_queueName = "%s";
        run.m_qsubCmd = "a b";
        run.m_qdelCmd = "";
        run.m_qsigCmd = "/données/qsig";
        run.PromptQueueType();
        EXPECT_EQ(run.m_queueType, 7);
    };
    Converse({{ExternalSummary("    queue=\"%s\"\n" + TorqueSettings("a b", "", "/données/qsig")) +
                   Pause,
               "\n"}},
             body);
}

TEST_P(QueueType, AnUnknownSchedulerHasNoSettingsToShow) {
    m_options = {"--external-default-queue"};
    for (const QString scheduler : {"", "torque", "Slurm", "SGE", "TORQUE "}) {
        SCOPED_TRACE(scheduler.toStdString());
        Converse({{ExternalSummary("") + Pause, "\n"}}, [=](CInstallBase& run) {
            run.m_scheduler = scheduler;
            run.PromptQueueType();
        });
    }
}

TEST_P(QueueType, AGraphicalSetupAsksTheSame) {
    m_options = {"--gui"};
    Converse({{Separator + QueueMenu, "1\n"}, {InternalSummary + Pause, "\n"}},
             [](CInstallBase& run) {
                 g_hx_gui_installer = 1;
                 run.PromptQueueType();
             });
}

TEST_P(QueueType, AClosedConsoleEndsTheRunAtTheMenu) {
    m_status = 2;
    m_error = "Corvane Install: Error\n    [^\n]*type of queue[^\n]*\n";
    Ask(0, {{Separator + QueueMenu, End}, {Invalid}});
    Ask(0, {{Separator + QueueMenu, "3" + End}, {Invalid}});
    Ask(0, {{Separator + QueueMenu, "3\n"}, {Invalid + Pause, End}, {QueueMenu + Invalid}});
}

TEST_P(QueueType, ALastChoiceNeedsNoLineEnd) {
    Ask(CInstallBase::QueueInternal,
        {{Separator + QueueMenu, "1" + End}, {InternalSummary + Pause}});
}

}  // namespace
}  // namespace hx_test
