// Questions and answers of a setup, on a terminal and on a pipe.
#include <gtest/gtest.h>

#include <csignal>

#include "apps/Leaks.h"
#include "apps/UserSetup.h"
#include "harness/Expect.h"
#include "harness/Terminal.h"

namespace {

using hx_test::ExpectHolds;
using hx_test::Terminal;

// Text to wait for, and the answer to type then; without an answer nothing is typed.
struct Step {
    const char* text;
    const char* answer;
};
using Dialog = std::vector<Step>;

const Dialog jobAndMemory = {{"Job thread limit [", "2"}, {"Memory usage limit per job [", "600"}};
const Dialog scratchLimit = {{"Scratch limit per job [", "3"}};

Dialog Join(std::initializer_list<Dialog> parts) {
    Dialog all;
    for (const Dialog& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

const Dialog limitQuestions = Join({jobAndMemory, {{"Scratch directory [", "/tmp"}}, scratchLimit});

const Dialog review = {{"Enter to continue: ", ""}};

class Conversation : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    Terminal Start(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"--setup", "--user-mode"});
        return {Terminal::Mode::Person,
                [this, arguments] { m_setup.Become(m_setup.Command(arguments)); }};
    }

    static void Converse(Terminal& terminal, const Dialog& dialog) {
        for (const auto& [text, answer] : dialog) {
            ASSERT_TRUE(terminal.WaitFor(text)) << text << "\n" << terminal.Output();
            if (answer != nullptr)
                terminal.Send(std::string(answer) + "\n");
        }
    }

    void ExpectNoCommit() {
        EXPECT_TRUE(m_setup.CommitScripts().empty());
        EXPECT_FALSE(m_setup.Has("corvanerc"));
        EXPECT_FALSE(m_setup.Has("QueueLimits"));
    }

    UserSetup m_setup;
};

TEST_F(Conversation, CancelsSetupAtEndOfInput) {
    const CheckedLeaks leaks;
    Dialog before;
    for (const Step& last : limitQuestions) {
        before.push_back(last);
        SCOPED_TRACE(before.size());
        Terminal terminal = Start({"--internal-default-queue"});
        before.back().answer = nullptr;
        Converse(terminal, before);
        terminal.Send("\x04");
        before.back() = last;
        EXPECT_TRUE(
            terminal.WaitFor("cv_install: setup canceled: end of input at a question\r\n"
                             "    No changes were made.\r\n"));
        EXPECT_EQ(terminal.Finish(), 7);
        EXPECT_TRUE(terminal.IsSane());
        EXPECT_FALSE(m_setup.Has("qchemrc"));
        ExpectNoCommit();
    }
}

TEST_F(Conversation, AsksWithQuiet) {
    Terminal terminal = Start({"--internal-default-queue", "--quiet"});
    Converse(terminal, Join({limitQuestions, review}));
    EXPECT_EQ(terminal.Finish(), 0);
    EXPECT_TRUE(
        terminal.Output().ends_with("Enter to continue: \r\n"
                                    "cv_install: set up \"/tmp/product\"\r\n"))
        << terminal.Output();
}

TEST_F(Conversation, EndsWhenInterruptedAtQuestion) {
    Terminal terminal = Start();
    ASSERT_TRUE(terminal.WaitFor("Job thread limit ["));
    terminal.Send("\x03");
    EXPECT_TRUE(
        terminal.WaitFor("\r\ncv_install: setup stopped by signal Interrupt\r\n"
                         "    No changes were made.\r\n"));
    EXPECT_EQ(terminal.Finish(), 128 + SIGINT);
    EXPECT_TRUE(terminal.IsSane());
    ExpectNoCommit();
}

TEST_F(Conversation, AsksAgainAfterInvalidOrUnsuitableAnswer) {
    Terminal terminal = Start();
    Converse(
        terminal,
        Join({jobAndMemory,
              {{"Scratch directory [/tmp]:", "/tmp/$HOME"},
               {"invalid scratch directory \"/tmp/$HOME\": ", nullptr},
               {"Scratch directory [/tmp]:", "/tmp/missing"},
               {"The scratch directory \"/tmp/missing\" cannot be accessed: No such file", nullptr},
               {"Choose another directory? [Y/n] ", ""},
               {"Scratch directory [/tmp]:", "~root/missing"},
               {"\"~root/missing\" is \"/root/missing\".", nullptr},
               {"Choose another directory? [Y/n] ", ""},
               {"Scratch directory [/tmp]:", "relative"},
               {"The scratch directory \"relative\" is not an absolute path", nullptr},
               {"Choose another directory? [Y/n] ", "nearly"},
               {"Please answer y or n.\r\nChoose another directory? [Y/n] ", " NO "}},
              scratchLimit,
              {{">", "2"},
               {">", "1"},
               {"[<default>]:", "a|b"},
               {"Location of qsub command [", "/bin/true"},
               {"Location of qdel command [", "/bin/true"},
               {"Location of qsig command [", "/bin/true"},
               {"invalid queue name \"a|b\": ", nullptr},
               {"Choose type of queue...", "1"}},
              review}));
    EXPECT_EQ(terminal.Finish(), 0);
    ExpectHolds(m_setup.File("QueueLimits"), "Scratch: relative\n");
    EXPECT_EQ(
        m_setup.RunProgram({m_setup.Inside("corvane26"), "--printenv", "CORV_QUEUE_TYPE"}).out,
        "INTERNAL\n");
}

