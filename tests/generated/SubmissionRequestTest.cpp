// Requests to the Samba submission script, and arguments of the SSH submission script, in all
// forms.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "generated/Submission.h"

namespace hx_test {
namespace {

class SambaSubmission : public SubmissionTest {
protected:
    // Submits a request, whose file the script removes.
    void Request(const std::string& text) const {
        SubmitJob(text);
        EXPECT_FALSE(Has("my request"));
    }
};

TEST_P(SambaSubmission, SubmitsJobOfRequest) {
    struct Case {
        const char* text;
        std::vector<std::string> arguments;
        const char* job;
    };
    const Case requests[] = {
        {"/jobs/a.job\n", {}, "/jobs/a.job"},
        {"", {}, ""},
        // With nothing before the colon, the whole text is the job.
        {":/jobs/a.job:--foo\n", {}, ":/jobs/a.job:--foo"},
        {"/jobs/10:30/a.job\n", {}, "30/a.job"},
        // Any word but KILL is a submission.
        {"SUBMIT:/jobs/a.job\n", {}, "/jobs/a.job"},
        {"kill:/jobs/a.job", {}, "/jobs/a.job"},
        {"KILLED:/jobs/a.job", {}, "/jobs/a.job"},
        {"x y:/jobs/a.job", {}, "/jobs/a.job"},
        {"SUBMIT:/jobs/a.job:--foo:--bar\n", {"--foo", "--bar"}, "/jobs/a.job"},
        {"SUBMIT:/jobs/a b:--queue  long:--x\n", {"--queue", "long", "--x"}, "/jobs/a b"},
        // An empty field ends the arguments.
        {"SUBMIT:/jobs/a.job::--foo\n", {}, "/jobs/a.job"},
        {"SUBMIT:/jobs/a.job:--foo::--bar\n", {"--foo"}, "/jobs/a.job"}};
    for (const auto& request : requests) {
        Request(request.text);
        EXPECT_EQ(TakeRecorded(), Submitted(request.arguments, request.job)) << request.text;
    }
}

TEST_P(SambaSubmission, AcceptsManyArguments) {
    std::string request = "SUBMIT:/jobs/a.job";
    std::vector<std::string> words;
    for (int i = 0; i < 30; ++i) {
        words.push_back("--option" + std::to_string(i));
        request += ":" + words.back();
    }
    Request(request);
    EXPECT_EQ(TakeRecorded(), Submitted(words, "/jobs/a.job"));
}

TEST_P(SambaSubmission, AddsQueueAfterArguments) {
    Set("S_QUEUE=\"\"", "S_QUEUE=\"EXTERNAL\"");
    Request("SUBMIT:/jobs/a.job:--foo");
    EXPECT_EQ(TakeRecorded(), IsBash()
                                  ? Submitted({"--foo", "--external-default-queue"}, "/jobs/a.job")
                                  : Submitted({"--foo"}, "/jobs/a.job"));
}

TEST_P(SambaSubmission, SubmitsEmptyPathWithoutRequestFile) {
    const ProcessResult result = Submit({"/tmp/missing"});
    EXPECT_EQ(TakeRecorded(), Submitted({}, ""));
    EXPECT_NE(result.err.find("/tmp/missing"), std::string::npos);
}

// A process that waits for a signal. Its ID is in a file.
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

