// How cv_install follows the commit script, and what it says when that does not end well.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "apps/UserSetup.h"
#include "harness/Terminal.h"

namespace {

using hx_test::Terminal;

// An orphan is a zombie until its new parent looks.
bool EndsSoon(int pid) {
    for (int i = 0; i < 100; ++i) {
        const std::string stat = hx_test::ReadFile("/proc/" + std::to_string(pid) + "/stat");
        if (stat.empty() || stat.find(") Z ") != std::string::npos)
            return true;
        usleep(50000);
    }
    return false;
}

class ScriptRun : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Bash runs these lines before the first one of the commit script.
    void BeforeTheScript(const std::string& lines) {
        hx_test::WriteFile(m_setup.Root() + "/before", lines);
    }

    std::vector<std::string> CommandWithLines() const {
        return m_setup.Command({"BASH_ENV=/tmp/before", "CORV_QUEUE_ALLOW=everyone"}, m_yes);
    }

    // Lines that wait, as the script's own foreground command, until a signal comes.
    void HoldTheScript() {
        BeforeTheScript("sh -c 'echo $$ > /tmp/pid; echo held; exec sleep 61'\n");
    }

    void ExpectHeldCommandIsGone() {
        const int pid = std::atoi(hx_test::ReadFile(m_setup.Root() + "/pid").c_str());
        ASSERT_GT(pid, 0);
        EXPECT_TRUE(EndsSoon(pid));
    }

    UserSetup m_setup;
    const std::vector<std::string> m_yes = {"--setup", "--user-mode", "--yes"};
};

TEST_F(ScriptRun, AScriptThatCannotBeWrittenHasItsOwnStatus) {
    const auto result = m_setup.RunProgram(m_setup.Command({"HX_TEST_FAIL=mkstemp=28"}, m_yes));
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.err,
              "Writing Commit Script: mkstemp failed, No space left on device\n"
              "cv_install: cannot write the commit script\n"
              "    Make sure that /tmp is writable and not full, then run the setup again.\n"
              "    At most, Q-Chem files and submission scripts were changed.\n");
    EXPECT_TRUE(m_setup.CommitScripts().empty());
    EXPECT_FALSE(m_setup.Has("corvanerc"));
}

TEST_F(ScriptRun, AScriptThatIsCutShortIsNotRun) {
    for (const char* kilobytes : {"4", "8"}) {
        std::vector<std::string> command = {"/bin/bash", "-c",
                                            std::string("(trap '' XFSZ; ulimit -f ") + kilobytes +
                                                "; exec \"$@\") 2>&1 | cat; exit ${PIPESTATUS[0]}",
                                            "bash"};
        for (const std::string& word : m_setup.Command(m_yes))
            command.push_back(word);
        const auto result = m_setup.RunProgram(command);
        EXPECT_EQ(result.status, 5);
        EXPECT_NE(result.out.find("cannot write the commit script"), std::string::npos)
            << result.out;
        EXPECT_TRUE(m_setup.CommitScripts().empty());
        EXPECT_FALSE(m_setup.Has("corvanerc"));
    }
}

TEST_F(ScriptRun, AScriptThatCannotBeStartedHasItsOwnStatus) {
    hx_test::WriteFile(m_setup.Root() + "/no_bash", "");
    m_setup.Bind(m_setup.Root() + "/no_bash", std::filesystem::canonical("/bin/bash").string());
    const auto result = m_setup.Run(m_yes);
    EXPECT_EQ(result.status, 6);
    EXPECT_NE(result.err.find("cannot start the commit script: "), std::string::npos);
    EXPECT_NE(result.err.find("At most, Q-Chem files and submission scripts were changed."),
              std::string::npos);
    EXPECT_NE(result.err.find("Make sure that /bin/bash is executable"), std::string::npos);
}

TEST_F(ScriptRun, ValuesOfAnOlderRunScriptDoNotLeakIntoTheNewOne) {
    BeforeTheScript("env | grep ^CORV_ | sort > /tmp/environment\n");
    ASSERT_EQ(m_setup.RunProgram(CommandWithLines()).status, 0);
    EXPECT_EQ(hx_test::ReadFile(m_setup.Root() + "/environment"),
              "CORV_ACCESS=/tmp/product\nCORV_CORVANERC=/tmp/product\nCORV_INSTALL=/tmp/product\n");
    EXPECT_EQ(m_setup.File("corvane26").find("everyone"), std::string::npos);
}

