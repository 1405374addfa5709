// The user's name and the log file, which both submission scripts settle alike.
#include <sys/stat.h>
#include <unistd.h>

#include "generated/Submission.h"

namespace hx_test {
namespace {

// The tests of both scripts, by what differs between them.
template <typename Script>
class SubmissionLog : public SubmissionTest {
protected:
    SubmissionLog() : SubmissionTest(Script::name, Script::writer) {}

    void Style(const std::string& style) {
        Set("S_LOG_STYLE=\"SHARED\"", "S_LOG_STYLE=\"" + style + "\"");
    }

    ProcessResult SubmitJob(const std::map<std::string, std::string>& env = {}) {
        WriteFile(Outside("request"), "/jobs/a.job");
        ProcessResult result = Submit({"/tmp/request"}, env);
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(Recorded(), "");
        return result;
    }

    // What stands behind "for" in the log's first line.
    std::string LoggedUser(const std::map<std::string, std::string>& env) {
        std::filesystem::remove(Outside(Script::log));
        SubmitJob(env);
        const std::string line = File(Script::log).substr(0, File(Script::log).find('\n'));
        const std::string before = " on today for";
        return line.substr(line.find(before) + before.size());
    }

    // The names of all logs.
    std::string Logs() const {
        std::string names;
        for (const auto& entry : std::filesystem::directory_iterator(Outside("."))) {
            if (entry.path().extension() == ".log")
                names += entry.path().filename().string() + "\n";
        }
        return names;
    }

    void TestUsers() {
        EXPECT_EQ(LoggedUser({}), " alice");
        EXPECT_EQ(LoggedUser({{"LOGNAME", "bob"}, {"USERNAME", "carol"}}), " alice");
        EXPECT_EQ(LoggedUser({{"USER", ""}, {"LOGNAME", "bob"}, {"USERNAME", "carol"}}), " bob");
        EXPECT_EQ(LoggedUser({{"USER", ""}, {"USERNAME", "carol"}}), "");
        EXPECT_EQ(LoggedUser({{"USER", ""}}), "");
    }

    void TestShared() {
        SubmitJob();
        EXPECT_EQ(Logs(), std::string(Script::log) + "\n");
        EXPECT_EQ(ModeOf(Outside(Script::log)), 0666U);
        // Only a log that the script makes gets a mode.
        std::filesystem::permissions(Outside(Script::log), std::filesystem::perms(0640));
        const size_t size = File(Script::log).size();
        SubmitJob();
        EXPECT_EQ(ModeOf(Outside(Script::log)), 0640U);
        EXPECT_EQ(File(Script::log).size(), 2 * size);
    }

    void TestIndividual() {
        Style("INDIVIDUAL");
        SubmitJob({{"USER", ""}});
        EXPECT_EQ(Logs(), "");
        SubmitJob();
        EXPECT_EQ(Logs(), "corvane_alice.log\n");
        EXPECT_EQ(ModeOf(Outside("corvane_alice.log")), 0644U);
        EXPECT_NE(File("corvane_alice.log").find("output of the submission\n"), std::string::npos);
    }

    void TestOtherStyles() {
        Style("NONE");
        SubmitJob();
        EXPECT_EQ(Logs(), "");
        Set("S_LOG=\"/dev/null\"", "S_LOG=\"/tmp/own.log\"");
        SubmitJob();
        EXPECT_EQ(Logs(), "") << "a log that is not there cannot be written";
        WriteFile(Outside("own.log"), "");
        SubmitJob();
        EXPECT_NE(File("own.log").find("returned with 0"), std::string::npos);
    }

    void TestUmask() {
        const std::string script = Outside("install/" + m_name);
        const std::string text = ReadFile(script);
        WriteFile(script, "umask 077\n" + text);
        SubmitJob();
        EXPECT_EQ(ModeOf(Outside(Script::log)), 0666U);
        WriteFile(script, "umask 077\n" + text);
        Style("INDIVIDUAL");
        SubmitJob();
        EXPECT_EQ(ModeOf(Outside("corvane_alice.log")), 0644U);
    }

