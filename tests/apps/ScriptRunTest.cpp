// How cv_install runs the commit script, and what it reports when a signal arrives meanwhile.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "apply/ScriptRun.h"
#include "apps/UserSetup.h"
#include "harness/Child.h"
#include "harness/Terminal.h"

namespace {

using hx_test::Terminal;

// An orphan is a zombie until its new parent waits for it.
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

    // Bash runs `lines` before the first line of the commit script.
    std::vector<std::string> Command(const std::string& lines) const {
        hx_test::WriteFile(m_setup.Root() + "/before", lines);
        return m_setup.Command({"BASH_ENV=/tmp/before", "CORV_QUEUE_ALLOW=everyone"},
                               {"--setup", "--user-mode", "--yes"});
    }

    Terminal Start(const std::string& lines, int ignored = 0) const {
        return {Terminal::Mode::Person, [this, command = Command(lines), ignored] {
                    std::signal(ignored, SIG_IGN);
                    m_setup.Become(command);
                }};
    }

    std::string File(const std::string& name) const {
        return hx_test::ReadFile(m_setup.Root() + "/" + name);
    }

    UserSetup m_setup;
    const std::string m_waitForFile = "echo held; until [ -e /tmp/go ]; do sleep 0.05; done\n";
};

TEST_F(ScriptRun, RunsScriptWithoutSettingsOfAnotherRunScript) {
    ASSERT_EQ(m_setup.RunProgram(Command("env | grep ^CORV_ | sort > /tmp/environment\n")).status,
              0);
    EXPECT_EQ(File("environment"),
              "CORV_ACCESS=/tmp/product\nCORV_CORVANERC=/tmp/product\nCORV_INSTALL=/tmp/product\n");
    EXPECT_EQ(m_setup.File("corvane26").find("everyone"), std::string::npos);
}

TEST_F(ScriptRun, ReportsWhyScriptCannotStart) {
    hx_test::ProcessResult result;
    // With fewer files, the setup ends earlier.
    for (int limit = 14; result.status != 6 && limit < 40; ++limit) {
        result = m_setup.RunProgram(
            {"/bin/sh", "-c",
             "ulimit -n " + std::to_string(limit) +
                 "; exec /tmp/product/cv_install --setup --user-mode --yes -s 5"});
    }
    EXPECT_EQ(result.status, 6);
    EXPECT_EQ(WithoutLogPath(result.err),
              "cv_install: cannot start the commit script: Too many open files\n"
              "    Raise the limits of open files and processes, or free memory, then run the "
              "setup again.\n"
              "    At most, Q-Chem files and submission scripts were changed.\n");
}

// Its standard output can contain the error.
TEST_F(ScriptRun, ShowsOutputOfFailedScriptWithQuiet) {
    for (const char* end : {"exit 3\n", ""}) {
        std::vector<std::string> command = Command(std::string("echo of the script\n") + end);
        command.emplace_back("--quiet");
        const auto result = m_setup.RunProgram(command);
        EXPECT_EQ(result.status, *end == '\0' ? 0 : 3) << result.err;
        EXPECT_EQ(result.out,
                  *end == '\0' ? "cv_install: set up \"/tmp/product\"\n" : "of the script\n");
    }
}

TEST_F(ScriptRun, PassesSignalsOnAndReportsThem) {
    const struct {
        const char* key;
        int reported;
    } cases[] = {{"\x03", SIGINT}, {"\x1c", SIGTERM}, {nullptr, SIGTERM}};
    for (const auto& [key, reported] : cases) {
        Terminal terminal = Start("sh -c 'echo $$ > /tmp/pid; echo held; exec sleep 61'\n");
        ASSERT_TRUE(terminal.WaitFor("held"));
        if (key != nullptr)
            terminal.Send(key);
        else
            kill(terminal.Pid(), SIGTERM);
        EXPECT_TRUE(
            terminal.WaitFor(std::string("was terminated by signal ") + strsignal(reported)))
            << terminal.Output();
        EXPECT_EQ(terminal.Finish(), 128 + reported);
        EXPECT_TRUE(terminal.IsSane());
        const int pid = std::atoi(File("pid").c_str());
        ASSERT_GT(pid, 0);
        EXPECT_TRUE(EndsSoon(pid));
    }
}

