// Arguments in every order, as the SSH submission script takes them.
#include "generated/Submission.h"

namespace hx_test {
namespace {

class SshSubmission : public SubmissionTest {
protected:
    SshSubmission() : SubmissionTest("corvane26_ssh", &CInstallBase::WriteCorvaneSsh) {}

    // What corvane26 is started with for these arguments.
    std::string For(const std::vector<std::string>& arguments,
                    const std::map<std::string, std::string>& env = {}) {
        std::filesystem::remove(Outside("recorded"));
        const ProcessResult result = Submit(arguments, env);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "");
        return Recorded();
    }

    static std::string Submitted(std::vector<std::string> words, const std::string& job) {
        words.insert(words.begin(), "--submit");
        words.insert(words.end(), {"--threads", "1", "--verbose", "0", job});
        return Call(words);
    }
};

TEST_P(SshSubmission, AJobPathAloneIsSubmitted) {
    EXPECT_EQ(For({"/jobs/a.job"}), Submitted({}, "/jobs/a.job"));
    EXPECT_EQ(For({"/jobs/ein  schöner * job"}), Submitted({}, "/jobs/ein  schöner * job"));
}

// The switch is compared with "==", which dash takes for an error that adds nothing.
TEST_P(SshSubmission, CompressionWorksUnderBashAndNotUnderDash) {
    const std::vector<std::string> added =
        IsBash() ? std::vector<std::string>{"--compress"} : std::vector<std::string>{};
    for (const char* spelling : {"-z", "--compress"}) {
        EXPECT_EQ(For({spelling, "/jobs/a.job"}), Submitted(added, "/jobs/a.job"));
        EXPECT_EQ(For({"/jobs/a.job", spelling}), Submitted(added, "/jobs/a.job"));
    }
}

TEST_P(SshSubmission, DashComplainsAboutEachComparison) {
    const ProcessResult result = Submit({"/jobs/a.job"});
    EXPECT_EQ(Complaints(result), IsBash() ? 0U : 3U) << result.err;
    if (IsBash()) {
        EXPECT_EQ(result.err, "");
    }
}

TEST_P(SshSubmission, ThePrecisionIsTakenForAJobPath) {
    for (const char* spelling : {"-p", "--compress-archive-prec"}) {
        EXPECT_EQ(For({spelling, "3", "/jobs/a.job"}), Submitted({}, "/jobs/a.job"));
        EXPECT_EQ(For({"/jobs/a.job", spelling, "3"}), Submitted({}, "3"));
        EXPECT_EQ(For({"/jobs/a.job", spelling}), Submitted({}, "/jobs/a.job"));
    }
}

TEST_P(SshSubmission, AllOptionsInEveryOrder) {
    const std::vector<std::string> added =
        IsBash() ? std::vector<std::string>{"--compress"} : std::vector<std::string>{};
    EXPECT_EQ(For({"-p", "3", "-z", "/jobs/a.job"}), Submitted(added, "/jobs/a.job"));
    EXPECT_EQ(For({"-z", "-p", "3", "/jobs/a.job"}), Submitted(added, "/jobs/a.job"));
    EXPECT_EQ(For({"-z", "/jobs/a.job", "-p", "3"}), Submitted(added, "3"));
    EXPECT_EQ(For({"-p", "-z", "/jobs/a.job"}), Submitted(added, "/jobs/a.job"));
    EXPECT_EQ(For({"/jobs/a.job", "-p", "3", "-z"}), Submitted(added, "3"));
}

TEST_P(SshSubmission, TheLastOtherWordIsTheJobPath) {
    EXPECT_EQ(For({"/jobs/a.job", "/jobs/b.job"}), Submitted({}, "/jobs/b.job"));
    EXPECT_EQ(For({"/jobs/a.job", "--unknown"}), Submitted({}, "--unknown"));
    EXPECT_EQ(For({"/jobs/a.job", ""}), Submitted({}, ""));
    EXPECT_EQ(For({"--zip", "/jobs/a.job"}), Submitted({}, "/jobs/a.job"));
}

TEST_P(SshSubmission, WithoutAJobPathAnEmptyOneIsSubmitted) {
    EXPECT_EQ(For({}), Submitted({}, ""));
    EXPECT_EQ(For({"-p"}), Submitted({}, ""));
    // The variable is not cleared, so that the caller's own takes the place.
    EXPECT_EQ(For({}, {{"FILENAME", "/jobs/callers.job"}}), Submitted({}, "/jobs/callers.job"));
}

TEST_P(SshSubmission, TheQueueArgumentComesFirst) {
    Set("S_QUEUE=\"\"", "S_QUEUE=\"EXTERNAL\"");
    Set("S_QUEUENAME=\"\"", "S_QUEUENAME=\"batch\"");
    EXPECT_EQ(For({"-z", "/jobs/a.job"}),
              IsBash() ? Submitted({"--external-queue", "batch", "--compress"}, "/jobs/a.job")
                       : Submitted({}, "/jobs/a.job"));
    Set("S_QUEUE=\"EXTERNAL\"", "S_QUEUE=\"INTERNAL\"");
    EXPECT_EQ(For({"/jobs/a.job"}), IsBash()
                                        ? Submitted({"--internal-default-queue"}, "/jobs/a.job")
                                        : Submitted({}, "/jobs/a.job"));
}

TEST_P(SshSubmission, ResourcesTakeThePlaceOfThreads) {
    Set("S_RESOURCELIST=\"\"", "S_RESOURCELIST=\"ncpus=4\"");
    Set("S_VERBOSE=\"0\"", "S_VERBOSE=\"\"");
    EXPECT_EQ(For({"/jobs/a.job"}),
              Call({"--submit", "--resource-list", "ncpus=4", "/jobs/a.job"}));
}

TEST_P(SshSubmission, TheOutputGoesToTheLog) {
    For({"/jobs/a.job"});
    For({"/jobs/b.job"}, {{"SUBMISSION_STATUS", "3"}});
    EXPECT_EQ(File("corvane_ssh.log"),
              "CORVANE10_SSH: Submitting /jobs/a.job on today for alice\n"
              "output of the submission\n"
              "CORVANE10_SSH: corvane returned with 0\n"
              "CORVANE10_SSH: Submitting /jobs/b.job on today for alice\n"
              "output of the submission\n"
              "CORVANE10_SSH: corvane returned with 3\n");
}

TEST_P(SshSubmission, OnlyAFailedSubmissionMovesTheWorkingFile) {
    const std::string job = "/tmp/jobs/a b.job";
    MakeFile(Outside("jobs/a b.job.working"), "state", 0644);
    For({job});
    EXPECT_TRUE(Has("jobs/a b.job.working"));
    For({job}, {{"SUBMISSION_STATUS", "255"}});
    EXPECT_FALSE(Has("jobs/a b.job.working"));
    EXPECT_EQ(File("jobs/a b.job.completed"), "state");
    std::filesystem::remove(Outside("jobs/a b.job.completed"));
    For({job}, {{"SUBMISSION_STATUS", "1"}});
    EXPECT_TRUE(std::filesystem::is_empty(Outside("jobs")));
}

TEST_P(SshSubmission, NothingIsRemoved) {
    MakeFile(Outside("jobs/a.job"), "job", 0644);
    MakeFile(Outside("jobs/a.job.pid"), "1", 0644);
    EXPECT_EQ(For({"/tmp/jobs/a.job"}), Submitted({}, "/tmp/jobs/a.job"));
    EXPECT_EQ(File("jobs/a.job"), "job");
    EXPECT_EQ(File("jobs/a.job.pid"), "1");
}

INSTANTIATE_TEST_SUITE_P(Under, SshSubmission, testing::Values("dash", "bash"), ShellName);

}  // namespace
}  // namespace hx_test
