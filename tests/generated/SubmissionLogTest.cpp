// The behavior that both submission scripts share: user, log, settings, and the state of the job.
#include "generated/Submission.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

class SubmissionScripts : public SubmissionTest {
protected:
    void Style(const std::string& style) const {
        Set("S_LOG_STYLE=\"SHARED\"", "S_LOG_STYLE=\"" + style + "\"");
    }

    void SubmitAnyJob(const std::map<std::string, std::string>& env = {}) const {
        SubmitJob("/jobs/a.job", env);
        EXPECT_EQ(TakeRecorded(), Submitted({}, "/jobs/a.job"));
    }

    // Returns the text after "for" in the first line of the log.
    std::string LoggedUser(const std::map<std::string, std::string>& env) const {
        fs::remove(Outside(GetParam().log));
        SubmitAnyJob(env);
        const std::string line = Log().substr(0, Log().find('\n'));
        const std::string before = " on today for";
        return line.substr(line.find(before) + before.size());
    }

    std::string NamesOfLogs() const {
        std::string names;
        for (const auto& entry : fs::directory_iterator(m_root.path())) {
            if (entry.path().extension() == ".log")
                names += entry.path().filename().string() + "\n";
        }
        return names;
    }
};

TEST_P(SubmissionScripts, SubmitJob) {
    for (const char* job : {"/jobs/a.job", "/jobs/ein  schöner * job"}) {
        SubmitJob(job);
        EXPECT_EQ(TakeRecorded(), Submitted({}, job));
    }
}

TEST_P(SubmissionScripts, LogUserOrLogname) {
    EXPECT_EQ(LoggedUser({}), " alice");
    EXPECT_EQ(LoggedUser({{"LOGNAME", "bob"}, {"USERNAME", "carol"}}), " alice");
    EXPECT_EQ(LoggedUser({{"USER", ""}, {"LOGNAME", "bob"}, {"USERNAME", "carol"}}), " bob");
    EXPECT_EQ(LoggedUser({{"USER", ""}, {"USERNAME", "carol"}}), "");
    EXPECT_EQ(LoggedUser({{"USER", ""}}), "");
}

TEST_P(SubmissionScripts, LogOutputAndStatus) {
    SubmitJob("/jobs/a.job");
    SubmitJob("/jobs/b.job", {{"SUBMISSION_STATUS", "3"}});
    const std::string start = IsSamba() ? "CORVANE_SAMBA" : "CORVANE10_SSH";
    const std::string end = IsSamba() ? "/tmp/install/corvane26_samba returned with "
                                      : "CORVANE10_SSH: corvane returned with ";
    EXPECT_EQ(Log(), start + ": Submitting /jobs/a.job on today for alice\n" +
                         "output of the submission\n" + end + "0\n" + start +
                         ": Submitting /jobs/b.job on today for alice\n" +
                         "output of the submission\n" + end + "3\n");
}

TEST_P(SubmissionScripts, ShareLogByDefault) {
    SubmitAnyJob();
    EXPECT_EQ(NamesOfLogs(), std::string(GetParam().log) + "\n");
    EXPECT_EQ(ModeOf(Outside(GetParam().log)), 0666U);
    // The mode of an existing log does not change.
    fs::permissions(Outside(GetParam().log), fs::perms(0640));
    const size_t size = Log().size();
    SubmitAnyJob();
    EXPECT_EQ(ModeOf(Outside(GetParam().log)), 0640U);
    EXPECT_EQ(Log().size(), 2 * size);
}

TEST_P(SubmissionScripts, CreateLogForEachKnownUser) {
    Style("INDIVIDUAL");
    SubmitAnyJob({{"USER", ""}});
    EXPECT_EQ(NamesOfLogs(), "");
    SubmitAnyJob();
    EXPECT_EQ(NamesOfLogs(), "corvane_alice.log\n");
    EXPECT_EQ(ModeOf(Outside("corvane_alice.log")), 0644U);
    EXPECT_NE(File("corvane_alice.log").find("output of the submission\n"), std::string::npos);
}

TEST_P(SubmissionScripts, WriteToExistingLogOfSettings) {
    Style("NONE");
    SubmitAnyJob();
    EXPECT_EQ(NamesOfLogs(), "");
    Set("S_LOG=\"/dev/null\"", "S_LOG=\"/tmp/own.log\"");
    SubmitAnyJob();
    EXPECT_EQ(NamesOfLogs(), "");
    WriteFile(Outside("own.log"), "");
    SubmitAnyJob();
    EXPECT_NE(File("own.log").find("returned with 0"), std::string::npos);
}

TEST_P(SubmissionScripts, SetModeOfLogRegardlessOfUmask) {
    const std::string text = ReadFile(Script());
    WriteFile(Script(), "umask 077\n" + text);
    SubmitAnyJob();
    EXPECT_EQ(ModeOf(Outside(GetParam().log)), 0666U);
    Style("INDIVIDUAL");
    SubmitAnyJob();
    EXPECT_EQ(ModeOf(Outside("corvane_alice.log")), 0644U);
}

