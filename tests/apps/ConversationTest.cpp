// Setups on a terminal, as a person goes through them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "apps/UserSetup.h"
#include "harness/Terminal.h"

namespace {

using hx_test::Terminal;

class Conversation : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    Terminal Start(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"--setup", "--user-mode"});
        return Terminal(Terminal::Mode::Person,
                        [this, arguments] { m_setup.Become(m_setup.Command(arguments)); });
    }

    // Waits for the question and answers it.
    static void Answer(Terminal& terminal, const std::string& question, const std::string& answer) {
        ASSERT_TRUE(terminal.WaitFor(question)) << question << "\n" << terminal.Output();
        terminal.Send(answer + "\n");
    }

    static void Pause(Terminal& terminal) {
        Answer(terminal, "[Press \"Enter\" key to continue]", "");
    }

    // After the last question, and then after each report of the Q-Chem files.
    static void PauseToTheCommit(Terminal& terminal) {
        Pause(terminal);
        for (const char* report : {"  Scratch limit per job: ", "  Memory limit per job: ",
                                   "  Scratch storage directory: "}) {
            ASSERT_TRUE(terminal.WaitFor(report)) << terminal.Output();
            Pause(terminal);
        }
    }

    // From the first question to the queue's.
    static void AnswerLimits(Terminal& terminal, const std::string& jobs, const std::string& memory,
                             const std::string& directory, const std::string& scratch) {
        Answer(terminal, "Job thread limit [", jobs);
        Answer(terminal, "Memory usage limit per job [", memory);
        Pause(terminal);
        Answer(terminal, "Scratch directory [", directory);
        Pause(terminal);
        Answer(terminal, "Scratch limit per job [", scratch);
        Pause(terminal);
    }

    void ExpectNothingChanged() {
        EXPECT_TRUE(m_setup.CommitScripts().empty());
        EXPECT_FALSE(m_setup.Has("corvanerc"));
        EXPECT_FALSE(m_setup.Has("qchemrc"));
        EXPECT_FALSE(m_setup.Has("QueueLimits"));
    }

    std::string Variable(const std::string& name) {
        return m_setup.RunProgram({m_setup.Inside("corvane26"), "--printenv", name}).out;
    }

    UserSetup m_setup;
};

TEST_F(Conversation, SlurmWithAPartitionReachesTheRunScript) {
    Terminal terminal = Start();
    AnswerLimits(terminal, "2", "600", "/tmp", "3");
    Answer(terminal, ">", "2");
    Answer(terminal, ">", "2");
    Answer(terminal, "Partition to which CORVANE jobs will be submitted [<default>]:", "gpu");
    Answer(terminal, "Location of sbatch command [/usr/bin/sbatch]:", "/opt/slurm/bin/sbatch");
    Answer(terminal, "Location of scancel command [/opt/slurm/bin/scancel]:", "");
    ASSERT_TRUE(
        terminal.WaitFor("    partition=\"gpu\"\r\n"
                         "    sbatch command=\"/opt/slurm/bin/sbatch\"\r\n"
                         "    scancel command=\"/opt/slurm/bin/scancel\"\r\n"));
    PauseToTheCommit(terminal);
    ASSERT_EQ(terminal.Finish(), 0) << terminal.Output();
    EXPECT_EQ(Variable("CORV_PARTITION_NAME"), "gpu\n");
    EXPECT_EQ(Variable("CORV_SCHEDULER"), "SLURM\n");
    EXPECT_EQ(Variable("CORV_SBATCH_CMD"), "/opt/slurm/bin/sbatch\n");
    EXPECT_EQ(Variable("CORV_SCANCEL_CMD"), "/opt/slurm/bin/scancel\n");
}

TEST_F(Conversation, EnterAloneKeepsEveryAnswerOfTheLastSetup) {
    hx_test::WriteFile(m_setup.Outside("QueueLimits"),
                       "MaxThreads: 2\nMemoryPerThreadMB: 611\nScratch: /usr/../tmp\n"
                       "DiskPerThreadGB: 17\nThreadsPerMolecule: 2\n");
    Terminal terminal = Start();
    AnswerLimits(terminal, "2", "", "", "");
    Answer(terminal, ">", "1");
    PauseToTheCommit(terminal);
    ASSERT_EQ(terminal.Finish(), 0) << terminal.Output();
    EXPECT_EQ(m_setup.File("QueueLimits"),
              "MaxThreads: 2\nMemoryPerThreadMB: 611\nScratch: /usr/../tmp\nDiskPerThreadGB: 17\n"
              "ThreadsPerMolecule: 2\n");
}

