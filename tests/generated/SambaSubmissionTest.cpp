// Job requests in every form, carried out by the Samba submission script.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "generated/Submission.h"

namespace hx_test {
namespace {

class SambaSubmission : public SubmissionTest {
protected:
    SambaSubmission() : SubmissionTest("corvane26_samba", &CInstallBase::WriteCorvaneSamba) {}

    // Hands a request with this text to the script, which must take it and end with 0.
    ProcessResult Request(const std::string& text,
                          const std::map<std::string, std::string>& env = {}) {
        WriteFile(Outside("my request"), text);
        ProcessResult result = Submit({"/tmp/my request"}, env);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "");
        EXPECT_FALSE(Has("my request"));
        return result;
    }

    // The last words of a submission with the settings as they are written.
    static std::string Submitted(std::vector<std::string> words, const std::string& job) {
        words.insert(words.begin(), "--submit");
        words.insert(words.end(), {"--threads", "1", "--verbose", "0", job});
        return Call(words);
    }
};

TEST_P(SambaSubmission, AJobPathAloneIsSubmitted) {
    Request("/jobs/a.job\n");
    EXPECT_EQ(Recorded(), Submitted({}, "/jobs/a.job"));
}

TEST_P(SambaSubmission, AJobPathMayHoldBlanksAndPatterns) {
    Request("/jobs/ein  schöner * job");
    EXPECT_EQ(Recorded(), Submitted({}, "/jobs/ein  schöner * job"));
}

TEST_P(SambaSubmission, ArgumentsOfTheRequestComeFirst) {
    Request("SUBMIT:/jobs/a.job:--foo:--bar\n");
    EXPECT_EQ(Recorded(), Submitted({"--foo", "--bar"}, "/jobs/a.job"));
}

TEST_P(SambaSubmission, AnyOtherWordThanKillIsASubmission) {
    for (const char* word : {"SUBMIT", "kill", "KILLED", "x y"}) {
        std::filesystem::remove(Outside("recorded"));
        Request(std::string(word) + ":/jobs/a.job");
        EXPECT_EQ(Recorded(), Submitted({}, "/jobs/a.job")) << word;
    }
}

TEST_P(SambaSubmission, ThereMayBeManyArguments) {
    std::string request = "SUBMIT:/jobs/a.job";
    std::vector<std::string> words;
    for (int i = 0; i < 30; ++i) {
        words.push_back("--option" + std::to_string(i));
        request += ":" + words.back();
    }
    Request(request);
    EXPECT_EQ(Recorded(), Submitted(words, "/jobs/a.job"));
}

TEST_P(SambaSubmission, AnArgumentWithBlanksIsSplit) {
    Request("SUBMIT:/jobs/a b:--queue  long:--x\n");
    EXPECT_EQ(Recorded(), Submitted({"--queue", "long", "--x"}, "/jobs/a b"));
}

TEST_P(SambaSubmission, AnEmptyFieldEndsTheArguments) {
    Request("SUBMIT:/jobs/a.job::--foo\n");
    Request("SUBMIT:/jobs/a.job:--foo::--bar\n");
    EXPECT_EQ(Recorded(), Submitted({}, "/jobs/a.job") + Submitted({"--foo"}, "/jobs/a.job"));
}

TEST_P(SambaSubmission, ARequestThatBeginsWithAColonIsAJobPath) {
    Request(":/jobs/a.job:--foo\n");
    EXPECT_EQ(Recorded(), Submitted({}, ":/jobs/a.job:--foo"));
}

TEST_P(SambaSubmission, AJobPathWithAColonIsSplit) {
    Request("/jobs/10:30/a.job\n");
    EXPECT_EQ(Recorded(), Submitted({}, "30/a.job"));
}

TEST_P(SambaSubmission, AnEmptyRequestSubmitsAnEmptyPath) {
    Request("");
    EXPECT_EQ(Recorded(), Submitted({}, ""));
}

TEST_P(SambaSubmission, AMissingRequestFileSubmitsAnEmptyPathToo) {
    const ProcessResult result = Submit({"/tmp/missing"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Recorded(), Submitted({}, ""));
    EXPECT_NE(result.err.find("/tmp/missing"), std::string::npos);
}

// A process that waits to be ended; its number goes into a file.
class Waiting {
public:
    explicit Waiting(const std::string& pidFile) : m_pid(fork()) {
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;)
                ::pause();
        }
        WriteFile(pidFile, std::to_string(m_pid) + "\n");
    }
    ~Waiting() {
        if (!m_ended) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    // The signal that ended it, 0 after two seconds.
    int EndedBy() {
        int status = 0;
        for (int i = 0; i < 200 && !m_ended; ++i) {
            m_ended = waitpid(m_pid, &status, WNOHANG) == m_pid;
            usleep(10000);
        }
        return m_ended && WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    bool Runs() { return waitpid(m_pid, nullptr, WNOHANG) == 0; }

private:
    pid_t m_pid;
    bool m_ended = false;
};

TEST_P(SambaSubmission, KillEndsTheJobsProcess) {
    Waiting job(Outside("jobs/a b.job.pid"));
    Request("KILL:/tmp/jobs/a b.job:--ignored\n");
    EXPECT_EQ(job.EndedBy(), SIGTERM);
    EXPECT_EQ(Recorded(), "");
    EXPECT_TRUE(Has("jobs/a b.job.pid"));
    EXPECT_EQ(File("corvane_samba.log"),
              "CORVANE_SAMBA: Submitting /tmp/jobs/a b.job on today for alice\n");
}

TEST_P(SambaSubmission, KillWithoutAReadableNumberDoesNothing) {
    Waiting job(Outside("jobs/a.job.pid"));
    std::filesystem::permissions(Outside("jobs/a.job.pid"), std::filesystem::perms(0200));
    Request("KILL:/tmp/jobs/a.job\n");
    Request("KILL:/tmp/jobs/missing.job\n");
    EXPECT_TRUE(job.Runs());
    EXPECT_EQ(Recorded(), "");
}

TEST_P(SambaSubmission, AFailedSubmissionCompletesTheJob) {
    WriteFile(Outside("jobs/a b.job.working"), "state");
    Request("/tmp/jobs/a b.job", {{"SUBMISSION_STATUS", "3"}});
    EXPECT_FALSE(Has("jobs/a b.job.working"));
    EXPECT_EQ(File("jobs/a b.job.completed"), "state");
    EXPECT_NE(File("corvane_samba.log").find("/tmp/install/corvane26_samba returned with 3\n"),
              std::string::npos);
}

TEST_P(SambaSubmission, AFailedSubmissionWithoutAWorkingFileMovesNothing) {
    const ProcessResult result = Request("/tmp/jobs/a.job", {{"SUBMISSION_STATUS", "3"}});
    EXPECT_TRUE(std::filesystem::is_empty(Outside("jobs")));
    EXPECT_EQ(result.err.find("mv"), std::string::npos);
}

TEST_P(SambaSubmission, ASubmissionThatWorksLeavesTheWorkingFile) {
    WriteFile(Outside("jobs/a.job.working"), "state");
    Request("/tmp/jobs/a.job");
    EXPECT_TRUE(Has("jobs/a.job.working"));
    EXPECT_FALSE(Has("jobs/a.job.completed"));
}

TEST_P(SambaSubmission, WithoutTheProductsCommandTheStatusIsInTheLog) {
    std::filesystem::remove(Outside("tools/corvane26"));
    std::filesystem::create_directory(Outside("tools/corvane26"));
    Request("/tmp/jobs/a.job", {{"PATH", "/tmp/tools:/usr/bin:/bin"}});
    EXPECT_NE(File("corvane_samba.log").find("returned with 12"), std::string::npos);
}

TEST_P(SambaSubmission, TheOutputGoesToTheLog) {
    Request("SUBMIT:/jobs/a.job\n");
    EXPECT_EQ(File("corvane_samba.log"),
              "CORVANE_SAMBA: Submitting /jobs/a.job on today for alice\n"
              "output of the submission\n"
              "/tmp/install/corvane26_samba returned with 0\n");
}

// Bash compares with "=="; to dash it is an error, which adds nothing.
TEST_P(SambaSubmission, TheQueueSettingWorksUnderBashAndNotUnderDash) {
    const ProcessResult none = Request("/jobs/a.job");
    Set("S_QUEUE=\"\"", "S_QUEUE=\"INTERNAL\"");
    const ProcessResult internal = Request("/jobs/a.job");
    Set("S_QUEUE=\"INTERNAL\"", "S_QUEUE=\"EXTERNAL\"");
    Request("/jobs/a.job");
    Set("S_QUEUENAME=\"\"", "S_QUEUENAME=\"batch\"");
    Request("SUBMIT:/jobs/a.job:--foo");
    const std::string plain = Submitted({}, "/jobs/a.job");
    EXPECT_EQ(Recorded(), IsBash()
                              ? plain + Submitted({"--internal-default-queue"}, "/jobs/a.job") +
                                    Submitted({"--external-default-queue"}, "/jobs/a.job") +
                                    Submitted({"--foo", "--external-queue", "batch"}, "/jobs/a.job")
                              : plain + plain + plain + Submitted({"--foo"}, "/jobs/a.job"));
    for (const ProcessResult& result : {none, internal})
        EXPECT_EQ(Complaints(result), IsBash() ? 0U : 2U) << result.err;
    if (IsBash()) {
        EXPECT_EQ(none.err, "");
    }
}

TEST_P(SambaSubmission, ResourcesTakeThePlaceOfThreads) {
    Set("S_RESOURCELIST=\"\"", "S_RESOURCELIST=\"ncpus=4,nodes=1\"");
    Set("S_VERBOSE=\"0\"", "S_VERBOSE=\"\"");
    Request("/jobs/a.job");
    Set("S_RESOURCELIST=\"ncpus=4,nodes=1\"", "S_RESOURCELIST=\"\"");
    Set("S_THREADS=\"1\"", "S_THREADS=\"8\"");
    Request("/jobs/a.job");
    Set("S_THREADS=\"8\"", "S_THREADS=\"\"");
    Request("/jobs/a.job");
    EXPECT_EQ(Recorded(), Call({"--submit", "--resource-list", "ncpus=4,nodes=1", "/jobs/a.job"}) +
                              Call({"--submit", "--threads", "8", "/jobs/a.job"}) +
                              Call({"--submit", "/jobs/a.job"}));
}

INSTANTIATE_TEST_SUITE_P(Under, SambaSubmission, testing::Values("dash", "bash"), ShellName);

}  // namespace
}  // namespace hx_test