TEST_P(SubmissionScripts, DoNotWriteToUnwritableLog) {
    MakeFile(Outside(GetParam().log), "old\n", 0444);
    SubmitAnyJob();
    EXPECT_EQ(Log(), "old\n");
    EXPECT_EQ(ModeOf(Outside(GetParam().log)), 0444U);
    fs::permissions(Outside(GetParam().log), fs::perms(0644));
    if (!GiveAway(Outside(GetParam().log)))
        GTEST_SKIP() << "only root can give a file to another user";
    SubmitAnyJob();
    EXPECT_EQ(Log(), "old\n");
}

TEST_P(SubmissionScripts, LogDiagnosticsWhenEnabled) {
    std::string text = ReadFile(Script());
    size_t enabled = 0;
    for (const std::string line :
         {"/bin/echo ----", "ulimit -a", "umask >>", "printenv PATH", "env >>"}) {
        for (size_t at = 0; (at = text.find("\n#" + line, at)) != std::string::npos; ++enabled)
            text.erase(at + 1, 1);
    }
    EXPECT_EQ(enabled, 8U);
    WriteFile(Script(), text);
    SubmitAnyJob();
    for (const char* part : {"----ulimit----\n", "----umask-----\n0",
                             "----PATH------\n/tmp/tools:", "----ENV-------\n", "\nUSER=alice\n"})
        EXPECT_NE(Log().find(part), std::string::npos) << part;
}

// Bash accepts "==". In dash it is an error, and no argument is added.
TEST_P(SubmissionScripts, AddQueueUnderBashOnly) {
    const std::string plain = Submitted({}, "/jobs/a.job");
    const ProcessResult result = SubmitJob("/jobs/a.job");
    EXPECT_EQ(TakeRecorded(), plain);
    size_t errors = 0;
    for (size_t at = 0; (at = result.err.find("unexpected operator", at)) != std::string::npos;
         ++at)
        ++errors;
    EXPECT_EQ(errors, IsBash() ? 0U : IsSamba() ? 2U : 3U) << result.err;
    EXPECT_EQ(result.err.empty(), IsBash());
    Set("S_QUEUE=\"\"", "S_QUEUE=\"INTERNAL\"");
    SubmitJob("/jobs/a.job");
    EXPECT_EQ(TakeRecorded(),
              IsBash() ? Submitted({"--internal-default-queue"}, "/jobs/a.job") : plain);
    Set("S_QUEUE=\"INTERNAL\"", "S_QUEUE=\"EXTERNAL\"");
    SubmitJob("/jobs/a.job");
    EXPECT_EQ(TakeRecorded(),
              IsBash() ? Submitted({"--external-default-queue"}, "/jobs/a.job") : plain);
    Set("S_QUEUENAME=\"\"", "S_QUEUENAME=\"batch\"");
    SubmitJob("/jobs/a.job");
    EXPECT_EQ(TakeRecorded(),
              IsBash() ? Submitted({"--external-queue", "batch"}, "/jobs/a.job") : plain);
}

TEST_P(SubmissionScripts, AddResourcesOrThreads) {
    Set("S_RESOURCELIST=\"\"", "S_RESOURCELIST=\"ncpus=4,nodes=1\"");
    Set("S_VERBOSE=\"0\"", "S_VERBOSE=\"\"");
    SubmitJob("/jobs/a.job");
    EXPECT_EQ(TakeRecorded(),
              Call({"--submit", "--resource-list", "ncpus=4,nodes=1", "/jobs/a.job"}));
    Set("S_RESOURCELIST=\"ncpus=4,nodes=1\"", "S_RESOURCELIST=\"\"");
    Set("S_THREADS=\"1\"", "S_THREADS=\"8\"");
    SubmitJob("/jobs/a.job");
    EXPECT_EQ(TakeRecorded(), Call({"--submit", "--threads", "8", "/jobs/a.job"}));
    Set("S_THREADS=\"8\"", "S_THREADS=\"\"");
    SubmitJob("/jobs/a.job");
    EXPECT_EQ(TakeRecorded(), Call({"--submit", "/jobs/a.job"}));
}

TEST_P(SubmissionScripts, CompleteJobAfterFailureOnly) {
    const std::string job = "/tmp/jobs/a b.job";
    WriteFile(Outside("jobs/a b.job.working"), "state");
    SubmitJob(job);
    EXPECT_TRUE(Has("jobs/a b.job.working"));
    SubmitJob(job, {{"SUBMISSION_STATUS", "255"}});
    EXPECT_FALSE(Has("jobs/a b.job.working"));
    EXPECT_EQ(File("jobs/a b.job.completed"), "state");
    fs::remove(Outside("jobs/a b.job.completed"));
    const ProcessResult result = SubmitJob(job, {{"SUBMISSION_STATUS", "1"}});
    EXPECT_EQ(result.err.find("mv"), std::string::npos);
    EXPECT_TRUE(fs::is_empty(Outside("jobs")));
}

INSTANTIATE_TEST_SUITE_P(Samba, SubmissionScripts, testing::ValuesIn(SambaScripts()), ScriptName);
INSTANTIATE_TEST_SUITE_P(Ssh, SubmissionScripts, testing::ValuesIn(SshScripts()), ScriptName);

}  // namespace
}  // namespace hx_test