TEST_F(Conversation, TorqueWithAndWithoutAQueueName) {
    for (const std::string name : {"batch", ""}) {
        Terminal terminal = Start();
        AnswerLimits(terminal, "2", "600", "/tmp", "3");
        Answer(terminal, ">", "2");
        Answer(terminal, ">", "1");
        Answer(terminal, "Queue to which CORVANE jobs will be submitted [<default>]:", name);
        for (const char* command : {"qsub", "qdel", "qsig"})
            Answer(terminal, std::string("Location of ") + command + " command [", "");
        PauseToTheCommit(terminal);
        ASSERT_EQ(terminal.Finish(), 0) << terminal.Output();
        EXPECT_EQ(Variable("CORV_QUEUE_TYPE"), "EXTERNAL\n");
        EXPECT_EQ(Variable("CORV_SCHEDULER"), "TORQUE\n");
        EXPECT_EQ(Variable("CORV_QUEUE_NAME"), name + "\n");
    }
}

TEST_F(Conversation, TheBuiltInQueueAndNoQueue) {
    Terminal terminal = Start();
    AnswerLimits(terminal, "2", "600", "/tmp", "3");
    Answer(terminal, ">", "1");
    PauseToTheCommit(terminal);
    ASSERT_EQ(terminal.Finish(), 0);
    EXPECT_EQ(Variable("CORV_QUEUE_TYPE"), "INTERNAL\n");

    Terminal second = Start({"--no-queue"});
    AnswerLimits(second, "2", "", "", "");
    PauseToTheCommit(second);
    ASSERT_EQ(second.Finish(), 0);
    EXPECT_EQ(Variable("CORV_QUEUE_TYPE"), "NONE\n");
}

TEST_F(Conversation, AClosedConsoleEndsTheSetupAtEveryQuestion) {
    const std::vector<std::pair<std::string, std::string>> questions = {
        {"Job thread limit [", "2\n"},
        {"Memory usage limit per job [", "600\n"},
        {"[Press ", "\n"},
        {"Scratch directory [", "\n"},
        {"[Press ", "\n"},
        {"Scratch limit per job [", "3\n"},
        {"[Press ", "\n"}};
    for (size_t last = 0; last < questions.size(); ++last) {
        Terminal terminal = Start();
        for (size_t i = 0; i <= last; ++i) {
            ASSERT_TRUE(terminal.WaitFor(questions[i].first)) << terminal.Output();
            terminal.Send(i == last ? "\x04" : questions[i].second);
        }
        EXPECT_TRUE(terminal.WaitFor("setup canceled: end of input at a question"));
        EXPECT_EQ(terminal.Finish(), 7);
        EXPECT_TRUE(terminal.IsSane());
        ExpectNothingChanged();
    }
}

TEST_F(Conversation, AClosedConsoleAtTheQueueMenuEndsTheSetup) {
    Terminal terminal = Start();
    AnswerLimits(terminal, "2", "600", "/tmp", "3");
    ASSERT_TRUE(terminal.WaitFor(">"));
    terminal.Send("\x04");
    EXPECT_TRUE(terminal.WaitFor("type of queue"));
    EXPECT_EQ(terminal.Finish(), 2);
    EXPECT_TRUE(terminal.IsSane());
    ExpectNothingChanged();
}

TEST_F(Conversation, CtrlCAtAQuestionEndsTheSetup) {
    Terminal terminal = Start();
    ASSERT_TRUE(terminal.WaitFor("Job thread limit ["));
    terminal.Send("\x03");
    EXPECT_EQ(terminal.Finish(), 128 + SIGINT);
    EXPECT_TRUE(terminal.IsSane());
    ExpectNothingChanged();
}

TEST_F(Conversation, AFailedMeasurementEndsTheSetup) {
    hx_test::WriteFile(m_setup.Root() + "/meminfo", "MemFree: 1 kB\n");
    m_setup.Bind(m_setup.Root() + "/meminfo", "/proc/meminfo");
    const std::string noPages = "HX_TEST_SYSCONF=" + std::to_string(_SC_PHYS_PAGES) + "=0";
    Terminal terminal(Terminal::Mode::Person, [&] {
        m_setup.Become(m_setup.Command({noPages}, {"--setup", "--user-mode"}));
    });
    EXPECT_TRUE(terminal.WaitFor("Unable to determine amount of memory.  Aborting"));
    EXPECT_EQ(terminal.Finish(), 2);
    EXPECT_TRUE(terminal.IsSane());
    ExpectNothingChanged();
}

