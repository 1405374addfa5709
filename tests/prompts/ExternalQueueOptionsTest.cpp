// The questions for the external scheduler and its commands.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

// The settings of a run, one a line.
std::string SettingsOf(const CInstallBase& run) {
    const QStringList settings = {run.m_scheduler, run.m_queueName, run.m_qsubCmd,
                                  run.m_qdelCmd,   run.m_qsigCmd,   run.m_partitionName,
                                  run.m_sbatchCmd, run.m_scancelCmd};
    return settings.join('\n').toStdString();
}

class ExternalQueueOptions : public PromptTest {
protected:
    ExternalQueueOptions() : m_opt(Replace("/opt")) {}

    void SetUp() override {
        PromptTest::SetUp();
        if (!std::filesystem::exists("/opt"))
            GTEST_SKIP() << "/opt is needed to stand another directory in its place";
    }

    void InstallOpenPbs() const {
        std::filesystem::create_directories(m_opt + "/pbs/bin");
        WriteFile(m_opt + "/pbs/bin/qsub", "");
    }

    void Ask(const std::string& expectedSettings, const std::vector<Turn>& turns) {
        Converse(turns, [=](CInstallBase& run) {
            run.PromptExternalQueueOptions();
            EXPECT_EQ(SettingsOf(run), expectedSettings);
            EXPECT_EQ(run.m_queueType, CInstallBase::QueueUnset);
        });
    }

    // Torque with these answers for qsub, qdel and qsig, and what the last two are offered as.
    void AskTorque(const std::vector<std::string>& typed, const std::vector<std::string>& offered,
                   const std::vector<std::string>& expected) {
        Ask("TORQUE\n\n" + expected[0] + "\n" + expected[1] + "\n" + expected[2] +
                "\n\n/usr/bin/sbatch\n/usr/bin/scancel",
            {{Separator + SchedulerMenu, "1\n"},
             {QueueNameQuestion, "\n"},
             {CommandQuestion("qsub", "/usr/local/bin/qsub"), typed[0]},
             {CommandQuestion("qdel", offered[0]), typed[1]},
             {CommandQuestion("qsig", offered[1]), typed[2]}});
    }

    void AskSlurm(const std::vector<std::string>& typed, const std::string& offered,
                  const std::vector<std::string>& expected) {
        Ask(std::string("SLURM\n\n") +
                "/usr/local/bin/qsub\n/usr/local/bin/qdel\n/usr/local/bin/qsig\n\n" + expected[0] +
                "\n" + expected[1],
            {{Separator + SchedulerMenu, "2\n"},
             {PartitionNameQuestion, "\n"},
             {CommandQuestion("sbatch", "/usr/bin/sbatch"), typed[0]},
             {CommandQuestion("scancel", offered), typed[1]}});
    }

    std::string m_opt;  // stands in the place of /opt
};
HX_OVER_BOTH_CONSOLES(ExternalQueueOptions);

TEST_P(ExternalQueueOptions, EnterTakesOpenPbsWhereItIsInstalled) {
    InstallOpenPbs();
    const std::string settings =
        TorqueSettings("/opt/pbs/bin/qsub", "/opt/pbs/bin/qdel", "/opt/pbs/bin/qsig");
    Converse({{Separator + QueueMenu, "2\n"},
              {Separator + SchedulerMenu, "1\n"},
              {QueueNameQuestion, "\n"},
              {CommandQuestion("qsub", "/opt/pbs/bin/qsub"), "\n"},
              {CommandQuestion("qdel", "/opt/pbs/bin/qdel"), "\n"},
              {CommandQuestion("qsig", "/opt/pbs/bin/qsig"), "\n"},
              {ExternalSummary(settings) + Pause, "\n"}},
             [](CInstallBase& run) {
                 run.PromptQueueType();
                 EXPECT_EQ(run.m_queueType, CInstallBase::QueueExternal);
                 EXPECT_EQ(SettingsOf(run),
                           "TORQUE\n\n/opt/pbs/bin/qsub\n/opt/pbs/bin/qdel\n/opt/pbs/bin/qsig\n\n"
                           "/usr/bin/sbatch\n/usr/bin/scancel");
             });
}

TEST_P(ExternalQueueOptions, EnterTakesTheLocalCommandsElsewhere) {
    AskTorque({"\n", "\n", "\n"}, {"/usr/local/bin/qdel", "/usr/local/bin/qsig"},
              {"/usr/local/bin/qsub", "/usr/local/bin/qdel", "/usr/local/bin/qsig"});
}

TEST_P(ExternalQueueOptions, TheOtherCommandsAreLookedForBesideTheSubmitCommand) {
    AskTorque({"/srv/torque/bin/qsub\n", "\n", "\n"},
              {"/srv/torque/bin/qdel", "/srv/torque/bin/qsig"},
              {"/srv/torque/bin/qsub", "/srv/torque/bin/qdel", "/srv/torque/bin/qsig"});
    AskTorque({"/qsub\n", "\n", "\n"}, {"/qdel", "/qsig"}, {"/qsub", "/qdel", "/qsig"});
}

