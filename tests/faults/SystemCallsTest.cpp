// Every kind of system call that a setup makes fails once, in a run of its own. Each outcome is one
// of those written down here; a failure that is not ends as if nothing had failed.
#include <gtest/gtest.h>

#include <csignal>
#include <regex>
#include <set>

#include "faults/FaultyRun.h"
#include "faults/Messages.h"

namespace {

// How the calls fail. Left out are those that cannot fail on an open descriptor, and close, after
// which strace would keep the file open.
const std::map<std::string, const char*> kErrors = {
    {"access", "EACCES"}, {"chmod", "EPERM"},  {"clone", "EAGAIN"},      {"getcwd", "ENOENT"},
    {"ioctl", "EIO"},     {"mkdir", "ENOSPC"}, {"newfstatat", "EACCES"}, {"openat", "EMFILE"},
    {"pipe2", "EMFILE"},  {"ppoll", "ENOMEM"}, {"read", "EIO"},          {"setpgid", "ESRCH"},
    {"statx", "EACCES"},  {"unlink", "EPERM"}, {"write", "ENOSPC"},      {"vfork", "EAGAIN"},
    {"fork", "EAGAIN"},   {"poll", "ENOMEM"}};

// What stands in the install directory afterwards.
enum class Made { Everything, OneThread, QChemAndSubmission, PartOfThem, Nothing };

struct Outcome {
    const char* call;  // as Describe tells it
    int status;
    std::string err;  // a part of it; empty: all of it is empty
    Made made;
};

const std::string kError = "Corvane Install: Error\n    ";

// The first that matches counts.
const std::vector<Outcome> kOutcomes = {
    {R"re(^getcwd\(.*, 2048\))re", 14,
     kError + "Unable to determine current working directory.  Aborting\n"
              "    No such file or directory\n",
     Made::Nothing},
    {R"re(^openat.*corvane26_setup_.*\.log")re", 0,
     "cv_install: there will be no log, /tmp/corvane26_setup_", Made::Everything},
    {R"re(^openat.*"/proc/cpuinfo")re", 0, "  Error, can't open /proc/cpuinfo to read.\n",
     Made::OneThread},
    {R"re(^newfstatat\([^"]*"/tmp")re", 0,
     "Warning\n    The scratch directory \"/tmp\" cannot be found", Made::Everything},
    {R"re(^access\("/tmp", W_OK)re", 0,
     "Warning\n    The scratch directory \"/tmp\" may not be written to", Made::Everything},
    {R"re(^access\("/tmp/product", W_OK)re", 8,
     "cv_install: \"/tmp/product\" may not be written to, ", Made::Nothing},

    // The commit script. Its size when it is opened is but a hint.
    {R"re(^openat.*corvane26_commit_.*O_CREAT)re", 5,
     std::string("Writing Commit Script: mkstemp failed, Too many open files\n") + kNoScript,
     Made::Nothing},
    {R"re(^openat.*corvane26_commit_.*O_NONBLOCK)re", 5, kNoScript, Made::Nothing},
    {R"re(^write\(\d+</tmp/corvane26_commit_)re", 5, kNoScript, Made::Nothing},

    {R"re(^read\(\d+</tmp/corvane26_commit_.*, 16384\))re", 5, kNoScript, Made::Nothing},

    // The files that cv_install writes itself.
    {R"re(^access\("/tmp", F_OK)re", 2, kError + "Unable to mkdir \"/tmp\"\n    File exists\n",
     Made::Nothing},
    {R"re(^access\("/tmp/product", F_OK)re", 2,
     kError + "Unable to mkdir \"/tmp/product\"\n    File exists\n", Made::Nothing},
    {R"re(^access\("/tmp/product/qchemrc", F_OK.* instead of 0$)re", 2,
     kError + "Unable to create \"/tmp/product/qchemrc\"\n    File exists\n", Made::PartOfThem},
    {R"re(^mkdir\("/tmp/product/qchemrc")re", 2,
     kError + "Unable to create \"/tmp/product/qchemrc\"\n    No space left on device\n",
     Made::Nothing},
    {R"re(^chmod\("/tmp/product/qchemrc")re", 2,
     kError + "Unable to chmod \"/tmp/product/qchemrc\"\n    Operation not permitted\n",
     Made::PartOfThem},
    {R"re(^openat.*/qchemrc/(qchemrc|qcscratch)", O_WRONLY)re", 2,
     "\" for write\n    Too many open files\n", Made::PartOfThem},
    {R"re(^openat.*/corvane26_(samba|ssh)", O_WRONLY)re", 24, "\" for write\n", Made::PartOfThem},
    {R"re(^chmod)re", 2, "Unable to chmod \"/tmp/product/", Made::PartOfThem},
    {R"re(^write\(\d+</tmp/product)re", 2, "is not complete, or cannot be read\n",
     Made::QChemAndSubmission},
    {R"re(^openat.*/(qchemrc/.*|corvane26_samba|corvane26_ssh)", O_RDONLY)re", 2,
     "is not complete, or cannot be read\n", Made::QChemAndSubmission},

    {R"re(^read\(\d+</tmp/product/(qchemrc|corvane26_s).*, 16384\))re", 2,
     "is not complete, or cannot be read\n", Made::QChemAndSubmission},

    // The run of the commit script.
    {R"re(^(pipe2|clone|vfork|fork)\()re", 6,
     "the commit script could not be started: ", Made::QChemAndSubmission},

    // The look at the result: nothing is wrong, but that cannot be known. The limits are looked at
    // again.
    {R"re(^read\(\d+</tmp/product/corvanerc.*, 16384\))re", 10,
     "is not complete, or cannot be read\n", Made::Everything},
    {R"re(^openat.*/corvanerc/)re", 10, "\" is not complete, or cannot be read\n",
     Made::Everything},

    // The console.
    {R"re(^write\(1<)re", 0, "cv_install: stdout cannot be written to, some lines are lost\n",
     Made::Everything},
    {R"re(^write\(\d+</tmp/corvane26_setup_)re", 0,
     "ends here, it cannot be written to: No space left on device\n", Made::Everything},
};