TEST_F(Conversation, ARefusedAnswerIsAskedAgain) {
    Terminal terminal = Start();
    Answer(terminal, "Job thread limit [", "2");
    Answer(terminal, "Memory usage limit per job [", "600");
    Pause(terminal);
    Answer(terminal, "Scratch directory [/tmp]:", "/tmp/$HOME");
    Pause(terminal);
    ASSERT_TRUE(terminal.WaitFor("invalid scratch directory \"/tmp/$HOME\": "));
    Answer(terminal, "Scratch directory [/tmp]:", "");
    Pause(terminal);
    Answer(terminal, "Scratch limit per job [", "3");
    Pause(terminal);
    Answer(terminal, ">", "2");
    Answer(terminal, ">", "1");
    Answer(terminal, "[<default>]:", "a|b");
    for (const char* command : {"qsub", "qdel", "qsig"})
        Answer(terminal, std::string("Location of ") + command + " command [", "");
    Pause(terminal);
    ASSERT_TRUE(terminal.WaitFor("invalid queue name \"a|b\": "));
    Answer(terminal, "Choose type of queue...", "1");
    PauseToTheCommit(terminal);
    EXPECT_EQ(terminal.Finish(), 0);
    EXPECT_EQ(Variable("CORV_QUEUE_TYPE"), "INTERNAL\n");
}

TEST_F(Conversation, ARefusedAnswerOnAPipeEndsTheSetup) {
    const auto result =
        m_setup.Run({"--setup", "--user-mode"}, "2\n600\n\n/tmp/$HOME\n\n3\n\n1\n\n");
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.err,
              "cv_install: invalid scratch directory \"/tmp/$HOME\": it contains \"$\"\n"
              "    Specify another directory with --scratch-directory, or correct \"Scratch\" in "
              "QueueLimits if it is from a previous setup.\n"
              "    No changes were made.\n");
    ExpectNothingChanged();
}

TEST_F(Conversation, AnUnsuitableScratchDirectoryCanBeTakenBack) {
    Terminal terminal = Start();
    Answer(terminal, "Job thread limit [", "2");
    Answer(terminal, "Memory usage limit per job [", "600");
    Pause(terminal);
    Answer(terminal, "Scratch directory [/tmp]:", "/tmp/missing");
    Pause(terminal);
    ASSERT_TRUE(terminal.WaitFor(
        "The scratch directory \"/tmp/missing\" cannot be accessed: No such file or directory"));
    Answer(terminal, "Choose another directory? [Y/n] ", "");
    Answer(terminal, "Scratch directory [/tmp]:", "relative");
    Pause(terminal);
    ASSERT_TRUE(terminal.WaitFor("The scratch directory \"relative\" is not an absolute path"));
    Answer(terminal, "Choose another directory? [Y/n] ", "n");
    Answer(terminal, "Scratch limit per job [", "3");
    Pause(terminal);
    Answer(terminal, ">", "1");
    PauseToTheCommit(terminal);
    EXPECT_EQ(terminal.Finish(), 0);
    EXPECT_NE(m_setup.File("QueueLimits").find("Scratch: relative\n"), std::string::npos);
}

TEST_F(Conversation, WithoutATerminalAnUnsuitableDirectoryIsAWarning) {
    std::filesystem::create_directory(m_setup.Root() + "/closed");
    std::filesystem::permissions(m_setup.Root() + "/closed", std::filesystem::perms::owner_read);
    hx_test::WriteFile(m_setup.Root() + "/file", "");
    const std::pair<const char*, const char*> cases[] = {{"/tmp/missing", "cannot be accessed"},
                                                         {"/tmp/file", "is not a directory"},
                                                         {"/tmp/closed", "is not writable"},
                                                         {"scratch", "is not an absolute path"}};
    for (const auto& [directory, problem] : cases) {
        std::filesystem::remove(m_setup.Outside("QueueLimits"));
        const auto result = m_setup.Run({"--setup", "--user-mode", "--yes", "-d", directory});
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.err.starts_with(std::string("Corvane Install: Warning\n    The scratch "
                                                       "directory \"") +
                                           directory + "\" " + problem))
            << result.err;
    }
}

}  // namespace