// The script's first output comes while it waits, and it reads nothing from the terminal.
TEST_F(ScriptRun, RunsScriptToItsEndWhenSignalIsIgnored) {
    const struct {
        int signal;
        bool callerIgnoresIt;
        const char* report;
    } cases[] = {
        {SIGHUP, true, "completed successfully!"},
        {SIGTERM, false, "received signal Terminated, but the commit script ran to its end"}};
    for (const auto& [signal, callerIgnoresIt, report] : cases) {
        std::filesystem::remove(m_setup.Root() + "/go");
        Terminal terminal =
            Start("trap '' TERM; cat > /tmp/taken\n" + m_waitForFile, callerIgnoresIt ? SIGHUP : 0);
        ASSERT_TRUE(terminal.WaitFor("held"));
        EXPECT_EQ(File("taken"), "");
        kill(terminal.Pid(), signal);
        usleep(100000);
        hx_test::WriteFile(m_setup.Root() + "/go", "");
        EXPECT_TRUE(terminal.WaitFor(report)) << terminal.Output();
        EXPECT_EQ(terminal.Finish(), 0);
    }
}

struct HungScript {
    const char* name;
    const char* text;
    const char* remedy;
};

// The second one ignores SIGTERM, as its tool does.
const HungScript hungScripts[] = {
    {"tool", "echo before; sleep 62; echo after\n", "Find out why \"sleep 62\" does not end"},
    {"deaf tool", "trap '' TERM; sleep 63\n", "Find out why \"sleep 63\" does not end"},
    {"tool that outlives it", "(trap '' TERM; exec sleep 64) & wait\n",
     "Find out why \"sleep 64\" does not end"},
};

TEST(StagedScript, IsTerminatedWithItsToolsWhenItHangs) {
    for (const HungScript& row : hungScripts) {
        SCOPED_TRACE(row.name);
        const hx_test::TempDir files;
        CommitScript script;
        script.path = QString::fromStdString(files / "script");
        hx_test::WriteFile(files / "script", "echo $$ > " + files / "pid" + '\n' + row.text);
        const auto result = hx_test::RunInChild({}, [&] {
            const Failure failure = FollowScript(script, SetupLock(), ScriptOutput::Logged,
                                                 std::chrono::milliseconds(500));
            ASSERT_TRUE(failure);
            EXPECT_EQ(failure->status, ExitStatus::Refused);
            EXPECT_EQ(failure->text, "commit script \"" + script.path +
                                         "\" did not end within 0.5 seconds; terminated it");
            EXPECT_EQ(failure->remedy, QLatin1String(row.remedy) + ", then run the setup again.");
        });
        EXPECT_EQ(result.status, 0) << result.out;
        const std::string group = hx_test::ReadFile(files / "pid");
        EXPECT_EQ(hx_test::Run({"pgrep", "--runstates", "DRST", "--pgroup",
                                group.substr(0, group.find('\n'))})
                      .out,
                  "");
    }
}

// cv_install ignores SIGPIPE. The script and its tools do not: tools that write to a pipe without
// a reader end.
TEST_F(ScriptRun, ContinuesWhenReaderOfOutputEnds) {
    std::vector<std::string> command = {
        "/bin/bash", "-c",
        "{ \"$@\"; echo $? > /tmp/status; } | { sed /held/q; exec 0<&-; touch /tmp/go; }", "bash"};
    for (const std::string& word :
         Command(m_waitForFile + "{ while echo y; do :; done; } | true\n"
                                 "echo ${PIPESTATUS[0]} > /tmp/pipes\n"
                                 "yes | true; echo ${PIPESTATUS[0]} >> /tmp/pipes\n"))
        command.push_back(word);
    m_setup.RunProgram(command);
    EXPECT_EQ(File("status"), "0\n");
    EXPECT_TRUE(m_setup.Has("QueueLimits"));
    const std::string killed = std::to_string(128 + SIGPIPE) + "\n";
    EXPECT_EQ(File("pipes"), killed + killed);
}

}  // namespace