// Calls of one kind differ in numbers, texts and names that do not matter to their outcome.
std::string KindOf(const FaultyRun::Call& call) {
    static const std::set<std::string> repeated = {"ioctl", "ppoll", "read", "statx", "write"};
    std::string text = call.text.substr(0, call.text.rfind(" = "));
    text = std::regex_replace(text, std::regex("0x[0-9a-f]+|commit_\\w+|setup_\\w+"), "");
    text = std::regex_replace(text, std::regex("/corvanerc/[^\">]*"), "/corvanerc/");
    if (repeated.contains(call.name))
        text = std::regex_replace(text, std::regex(R"re("(\\.|[^"])*"\.*|[0-9]+)re"), "");
    return text;
}

// The call that failed, with what it returned in a run without failures where it is the same call.
std::string Describe(const FaultyResult& result, const FaultyRun::Call& whole) {
    if (KindOf({whole.name, whole.number, result.call}) != KindOf(whole))
        return result.call;
    return result.call + " instead of " + whole.text.substr(whole.text.rfind(" = ") + 3);
}

const Outcome& OutcomeOf(const std::string& call) {
    static const Outcome none = {"", 0, "", Made::Everything};
    for (const Outcome& outcome : kOutcomes) {
        if (std::regex_search(call, std::regex(outcome.call)))
            return outcome;
    }
    return none;
}

// Without the modes: a file whose mode could not be set is there.
bool IsPartOf(const std::map<std::string, std::string>& part, const FaultyResult& whole) {
    for (const auto& [path, text] : part) {
        if (!whole.made.contains(path))
            return false;
    }
    return part.size() < whole.made.size() && !part.contains("corvanerc");
}

void ExpectMade(const FaultyResult& result, const FaultyResult& whole, Made made) {
    switch (made) {
        case Made::Everything:
            EXPECT_TRUE(result.made == whole.made);
            return;
        case Made::OneThread:
            EXPECT_NE(result.made.at("QueueLimits").find(" MaxThreads: 1\n"), std::string::npos);
            EXPECT_EQ(result.made.size(), whole.made.size());
            return;
        case Made::Nothing:
            EXPECT_TRUE(result.made.empty());
            return;
        case Made::QChemAndSubmission:
            EXPECT_TRUE(result.made.contains("corvane26_ssh"));
            EXPECT_TRUE(result.made.contains("qchemrc/qcscratch"));
            [[fallthrough]];
        case Made::PartOfThem:
            EXPECT_TRUE(IsPartOf(result.made, whole));
    }
}

void ExpectOutcome(const FaultyResult& result, const std::string& call, const FaultyResult& whole) {
    SCOPED_TRACE(call + "\n" + result.err);
    const Outcome& outcome = OutcomeOf(call);
    EXPECT_EQ(result.status, outcome.status);
    if (outcome.err.empty())
        EXPECT_EQ(result.err, "");
    else
        EXPECT_NE(result.err.find(outcome.err), std::string::npos) << outcome.err;
    ExpectMade(result, whole, outcome.made);
}

// Qt tries some reads again, and behind the last byte of a file there is nothing to lose.
bool LosesNothing(const FaultyResult& result, const FaultyResult& whole) {
    return result.call.starts_with("read(") && result.status == 0 && result.err.empty() &&
           result.made == whole.made;
}

TEST(SystemCalls, EachFailureHasItsOutcome) {
    HX_REQUIRE_FAULTY_RUNS();
    FaultyRun run({"-m", "777", "-s", "5", "-d", "/tmp", "--submission-scripts"});
    const FaultyResult whole = run.RunWhole();
    ASSERT_EQ(whole.status, 0) << whole.err;
    ASSERT_EQ(whole.err, "");
    const bool every = std::getenv("HX_TEST_EVERY_FAULT") != nullptr;
    std::set<std::string> kinds;
    int failed = 0;
    for (const FaultyRun::Call& call : run.CallsOfSetup()) {
        const auto error = kErrors.find(call.name);
        if (error == kErrors.end() || call.text.find("AT_EMPTY_PATH") != std::string::npos ||
            (!kinds.insert(KindOf(call)).second && !every))
            continue;
        const FaultyResult result = run.Run(call.name, call.number, error->second);
        // The number of calls that follow the script's output differs from run to run.
        failed += result.call.empty() ? 0 : 1;
        if (!every || !LosesNothing(result, whole))
            ExpectOutcome(result, Describe(result, call), whole);
    }
    RecordProperty("failures", failed);
    EXPECT_GT(failed, 80);
}

// df is asked for free space, and where it cannot be asked one gigabyte is offered.
TEST(SystemCalls, WithoutAChildForDfTheScratchLimitIsOne) {
    HX_REQUIRE_FAULTY_RUNS();
    FaultyRun run({"-m", "777", "-d", "/tmp"});
    const std::pair<const char*, int> calls[] = {
        {"pipe2", 1}, {"pipe2", 2}, {"pipe2", 3}, {"pipe2", 4}, {"clone", 1}};
    for (const auto& [name, number] : calls) {
        const FaultyResult result = run.Run(name, number, kErrors.at(name));
        SCOPED_TRACE(result.call + "\n" + result.err);
        EXPECT_NE(result.call, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.made.at("QueueLimits").ends_with("\nDiskPerThreadGB: 1\n"));
    }
}

// The first wait is for the script's start.
TEST(SystemCalls, AScriptThatCannotBeFollowedIsEnded) {
    HX_REQUIRE_FAULTY_RUNS();
    FaultyRun run({"-m", "777", "-s", "5", "-d", "/tmp"});
    const FaultyResult result = run.RunWhen("ppoll", "2+", "ENOMEM");
    EXPECT_EQ(result.status, 128 + SIGTERM);
    EXPECT_NE(result.err.find(" could not be followed to its end, and was ended\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(result.err.find("QProcess"), std::string::npos) << result.err;
}

}  // namespace