TEST_F(ScriptRun, OutputIsShownAsItComes) {
    BeforeTheScript("echo first; until [ -e /tmp/go ]; do sleep 0.05; done\n");
    Terminal terminal(Terminal::Mode::Person, [&] { m_setup.Become(CommandWithLines()); });
    ASSERT_TRUE(terminal.WaitFor("first")) << terminal.Output();
    hx_test::WriteFile(m_setup.Root() + "/go", "");
    EXPECT_TRUE(terminal.WaitFor("completed successfully!"));
    EXPECT_EQ(terminal.Finish(), 0);
}

TEST_F(ScriptRun, TheScriptReadsNothingOfTheConsole) {
    BeforeTheScript("cat > /tmp/taken\n");
    Terminal terminal(Terminal::Mode::Person, [&] { m_setup.Become(CommandWithLines()); });
    EXPECT_EQ(terminal.Finish(), 0);
    EXPECT_EQ(hx_test::ReadFile(m_setup.Root() + "/taken"), "");
}

TEST_F(ScriptRun, CtrlCIsPassedOnAndReported) {
    HoldTheScript();
    Terminal terminal(Terminal::Mode::Person, [&] { m_setup.Become(CommandWithLines()); });
    ASSERT_TRUE(terminal.WaitFor("held"));
    terminal.Send("\x03");
    EXPECT_TRUE(terminal.WaitFor("was terminated by signal Interrupt")) << terminal.Output();
    EXPECT_EQ(terminal.Finish(), 128 + SIGINT);
    EXPECT_TRUE(terminal.IsSane());
    ExpectHeldCommandIsGone();
}

TEST_F(ScriptRun, ATerminateSignalIsPassedOnAndReported) {
    HoldTheScript();
    Terminal terminal(Terminal::Mode::Person, [&] { m_setup.Become(CommandWithLines()); });
    ASSERT_TRUE(terminal.WaitFor("held"));
    kill(terminal.Pid(), SIGTERM);
    EXPECT_TRUE(terminal.WaitFor("was terminated by signal Terminated")) << terminal.Output();
    EXPECT_EQ(terminal.Finish(), 128 + SIGTERM);
    ExpectHeldCommandIsGone();
}

TEST_F(ScriptRun, TheQuitKeyIsPassedOnAndReported) {
    HoldTheScript();
    Terminal terminal(Terminal::Mode::Person, [&] { m_setup.Become(CommandWithLines()); });
    ASSERT_TRUE(terminal.WaitFor("held"));
    terminal.Send("\x1c");
    EXPECT_TRUE(terminal.WaitFor("was terminated by signal Terminated")) << terminal.Output();
    EXPECT_EQ(terminal.Finish(), 128 + SIGTERM);
    ExpectHeldCommandIsGone();
}

TEST_F(ScriptRun, AHangUpThatTheCallerIgnoresStopsNothing) {
    BeforeTheScript("echo held; until [ -e /tmp/go ]; do sleep 0.05; done\n");
    Terminal terminal(Terminal::Mode::Person, [&] {
        std::signal(SIGHUP, SIG_IGN);
        m_setup.Become(CommandWithLines());
    });
    ASSERT_TRUE(terminal.WaitFor("held"));
    kill(terminal.Pid(), SIGHUP);
    hx_test::WriteFile(m_setup.Root() + "/go", "");
    EXPECT_TRUE(terminal.WaitFor("completed successfully!")) << terminal.Output();
    EXPECT_EQ(terminal.Finish(), 0);
}

TEST_F(ScriptRun, AReaderThatGoesAwayStopsNothing) {
    BeforeTheScript("echo held; until [ -e /tmp/go ]; do sleep 0.05; done\n");
    std::vector<std::string> command = {
        "/bin/bash", "-c",
        "{ \"$@\"; echo $? > /tmp/status; } | { sed /held/q; exec 0<&-; touch /tmp/go; }", "bash"};
    for (const std::string& word : CommandWithLines())
        command.push_back(word);
    m_setup.RunProgram(command);
    EXPECT_EQ(hx_test::ReadFile(m_setup.Root() + "/status"), "0\n");
    EXPECT_TRUE(m_setup.Has("QueueLimits"));
}

TEST_F(ScriptRun, AScriptThatOutlivesASignalIsReportedToo) {
    BeforeTheScript("trap '' TERM; echo held; until [ -e /tmp/go ]; do sleep 0.05; done\n");
    Terminal terminal(Terminal::Mode::Person, [&] { m_setup.Become(CommandWithLines()); });
    ASSERT_TRUE(terminal.WaitFor("held"));
    kill(terminal.Pid(), SIGTERM);
    usleep(100000);
    hx_test::WriteFile(m_setup.Root() + "/go", "");
    EXPECT_TRUE(
        terminal.WaitFor("received signal Terminated, but the commit script ran to its end"));
    EXPECT_EQ(terminal.Finish(), 0);
}

}  // namespace