TEST_P(ExternalQueueOptions, ASubmitCommandWithoutADirectoryHasCompanionsWithoutOne) {
    AskTorque({"qsub\n", "\n", "\n"}, {"qdel", "qsig"}, {"qsub", "qdel", "qsig"});
}

TEST_P(ExternalQueueOptions, ThePathIsNotLookedAt) {
    AskTorque({"/srv/pbs/\n", "\n", "\n"}, {"/srv/pbs/qdel", "/srv/pbs/qsig"},
              {"/srv/pbs/", "/srv/pbs/qdel", "/srv/pbs/qsig"});
}

TEST_P(ExternalQueueOptions, TypedCompanionsStand) {
    AskTorque({" /a b/qsub \n", "/other/qdel\n", "qsig -s\n"}, {"/a b/qdel", "/a b/qsig"},
              {"/a b/qsub", "/other/qdel", "qsig -s"});
    AskSlurm({"sbatch\n", "/données/scancel\n"}, "scancel", {"sbatch", "/données/scancel"});
}

TEST_P(ExternalQueueOptions, SlurmCommandsFollowTheSubmitCommandToo) {
    AskSlurm({"\n", "\n"}, "/usr/bin/scancel", {"/usr/bin/sbatch", "/usr/bin/scancel"});
    AskSlurm({"/srv/slurm/sbatch\n", "\n"}, "/srv/slurm/scancel",
             {"/srv/slurm/sbatch", "/srv/slurm/scancel"});
    AskSlurm({"/srv/slurm/\n", "\n"}, "/srv/slurm/scancel", {"/srv/slurm/", "/srv/slurm/scancel"});
}

TEST_P(ExternalQueueOptions, APartitionStandsInTheSummary) {
    const std::string settings =
        "    partition=\"gpu\"\n" + SlurmSettings("/usr/bin/sbatch", "/usr/bin/scancel");
    Converse({{Separator + QueueMenu, "2\n"},
              {Separator + SchedulerMenu, "2\n"},
              {PartitionNameQuestion, "gpu\n"},
              {CommandQuestion("sbatch", "/usr/bin/sbatch"), "\n"},
              {CommandQuestion("scancel", "/usr/bin/scancel"), "\n"},
              {ExternalSummary(settings) + Pause, "\n"}},
             [](CInstallBase& run) {
                 run.PromptQueueType();
                 EXPECT_EQ(SettingsOf(run),
                           "SLURM\n\n/usr/local/bin/qsub\n/usr/local/bin/qdel\n"
                           "/usr/local/bin/qsig\ngpu\n/usr/bin/sbatch\n/usr/bin/scancel");
             });
}

TEST_P(ExternalQueueOptions, AQueueNameStandsInTheSummary) {
    const std::string settings =
        "    queue=\"lång kö\"\n" +
        TorqueSettings("/usr/local/bin/qsub", "/usr/local/bin/qdel", "/usr/local/bin/qsig");
    Converse({{Separator + QueueMenu, "2\n"},
              {Separator + SchedulerMenu, "1\n"},
              {QueueNameQuestion, " lång kö\n"},
              {CommandQuestion("qsub", "/usr/local/bin/qsub"), "\n"},
              {CommandQuestion("qdel", "/usr/local/bin/qdel"), "\n"},
              {CommandQuestion("qsig", "/usr/local/bin/qsig"), "\n"},
              {ExternalSummary(settings) + Pause, "\n"}},
             [](CInstallBase& run) {
                 run.PromptQueueType();
                 EXPECT_EQ(run.m_queueName.toStdString(), "lång kö");
             });
}

TEST_P(ExternalQueueOptions, WhatTheFieldsHeldBeforeIsDroppedButTheSubmitCommand) {
    const auto torque = [](CInstallBase& run) {
        run.m_queueName = "old";
        run.m_partitionName = "kept";
        run.m_qsubCmd = "/x/qsub";
        run.m_qdelCmd = "/y/qdel";
        run.m_qsigCmd = "/z/qsig";
        run.PromptExternalQueueOptions();
        EXPECT_EQ(SettingsOf(run),
                  "TORQUE\n\n/x/qsub\n/x/qdel\n/x/qsig\nkept\n/usr/bin/sbatch\n/usr/bin/scancel");
    };
    Converse({{Separator + SchedulerMenu, "1\n"},
              {QueueNameQuestion, "\n"},
              {CommandQuestion("qsub", "/x/qsub"), "\n"},
              {CommandQuestion("qdel", "/x/qdel"), "\n"},
              {CommandQuestion("qsig", "/x/qsig"), "\n"}},
             torque);
    const auto slurm = [](CInstallBase& run) {
        run.m_queueName = "kept";
        run.m_partitionName = "old";
        run.m_sbatchCmd = "/x/sbatch";
        run.m_scancelCmd = "/y/scancel";
        run.PromptExternalQueueOptions();
        EXPECT_EQ(SettingsOf(run),
                  "SLURM\nkept\n/usr/local/bin/qsub\n/usr/local/bin/qdel\n/usr/local/bin/qsig\n\n"
                  "/x/sbatch\n/x/scancel");
    };
    Converse({{Separator + SchedulerMenu, "2\n"},
              {PartitionNameQuestion, "\n"},
              {CommandQuestion("sbatch", "/x/sbatch"), "\n"},
              {CommandQuestion("scancel", "/x/scancel"), "\n"}},
             slurm);
}