    // Returns the signal that terminated it, 0 after two seconds.
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

TEST_P(SambaSubmission, TerminatesJobOnKill) {
    Waiting job(Outside("jobs/a b.job.pid"));
    Request("KILL:/tmp/jobs/a b.job:--ignored\n");
    EXPECT_EQ(job.EndedBy(), SIGTERM);
    EXPECT_EQ(TakeRecorded(), "");
    EXPECT_TRUE(Has("jobs/a b.job.pid"));
    EXPECT_EQ(Log(), "CORVANE_SAMBA: Submitting /tmp/jobs/a b.job on today for alice\n");
}

TEST_P(SambaSubmission, IgnoresKillWithoutReadableProcessId) {
    Waiting job(Outside("jobs/a.job.pid"));
    std::filesystem::permissions(Outside("jobs/a.job.pid"), std::filesystem::perms(0200));
    Request("KILL:/tmp/jobs/a.job\n");
    Request("KILL:/tmp/jobs/missing.job\n");
    EXPECT_TRUE(job.Runs());
    EXPECT_EQ(TakeRecorded(), "");
}

INSTANTIATE_TEST_SUITE_P(On, SambaSubmission, testing::ValuesIn(SambaScripts()), ScriptName);

class SshSubmission : public SubmissionTest {};

TEST_P(SshSubmission, AcceptsArgumentsInEveryOrder) {
    struct Arguments {
        std::vector<std::string> words;
        bool compress;
        const char* job;
    };
    const Arguments cases[] = {
        {{"-z", "/jobs/a.job"}, true, "/jobs/a.job"},
        {{"/jobs/a.job", "-z"}, true, "/jobs/a.job"},
        {{"--compress", "/jobs/a.job"}, true, "/jobs/a.job"},
        {{"/jobs/a.job", "--compress"}, true, "/jobs/a.job"},
        // A precision is never recognized: it is a job path.
        {{"-p", "3", "/jobs/a.job"}, false, "/jobs/a.job"},
        {{"/jobs/a.job", "-p", "3"}, false, "3"},
        {{"/jobs/a.job", "-p"}, false, "/jobs/a.job"},
        {{"--compress-archive-prec", "3", "/jobs/a.job"}, false, "/jobs/a.job"},
        {{"/jobs/a.job", "--compress-archive-prec", "3"}, false, "3"},
        {{"-p", "3", "-z", "/jobs/a.job"}, true, "/jobs/a.job"},
        {{"-z", "-p", "3", "/jobs/a.job"}, true, "/jobs/a.job"},
        {{"-z", "/jobs/a.job", "-p", "3"}, true, "3"},
        {{"-p", "-z", "/jobs/a.job"}, true, "/jobs/a.job"},
        {{"/jobs/a.job", "-p", "3", "-z"}, true, "3"},
        // The last other word is the job path.
        {{"/jobs/a.job", "/jobs/b.job"}, false, "/jobs/b.job"},
        {{"/jobs/a.job", "--unknown"}, false, "--unknown"},
        {{"/jobs/a.job", ""}, false, ""},
        {{"--zip", "/jobs/a.job"}, false, "/jobs/a.job"},
        {{}, false, ""},
        {{"-p"}, false, ""}};
    for (const Arguments& arguments : cases) {
        Submit(arguments.words);
        // Dash does not accept the comparison "==", and nothing is added.
        const bool compress = arguments.compress && IsBash();
        EXPECT_EQ(TakeRecorded(), compress ? Submitted({"--compress"}, arguments.job)
                                           : Submitted({}, arguments.job))
            << Call(arguments.words);
    }
}

TEST_P(SshSubmission, TakesJobFromEnvironmentWithoutArguments) {
    Submit({}, {{"FILENAME", "/jobs/callers.job"}});
    EXPECT_EQ(TakeRecorded(), Submitted({}, "/jobs/callers.job"));
}

TEST_P(SshSubmission, AddsQueueBeforeCompression) {
    Set("S_QUEUE=\"\"", "S_QUEUE=\"EXTERNAL\"");
    Set("S_QUEUENAME=\"\"", "S_QUEUENAME=\"batch\"");
    Submit({"-z", "/jobs/a.job"});
    EXPECT_EQ(TakeRecorded(),
              IsBash() ? Submitted({"--external-queue", "batch", "--compress"}, "/jobs/a.job")
                       : Submitted({}, "/jobs/a.job"));
}

TEST_P(SshSubmission, DoesNotChangeFilesOfJob) {
    WriteFile(Outside("jobs/a.job"), "job");
    WriteFile(Outside("jobs/a.job.pid"), "1");
    Submit({"/tmp/jobs/a.job"});
    EXPECT_EQ(File("jobs/a.job"), "job");
    EXPECT_EQ(File("jobs/a.job.pid"), "1");
}

INSTANTIATE_TEST_SUITE_P(On, SshSubmission, testing::ValuesIn(SshScripts()), ScriptName);

}  // namespace
}  // namespace hx_test