TEST_F(Conversation, ChangesAnswersInReview) {
    const CheckedLeaks leaks;
    Terminal terminal = Start({"--internal-default-queue", "-m", "600"});
    const Dialog questions = {
        {"Job thread limit [", "2"}, {"Scratch directory [", "/tmp"}, {"Scratch limit per", ""}};
    Converse(terminal,
             Join({questions,
                   {{"  1  Job limit: 2 threads\r\n   2  Memory limit: 600 MB per thread\r\n"
                     "   3  Scratch directory: /tmp\r\n   4  Scratch limit: ",
                     nullptr},
                    {"   5  Queue: internal\r\n   6  Submission scripts: no\r\n"
                     "   7  Protocols: HTTP\r\n",
                     nullptr},
                    {"Number of the answer to change, q to quit, or Enter to continue: ", "99"},
                    {"Please enter a number from 1 to 9, or q.", nullptr},
                    {"Enter to continue: ", "1"},
                    {"Job limit: ", "0"},
                    {"invalid job limit \"0\": it is not valid here\r\n    Use a whole number from "
                     "1 to 2147483647 (threads), without a unit.\r\n",
                     nullptr},
                    {"Job limit: ", "1"},
                    {"   1  Job limit: 1 threads\r\n   2  Memory limit: 600 MB", nullptr},
                    {"Enter to continue: ", "6"},
                    {"Submission scripts? [y/N] ", "y"},
                    {"Enter to continue: ", "5"},
                    {">", "2"},
                    {">", "1"},
                    {"[<default>]:", "chem"},
                    {"Location of qsub command [", "/bin/true"},
                    {"Location of qdel command [", "/bin/true"},
                    {"Location of qsig command [", "/bin/true"},
                    {"   5  Queue: Torque/OpenPBS\r\n   6  Queue name: chem\r\n", nullptr}},
                   review}));
    EXPECT_EQ(terminal.Finish(), 0) << terminal.Output();
    ExpectHolds(m_setup.File("QueueLimits"), "MaxThreads: 1\n");
    EXPECT_TRUE(m_setup.Has("corvane26_samba"));
}

TEST_F(Conversation, EndsWhenReviewIsQuit) {
    Terminal terminal = Start({"--internal-default-queue"});
    Converse(terminal, Join({limitQuestions, {{"Enter to continue: ", "q"}}}));
    EXPECT_TRUE(
        terminal.WaitFor("cv_install: setup canceled: answers not confirmed\r\n"
                         "    No changes were made.\r\n"));
    EXPECT_EQ(terminal.Finish(), 9);
    ExpectNoCommit();
}

TEST_F(Conversation, AsksWhetherToKeepChosenAnswers) {
    ASSERT_EQ(
        m_setup.Run({"--setup", "--user-mode", "--yes", "--job-limit=3", "-p", "chem"}).status, 0);
    Terminal terminal = Start({"-m", "600", "-s", "3", "-d", "/tmp"});
    Converse(terminal,
             Join({{{"Keep the job limit of the previous setup (3 threads)? [Y/n] ", "n"},
                    {"Job thread limit [", "2"},
                    {"Keep the queue of the previous setup (Slurm, partition chem)? [Y/n] ", ""}},
                   review}));
    EXPECT_EQ(terminal.Finish(), 0);
    ExpectHolds(m_setup.File("QueueLimits"), "MaxThreads: 2\n");
    EXPECT_EQ(
        m_setup.RunProgram({m_setup.Inside("corvane26"), "--printenv", "CORV_PARTITION_NAME"}).out,
        "chem\n");
}

TEST_F(Conversation, StopsAtInvalidAnswerWithoutTerminal) {
    const auto result = m_setup.Run({"--setup", "--user-mode"}, "2\n600\n/tmp/$HOME\n3\n1\n");
    EXPECT_EQ(result.status, 4);
    EXPECT_TRUE(result.err.starts_with("cv_install: invalid scratch directory \"/tmp/$HOME\": "));
    ExpectNoCommit();
}

TEST_F(Conversation, WarnsOfUnsuitableDirectoryWithoutTerminal) {
    std::filesystem::create_directory(m_setup.Root() + "/closed");
    std::filesystem::permissions(m_setup.Root() + "/closed", std::filesystem::perms::owner_read);
    hx_test::WriteFile(m_setup.Root() + "/file", "");
    const std::pair<const char*, const char*> cases[] = {{"/tmp/missing", "cannot be accessed"},
                                                         {"/tmp/file", "is not a directory"},
                                                         {"/tmp/closed", "is not writable"},
                                                         {"scratch", "is not an absolute path"},
                                                         {"~root", "is not an absolute path"}};
    for (const auto& [directory, problem] : cases) {
        // The option also replaces the directory of the previous setup.
        const auto result = m_setup.Run({"--setup", "--user-mode", "--yes", "-d", directory});
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.err.starts_with(std::string("Corvane Install: Warning\n    The scratch "
                                                       "directory \"") +
                                           directory + "\" " + problem))
            << result.err;
        ExpectHolds(m_setup.File("QueueLimits"), std::string("\nScratch: ") + directory + "\n");
    }
}

}  // namespace