    void TestUnwritable() {
        MakeFile(Outside(Script::log), "old\n", 0444);
        SubmitJob();
        EXPECT_EQ(File(Script::log), "old\n");
        EXPECT_EQ(ModeOf(Outside(Script::log)), 0444U);
    }

    void TestAnotherUsers() {
        MakeFile(Outside(Script::log), "old\n", 0644);
        if (!GiveAway(Outside(Script::log)))
            GTEST_SKIP() << "only root can give a file to another user";
        SubmitJob();
        EXPECT_EQ(File(Script::log), "old\n");
    }

    void TestDiagnostics() {
        const std::string script = Outside("install/" + m_name);
        std::string text = ReadFile(script);
        size_t enabled = 0;
        for (const std::string line :
             {"/bin/echo ----", "ulimit -a", "umask >>", "printenv PATH", "env >>"}) {
            for (size_t at = text.find("\n#" + line); at != std::string::npos;
                 at = text.find("\n#" + line, at)) {
                text.erase(at + 1, 1);
                ++enabled;
            }
        }
        EXPECT_EQ(enabled, 8U);
        WriteFile(script, text);
        SubmitJob();
        for (const char* part :
             {"----ulimit----\n", "----umask-----\n0",
              "----PATH------\n/tmp/tools:", "----ENV-------\n", "\nUSER=alice\n"})
            EXPECT_NE(File(Script::log).find(part), std::string::npos) << part;
    }
};

struct Samba {
    static constexpr const char* name = "corvane26_samba";
    static constexpr const char* log = "corvane_samba.log";
    static constexpr Writer writer = &CInstallBase::WriteCorvaneSamba;
};
struct Ssh {
    static constexpr const char* name = "corvane26_ssh";
    static constexpr const char* log = "corvane_ssh.log";
    static constexpr Writer writer = &CInstallBase::WriteCorvaneSsh;
};
using SambaLog = SubmissionLog<Samba>;
using SshLog = SubmissionLog<Ssh>;

TEST_P(SambaLog, TheUserIsUserOrLogname) {
    TestUsers();
}
TEST_P(SshLog, TheUserIsUserOrLogname) {
    TestUsers();
}
TEST_P(SambaLog, SharedIsOneLogThatAllMayWrite) {
    TestShared();
}
TEST_P(SshLog, SharedIsOneLogThatAllMayWrite) {
    TestShared();
}
TEST_P(SambaLog, IndividualIsALogForEachKnownUser) {
    TestIndividual();
}
TEST_P(SshLog, IndividualIsALogForEachKnownUser) {
    TestIndividual();
}
TEST_P(SambaLog, AnyOtherStyleKeepsTheLogOfTheSettings) {
    TestOtherStyles();
}
TEST_P(SshLog, AnyOtherStyleKeepsTheLogOfTheSettings) {
    TestOtherStyles();
}
TEST_P(SambaLog, TheUmaskHasNoSay) {
    TestUmask();
}
TEST_P(SshLog, TheUmaskHasNoSay) {
    TestUmask();
}
TEST_P(SambaLog, ALogThatMayNotBeWrittenIsGivenUp) {
    TestUnwritable();
}
TEST_P(SshLog, ALogThatMayNotBeWrittenIsGivenUp) {
    TestUnwritable();
}
TEST_P(SambaLog, ALogOfAnotherUserIsGivenUp) {
    TestAnotherUsers();
}
TEST_P(SshLog, ALogOfAnotherUserIsGivenUp) {
    TestAnotherUsers();
}
TEST_P(SambaLog, TheDiagnosticsWorkOnceTheyAreEnabled) {
    TestDiagnostics();
}
TEST_P(SshLog, TheDiagnosticsWorkOnceTheyAreEnabled) {
    TestDiagnostics();
}

INSTANTIATE_TEST_SUITE_P(Under, SambaLog, testing::Values("dash", "bash"), ShellName);
INSTANTIATE_TEST_SUITE_P(Under, SshLog, testing::Values("dash", "bash"), ShellName);

}  // namespace
}  // namespace hx_test
