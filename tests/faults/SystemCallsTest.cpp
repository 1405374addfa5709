// System calls of a setup fail, each in a separate setup. Each failure has an outcome in this
// table, or none at all.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <set>

#include "faults/FaultyRun.h"
#include "faults/Messages.h"
#include "harness/Effort.h"
#include "harness/Pattern.h"

namespace {

// How the calls fail. Omits those that cannot fail on an open descriptor, and close, after which
// strace would keep the file open.
const std::map<std::string, const char*> errors = {
    {"access", "EACCES"}, {"chmod", "EPERM"},  {"clone", "EAGAIN"},      {"getcwd", "ENOENT"},
    {"ioctl", "EIO"},     {"mkdir", "ENOSPC"}, {"newfstatat", "EACCES"}, {"openat", "EMFILE"},
    {"pipe2", "EMFILE"},  {"ppoll", "ENOMEM"}, {"read", "EIO"},          {"setpgid", "ESRCH"},
    {"statx", "EACCES"},  {"unlink", "EPERM"}, {"write", "ENOSPC"},      {"vfork", "EAGAIN"},
    {"fork", "EAGAIN"},   {"flock", "ENOLCK"}, {"poll", "ENOMEM"}};

// What the install directory contains afterwards.
enum class Created { Everything, OneThread, QChemAndSubmission, PartOfIt, Nothing };

const std::string cannotUseProduct = "cv_install: cannot use file of the product \"/tmp/product/";

struct Outcome {
    const char* call;  // a pattern of Describe
    int status;
    std::string err;  // a part; empty for no output
    Created created;
};

const std::string errorText = "Corvane Install: Error\n    ";

const std::string opensTree = R"("/tmp/product", O_RDONLY|O_CLOEXEC|O_PATH|O_DIRECTORY)";
const std::string readsTree = R"("/tmp/product", O_RDONLY|O_CLOEXEC|O_DIRECTORY)";
const std::string createsTree = R"(access("/tmp", F_OK)";

// End the text of a call of these phases.
const std::string whilePlanning = " while planning";
const std::string whileSaving = " while saving the state";

// The first match counts.
const std::vector<Outcome> outcomes = {
    // The directory of the previous setup.
    {R"re(^openat.*"/tmp/product", O_RDONLY\|O_CLOEXEC\|O_PATH\|O_DIRECTORY)re", 0, "",
     Created::Everything},

    // The first call is that of cv_install, the second that of the library.
    {R"re(^getcwd\(.*, 2048\))re", 14, "working directory", Created::Nothing},
    {R"re(^openat.*"/tmp/product", .*O_DIRECTORY.* while planning)re", 2,
     CannotLock("/tmp/product", "Too many open files"), Created::Nothing},
    {R"re(^openat.*"/tmp/product", .*O_DIRECTORY.* while saving)re", 2,
     "cv_install: cannot read directory \"/tmp/product\": Too many open files\n", Created::Nothing},
    {R"re(^openat\(\d+</tmp/product>, .* while planning)re", 0, "", Created::Everything},
    {R"re(^openat\(\d+</tmp/product>, .* while saving)re", 2,
     "cv_install: cannot read \"/tmp/product", Created::Nothing},
    {R"re(^openat.*corvane26_setup_.*\.log")re", 0, CannotOpenLog("/tmp/corvane26_setup_"),
     Created::Everything},
    {R"re(^openat.*"/proc/cpuinfo")re", 0, "  Error, can't open /proc/cpuinfo to read.\n",
     Created::OneThread},
    {R"re(^newfstatat\([^"]*"/tmp", )re", 0,
     "Warning\n    " + ScratchNotAccessible("Permission denied"), Created::Everything},
    {R"re(^access\("/tmp", W_OK)re", 0, "Warning\n    " + scratchNotWritable, Created::Everything},
    {R"re(^access\("/tmp/product(/[^"]*)?", W_OK\|X_OK)re", 65,
     "cv_install: cannot write to directory \"/tmp/product", Created::Nothing},
    {R"re(^openat.*"/tmp/product/.*O_NONBLOCK)re", 65, cannotUseProduct, Created::Nothing},
    {R"re(^read\(\d+</tmp/product/.*, 1\))re", 65, cannotUseProduct, Created::Nothing},
    {R"re(^access\("/tmp/product", W_OK)re", 8, NotWritable("/tmp/product"), Created::Nothing},

    // The commit script.
    {R"re(^openat.*corvane26_commit_.*O_CREAT)re", 5,
     std::string("Writing Commit Script: mkstemp failed, Too many open files\n") + noScript,
     Created::QChemAndSubmission},
    {R"re(^openat.*corvane26_commit_.*O_PATH)re", 5, noScript, Created::QChemAndSubmission},
    {R"re(^write\(\d+</tmp/corvane26_commit_)re", 5, noScript, Created::QChemAndSubmission},
    {R"re(^read\(\d+</tmp/corvane26_commit_.*, 16384\))re", 5, noScript,
     Created::QChemAndSubmission},

    // The record of the previous setup, which does not exist, then that of this setup.
    {R"re(^openat.*"/tmp/state", .* instead of -1 ENOENT)re", 68,
     "cv_install: cannot use record \"/tmp/state", Created::Nothing},
    // The previous manifest is only for web pages that the setup keeps.
    {R"re(^openat.*/tmp/state/.*"manifest", O_RDONLY)re", 0, "", Created::Everything},
    {R"re(^openat\(\d+<[^>]*/private/states>, "\.")re", 2,
     "cv_install: cannot list saved states \"/tmp/state", Created::Nothing},
    {R"re(^\w+\(.*/tmp/state/.*/private/states)re", 2, "cv_install: cannot save \"/tmp/state",
     Created::Nothing},
    {R"re(^\w+\(.*/tmp/state[/>"])re", 0, "cv_install: warning: cannot write record \"/tmp/state",
     Created::Everything},

    // The files that cv_install writes itself.
    {R"re(^access\("/tmp", F_OK)re", 2, errorText + "Unable to mkdir \"/tmp\"\n    File exists\n",
     Created::Nothing},
    {R"re(^access\("/tmp/product", F_OK)re", 2,
     errorText + "Unable to mkdir \"/tmp/product\"\n    File exists\n", Created::Nothing},
    {R"re(^access\("/tmp/product/qchemrc", F_OK.* instead of 0$)re", 2,
     errorText + "Unable to create \"/tmp/product/qchemrc\"\n    File exists\n", Created::PartOfIt},
    {R"re(^mkdir\("/tmp/product/qchemrc")re", 2,
     errorText + "Unable to create \"/tmp/product/qchemrc\"\n    No space left on device\n",
     Created::Nothing},
    {R"re(^chmod\("/tmp/product/qchemrc")re", 2,
     errorText + "Unable to chmod \"/tmp/product/qchemrc\"\n    Operation not permitted\n",
     Created::PartOfIt},
    {R"re(^openat.*/qchemrc/(qchemrc|qcscratch)", O_WRONLY)re", 2,
     "\" for write\n    Too many open files\n", Created::PartOfIt},
    {R"re(^openat.*/corvane26_(samba|ssh)", O_WRONLY)re", 24, "\" for write\n", Created::PartOfIt},
    {R"re(^chmod)re", 2, "Unable to chmod \"/tmp/product/", Created::PartOfIt},
    {R"re(^write\(\d+</tmp/product)re", 2, isIncomplete + changedRunTimeFiles, Created::PartOfIt},
    {R"re(^openat.*/(qchemrc/.*|corvane26_samba|corvane26_ssh)", O_RDONLY)re", 2,
     isIncomplete + changedRunTimeFiles, Created::PartOfIt},
    {R"re(^openat.*"/proc/self/fd/.* instead of \d+</tmp/product/(qchemrc/|corvane26_s(amba|sh)>))re",
     2, isIncomplete + changedRunTimeFiles, Created::PartOfIt},
    {R"re(^openat.*"/proc/self/fd/.* instead of \d+</tmp/corvane26_commit_)re", 5,
     "cv_install: cannot write the commit script\n", Created::QChemAndSubmission},
    {R"re(^openat.*"/proc/self/fd/.* instead of \d+</tmp/product/corvane26(_snapshot)?>)re", 10,
     isIncomplete, Created::Everything},
    {R"re(^read\(\d+</tmp/product/(qchemrc/|corvane26_samba|corvane26_ssh).*, 16384\))re", 2,
     isIncomplete + changedRunTimeFiles, Created::PartOfIt},

    // The run of the commit script.
    {R"re(^(pipe2|clone|vfork|fork)\()re", 6, cannotStartScript, Created::QChemAndSubmission},

    // The check of the result, which finds a file that it cannot read.
    {R"re(^openat.*"/tmp/product/corvane26(_snapshot)?", .*O_PATH)re", 10, isIncomplete,
     Created::Everything},
    {R"re(^read\(\d+</tmp/product/corvane26(_snapshot)?>.*, 16384\))re", 10, isIncomplete,
     Created::Everything},
    {R"re(^read\(\d+</tmp/product/corvanerc.*, 16384\))re", 10, pageIsIncomplete,
     Created::Everything},
    {R"re(^openat.*/corvanerc/)re", 10, pageIsIncomplete, Created::Everything},
    // The directories on the way to a page.
    {R"re(^openat.*"/tmp/product", .*O_PATH)re", 10, pageIsIncomplete, Created::Everything},
    {R"re(^openat\(\d+</tmp/product>)re", 10, pageIsIncomplete, Created::Everything},
    {R"re(^(openat|read).*/fdinfo/)re", 10, pageIsIncomplete, Created::Everything},
    {R"re(^(openat|read).*/docroot/.*\.tar)re", 10, cannotReadArchive, Created::Everything},

    // The console.
    {R"re(^write\(1<)re", 0, LostOutput("No space left on device"), Created::Everything},
    {R"re(^write\(\d+<(/tmp/corvane26_setup_|/memfd:log))re", 0, logIsFull, Created::Everything},
};