TEST_P(ExternalQueueOptions, AnInvalidChoiceIsFollowedByAPauseAndTheMenu) {
    std::vector<Turn> turns = {{Separator}};
    for (const std::string line : {"\n", "0\n", "3\n", "0x2\n", "SLURM\n"}) {
        turns.back().says += SchedulerMenu;
        turns.back().typed = line;
        turns.push_back({Invalid + Pause, "2\n"});
        turns.push_back({""});
    }
    turns.back() = {SchedulerMenu, " 4294967298nd\n"};
    turns.push_back({PartitionNameQuestion, "\n"});
    turns.push_back({CommandQuestion("sbatch", "/usr/bin/sbatch"), "\n"});
    turns.push_back({CommandQuestion("scancel", "/usr/bin/scancel"), "\n"});
    Converse(turns, [](CInstallBase& run) {
        run.PromptExternalQueueOptions();
        EXPECT_EQ(run.m_scheduler, "SLURM");
    });
}

TEST_P(ExternalQueueOptions, ReadsTheConsoleAlsoInARunWithoutQuestions) {
    m_options = {"--cluster-node"};
    Converse({{Separator + SchedulerMenu, "x\n"},
              {Invalid + SchedulerMenu, "2\n"},
              {PartitionNameQuestion, "gpu\n"},
              {CommandQuestion("sbatch", "/usr/bin/sbatch"), "\n"},
              {CommandQuestion("scancel", "/usr/bin/scancel"), "/x/scancel\n"}},
             [](CInstallBase& run) {
                 run.PromptExternalQueueOptions();
                 EXPECT_EQ(run.m_partitionName, "gpu");
                 EXPECT_EQ(run.m_scancelCmd, "/x/scancel");
             });
}

TEST_P(ExternalQueueOptions, TheRestOfALongLineAnswersTheNextQuestion) {
    const std::string queue(1023, 'q');
    Ask("TORQUE\n" + queue + "\nrest\nqdel\nqsig\n\n/usr/bin/sbatch\n/usr/bin/scancel",
        {{Separator + SchedulerMenu, "1\n"},
         {QueueNameQuestion, queue + "rest\n"},
         {CommandQuestion("qsub", "/usr/local/bin/qsub")},
         {CommandQuestion("qdel", "qdel"), std::string("\0x\n", 3)},
         {CommandQuestion("qsig", "qsig"), "\n"}});
}

TEST_P(ExternalQueueOptions, AClosedConsoleEndsTheRunAtTheMenu) {
    m_status = 2;
    m_error = "Corvane Install: Error\n    [^\n]*scheduler[^\n]*\n";
    Ask("", {{Separator + SchedulerMenu, End}, {Invalid}});
    Ask("", {{Separator + SchedulerMenu, "0x2" + End}, {Invalid}});
}

TEST_P(ExternalQueueOptions, AConsoleThatClosesBehindTheChoiceKeepsWhatIsOffered) {
    Ask("TORQUE\nbatch\n/usr/local/bin/qsub\n/usr/local/bin/qdel\n/usr/local/bin/qsig\n\n"
        "/usr/bin/sbatch\n/usr/bin/scancel",
        {{Separator + SchedulerMenu, "1\n"},
         {QueueNameQuestion, "batch" + End},
         {CommandQuestion("qsub", "/usr/local/bin/qsub") +
          CommandQuestion("qdel", "/usr/local/bin/qdel") +
          CommandQuestion("qsig", "/usr/local/bin/qsig")}});
    Ask("SLURM\n\n/usr/local/bin/qsub\n/usr/local/bin/qdel\n/usr/local/bin/qsig\n\n"
        "/usr/bin/sbatch\n/usr/bin/scancel",
        {{Separator + SchedulerMenu, "2" + End},
         {PartitionNameQuestion + CommandQuestion("sbatch", "/usr/bin/sbatch") +
          CommandQuestion("scancel", "/usr/bin/scancel")}});
}

}  // namespace
}  // namespace hx_test