// Removes numbers, texts, and names that do not influence the outcome of a call.
std::string KindOf(const FaultyRun::Call& call) {
    static const std::set<std::string> repeated = {"ioctl", "ppoll", "read", "statx", "write"};
    std::string text = call.text.substr(0, call.text.rfind(" = "));
    text = hx_test::ReplaceMatches(text, "0x[0-9a-f]+|commit_\\w+|setup_\\w+", "");
    text = hx_test::ReplaceMatches(text, "/corvanerc/[^\">]*", "/corvanerc/");
    if (repeated.contains(call.name))
        text = hx_test::ReplaceMatches(text, R"re("(\\.|[^"])*"\.*|[0-9]+)re", "");
    return text;
}

// The failed call, with its result in a setup without failures if it is the same call.
std::string Describe(const FaultyResult& result, const FaultyRun::Call& whole) {
    if (KindOf({whole.name, whole.number, result.call}) != KindOf(whole))
        return result.call;
    return result.call + " instead of " + whole.text.substr(whole.text.rfind(" = ") + 3);
}

// Begins the text of a call after the answers have been recorded. The setup is complete then. At
// most the manifest is missing, of which it warns.
const std::string recorded = "recorded: ";

// The state is saved after the plan, and before the library creates the install directory.
void MarkPhases(std::vector<FaultyRun::Call>& calls) {
    int reads = 0;
    for (FaultyRun::Call& call : calls) {
        if (call.text.find(createsTree) != std::string::npos)
            return;
        reads += call.text.find(readsTree) != std::string::npos ? 1 : 0;
        call.text += reads < 2 ? whilePlanning : whileSaving;
    }
}

const Outcome& OutcomeOf(const std::string& call) {
    static const Outcome none = {"", 0, "", Created::Everything};
    for (const Outcome& outcome : outcomes) {
        if (!hx_test::FirstMatch(call, outcome.call).empty())
            return outcome;
    }
    return none;
}

// Calls of one group have the same outcome if they fail. Those without one in the table also have
// the same top directory.
std::string GroupOf(const FaultyRun::Call& call) {
    const std::string text = hx_test::ReplaceMatches(call.text, "AT_FDCWD<[^>]*>", "");
    const size_t result = text.rfind(" = ") + 3;
    const Outcome& outcome =
        OutcomeOf(text.substr(0, result) + "-1 instead of " + text.substr(result));
    if (*outcome.call != '\0')
        return call.name + outcome.call;
    const hx_test::Match directory = hx_test::FirstMatch(text, R"re([<"]/?\w+)re");
    return call.name + (directory.empty() ? "" : directory.front());
}

// Ignores the modes: a file whose mode could not be set exists.
bool IsPartOf(const hx_test::Snapshot& part, const FaultyResult& whole) {
    for (const auto& [path, text] : part) {
        if (!whole.created.contains(path))
            return false;
    }
    return part.size() < whole.created.size() && !part.contains("corvanerc");
}

void ExpectCreated(const FaultyResult& result, const FaultyResult& whole, Created created) {
    switch (created) {
        case Created::Everything:
            EXPECT_TRUE(result.created == whole.created);
            return;
        case Created::OneThread:
            EXPECT_NE(result.created.at("QueueLimits").find("\nMaxThreads: 1\n"),
                      std::string::npos);
            EXPECT_EQ(result.created.size(), whole.created.size());
            return;
        case Created::Nothing:
            EXPECT_TRUE(result.created.empty());
            return;
        case Created::QChemAndSubmission:
            EXPECT_TRUE(result.created.contains("corvane26_ssh"));
            EXPECT_TRUE(result.created.contains("qchemrc/qcscratch"));
            [[fallthrough]];
        case Created::PartOfIt:
            EXPECT_TRUE(IsPartOf(result.created, whole));
    }
}

// Before the record of the previous setup is read, the state of an unfinished one is looked for.
bool IsAboutUnfinishedSetup(const FaultyResult& result, const FaultyResult& whole) {
    return result.call.find("\"/tmp/state") != std::string::npos && result.status == 0 &&
           result.err.empty() && result.created == whole.created;
}

void ExpectOutcome(const FaultyResult& result, const std::string& call, const FaultyResult& whole) {
    if (IsAboutUnfinishedSetup(result, whole))
        return;
    SCOPED_TRACE(call + "\n" + result.err);
    const bool isRecorded = call.starts_with(recorded);
    const std::string plain = isRecorded ? call.substr(recorded.size()) : call;
    // Their numbers vary, so one of the other phase may have failed.
    const bool varies = plain.starts_with("read(") || plain.starts_with("write(");
    if (isRecorded && varies && result.status != 0)
        return ExpectOutcome(result, plain, whole);
    const bool isOfEnd =
        varies &&
        (result.err.find("Its record is missing or incomplete") != std::string::npos ||
         plain.find("\"=== exit status") != std::string::npos ||
         (plain.find("/state.new>") != std::string::npos && !plain.ends_with(whileSaving)));
    if (isRecorded || isOfEnd) {
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.err.empty() || result.err.starts_with("cv_install: "));
        ExpectCreated(result, whole, Created::Everything);
        return;
    }
    const Outcome& outcome = OutcomeOf(call);
    EXPECT_EQ(result.status, outcome.status);
    if (outcome.err.empty())
        EXPECT_EQ(result.err, "");
    else
        EXPECT_NE(result.err.find(outcome.err), std::string::npos) << outcome.err;
    ExpectCreated(result, whole, outcome.created);
}

// Qt repeats some reads, and a read after the last byte loses nothing. Of two directories whose
// mounts are compared, the mount of the upper one need not be known.
bool LosesNothing(const FaultyResult& result, const FaultyResult& whole, bool every) {
    const bool isHarmless = result.call.find("/fdinfo/") != std::string::npos ||
                            (every && result.call.starts_with("read("));
    return isHarmless && result.status == 0 && result.err.empty() &&
           result.created == whole.created;
}

TEST(SystemCalls, FailWithExpectedOutcome) {
    HX_REQUIRE_FAULTY_RUNS();
    FaultyRun run({"-m", "777", "-s", "5", "-d", "/tmp", "--submission-scripts"});
    const FaultyResult whole = run.RunWhole();
    ASSERT_EQ(whole.status, 0) << whole.err;
    ASSERT_EQ(whole.err, "");
    const bool every = hx_test::TriesEveryFault();
    std::set<std::string> groups;
    int failed = 0;
    std::vector<FaultyRun::Call> calls = run.CallsOfSetup();
    MarkPhases(calls);
    // The last one opens the install directory for the manifest.
    const auto manifest = std::find_if(calls.rbegin(), calls.rend(), [](const auto& call) {
        return call.text.find(opensTree) != std::string::npos;
    });
    ASSERT_NE(manifest, calls.rend());
    for (const FaultyRun::Call& call : calls) {
        const std::string phase = &call < &*manifest ? "" : recorded;
        const auto error = errors.find(call.name);
        if (error == errors.end() || call.text.find("AT_EMPTY_PATH") != std::string::npos)
            continue;
        const bool isNew = groups.insert(phase + GroupOf(call)).second;
        if (!every && !(isNew && groups.size() % 6 == 0))
            continue;
        const FaultyResult result = run.Run(call.name, call.number, error->second);
        // The number of calls that read the script's output varies.
        failed += result.call.empty() ? 0 : 1;
        if (!LosesNothing(result, whole, every))
            ExpectOutcome(result, phase + Describe(result, call), whole);
    }
    RecordProperty("failures", failed);
    EXPECT_GT(failed, every ? 50 : 15);
}

// Without the answer of df about free space, the default is one gigabyte.
TEST(SystemCalls, DefaultScratchLimitToOneWithoutDf) {
    HX_REQUIRE_FAULTY_RUNS();
    FaultyRun run({"-m", "777", "-d", "/tmp"});
    const std::pair<const char*, int> calls[] = {
        {"pipe2", 1}, {"pipe2", 2}, {"pipe2", 3}, {"pipe2", 4}, {"clone", 1}};
    for (const auto& [name, number] : calls) {
        const FaultyResult result = run.Run(name, number, errors.at(name));
        SCOPED_TRACE(result.call + "\n" + result.err);
        EXPECT_NE(result.call, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.created.at("QueueLimits").ends_with("\nDiskPerThreadGB: 1\n"));
    }
}

// The first wait is for the start of the script.
TEST(SystemCalls, TerminateScriptThatCannotBeMonitored) {
    HX_REQUIRE_FAULTY_RUNS();
    FaultyRun run({"-m", "777", "-s", "5", "-d", "/tmp"});
    const FaultyResult result = run.RunWhen("ppoll", "2+", "ENOMEM");
    EXPECT_EQ(result.status, 128 + SIGTERM);
    EXPECT_NE(result.err.find(cannotMonitorScript), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("QProcess"), std::string::npos) << result.err;
}

}  // namespace
