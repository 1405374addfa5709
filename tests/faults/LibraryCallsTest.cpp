// Each call of the library in a setup as root fails once. Each failure has an outcome in these
// tables.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "harness/Child.h"
#include "harness/Pattern.h"
#include "machine/Snapshot.h"
#include "setuprun/CInstallBase.h"
#include "setuprun/CQueueLimits.h"
#include "setuprun/Machine.h"

namespace fs = std::filesystem;

namespace {

struct Step {
    const char* name;
    void (*act)(CInstallBase&);
};

void ChangeLimits(CInstallBase& run) {
    CQueueLimits limits(run.m_installDir.toUtf8().constData());
    limits.SetMaxThreads(5);
    std::printf("limits %d\n", limits.writeQueueLimits());
}

void WriteScript(CInstallBase& run) {
    QString path;
    std::printf("script %d\n", run.WriteCommitScript(path, false) ? 1 : 0);
}

template <int (CInstallBase::*writer)()>
void Write(CInstallBase& run) {
    (run.*writer)();
}

const Step steps[] = {
    {"job limit", [](CInstallBase& run) { run.PromptJobLimit(); }},
    {"memory limit", [](CInstallBase& run) { run.PromptMemoryLimit(); }},
    {"scratch directory", [](CInstallBase& run) { run.PromptScratchDirectory(); }},
    {"members", [](CInstallBase& run) { run.PromptComputeServiceGroupMembers(); }},
    {"directory", [](CInstallBase& run) { run.CreateInstallDirectory(); }},
    {"run script", Write<&CInstallBase::WriteCorvaneOLD>},
    {"snapshot script", Write<&CInstallBase::WriteCorvaneSnapshot>},
    {"link", Write<&CInstallBase::WriteCorvaneLink>},
    {"snapshot link", Write<&CInstallBase::WriteCorvaneSnapshotLink>},
    {"qchemrc", Write<&CInstallBase::WriteQChemRC>},
    {"qcscratch", Write<&CInstallBase::WriteQCScratch>},
    {"samba", Write<&CInstallBase::WriteCorvaneSamba>},
    {"ssh", Write<&CInstallBase::WriteCorvaneSsh>},
    {"queue entries", Write<&CInstallBase::CreateInternalQueueEntries>},
    {"queue limits", Write<&CInstallBase::WriteInternalQueueLimits>},
    {"limits", ChangeLimits},
    {"script", WriteScript},
};

// Prints the name of each step before it starts.
void RunEveryStep() {
    Arguments arguments({"/opt/corvane26/cv_install", "--cluster-node"});
    std::printf("@constructor\n");
    auto* run = new CInstallBase(false, arguments.argc(), arguments.argv());
    run->m_jobLimit = 4;
    for (const Step& step : steps) {
        std::printf("@%s\n", step.name);
        step.act(*run);
    }
    std::printf("@end\n");
}

std::string LastStep(const std::string& out) {
    const size_t mark = out.rfind("\n@");
    const size_t start = mark == std::string::npos ? 1 : mark + 2;
    return out.substr(start, out.find('\n', start) - start);
}

struct Outcome {
    const char* call;
    const char* step;  // the last one
    int status;
    const char* err;  // a pattern of the whole text
};

#define ERROR_TEXT "Corvane Install: Error\n    "

// Failures that end the setup. The error is always ENOSPC.
const Outcome ends[] = {
    {"getcwd", "constructor", 14,
     ERROR_TEXT "Unable to determine current working directory.  Aborting\n    No space left on "
                "device\n"},
    {"access", "directory", 2, ERROR_TEXT "Unable to mkdir \"/var\"\n    File exists\n"},
    {"mkdir", "directory", 2,
     ERROR_TEXT "Unable to mkdir \"/var/corvane\"\n    No space left on device\n"},
    {"chmod", "directory", 2,
     ERROR_TEXT "Unable to chmod \"/var/corvane\"\n    No space left on device\n"},
    {"fopen", "(run script|snapshot script|samba|ssh)", 28,
     ERROR_TEXT "Unable to open \"/var/corvane/corvane26(_snapshot|_samba|_ssh)?\" for write\n"},
    {"fopen", "(qchemrc|qcscratch)", 2,
     ERROR_TEXT "Unable to open file \"/var/corvane/qchemrc/(qchemrc|qcscratch)\" for write\n    "
                "No space left on device\n"},
    {"fopen", "queue (entries|limits)", 2,
     ERROR_TEXT "Unable to create \"/var/corvane/(queue_entries|QueueLimits)\"\n    No space left "
                "on device\n"},
    {"chmod", "(run script|snapshot script|samba|ssh|qchemrc|qcscratch|queue entries|queue limits)",
     2, ERROR_TEXT "Unable to chmod \"/var/corvane/.*\"\n    No space left on device\n"},
    {"mkdir", "qchemrc", 2,
     ERROR_TEXT "Unable to create \"/var/corvane/qchemrc\"\n    No space left on device\n"},
    {"access", "qcscratch", 2,
     ERROR_TEXT "Unable to create \"/var/corvane/qchemrc\"\n    File exists\n"},
    {"lstat", "(snapshot )?link", 2,
     ERROR_TEXT "Unable to lstat \"/usr/bin/corvane26(_snapshot)?\"\n    No space left on "
                "device\n"},
    {"unlink", "link", 2,
     ERROR_TEXT "Unable to remove \"/usr/bin/corvane26\"\n    No space left on device\n"},
    {"symlink", "(snapshot )?link", 2,
     ERROR_TEXT "Unable to create \"/usr/bin/corvane26(_snapshot)? link\"\n    No space left on "
                "device\n"},
};

// Failures that are reported or ignored.
const Outcome reported[] = {
    {"fopen", "end", 0, "  Error, can't open /proc/cpuinfo to read.\n"},
    {"mkstemp", "end", 0, "Writing Commit Script: mkstemp failed, No space left on device\n"},
    {"fdopen", "end", 0, "Writing Commit Script: fdopen failed\n"},
    {".*", "end", 0, ""},
};

bool Matches(const Outcome& outcome, const std::string& call, const std::string& step,
             const hx_test::ProcessResult& result) {
    return hx_test::IsMatch(call, outcome.call) && hx_test::IsMatch(step, outcome.step) &&
           result.status == outcome.status && hx_test::IsMatch(result.err, outcome.err);
}

bool IsExpected(const std::string& call, const hx_test::ProcessResult& result) {
    const std::string step = LastStep(result.out);
    const auto matches = [&](const Outcome& outcome) {
        return Matches(outcome, call, step, result);
    };
    return std::any_of(std::begin(ends), std::end(ends), matches) ||
           std::any_of(std::begin(reported), std::end(reported), matches);
}

hx_test::Snapshot FilesOf(const Machine& machine) {
    return hx_test::SnapshotOf(machine.Real("/"), {"var/corvane", "usr/bin"});
}

// After a failure the leak checker has neither its files nor a consistent state.
void SkipLeakCheck() {
    on_exit(
        [](int status, void*) {
            std::fflush(nullptr);
            _exit(status);
        },
        nullptr);
}

// `failing` is the value of HX_TEST_FAIL.
hx_test::ProcessResult RunEveryStepOn(Machine& machine, const std::string& failing) {
    machine.MakeLink("/usr/bin/corvane26", "elsewhere");
    return machine.Run(AsRoot, [&] {
        SkipLeakCheck();
        EXPECT_EQ(mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777,size=1m"), 0);
        setenv("HX_TEST_REACHED", "/var/reached", 1);
        setenv("HX_TEST_FAIL", failing.c_str(), 1);
        RunEveryStep();
    });
}

// The files of a setup without a failure.
const hx_test::Snapshot& Whole() {
    static const hx_test::Snapshot whole = [] {
        Machine machine;
        EXPECT_EQ(RunEveryStepOn(machine, "").status, 0);
        auto files = FilesOf(machine);
        EXPECT_GT(files.size(), 10U);
        return files;
    }();
    return whole;
}

// A setup that reports no failure has created all files, except limits whose failure
// writeQueueLimits returned. With an unknown number of cores it assumes one.
void ExpectCompleteUnlessReported(const hx_test::ProcessResult& result, const Machine& machine) {
    const bool limitsWritten = result.out.find("limits 0\n") != std::string::npos;
    const bool coresKnown = result.err.find("/proc/cpuinfo") == std::string::npos;
    if (result.status == 0 && limitsWritten && coresKnown) {
        EXPECT_TRUE(FilesOf(machine) == Whole());
    }
    EXPECT_EQ(result.out.find("script 0\n") != std::string::npos,
              result.err.starts_with("Writing Commit Script: "));
}

// Returns false if there is no call with that number.
bool FailOne(const std::string& call, int number) {
    Machine machine;
    const auto result = RunEveryStepOn(machine, call + ":" + std::to_string(number) + "=28");
    EXPECT_TRUE(IsExpected(call, result))
        << call << " " << number << " ended at " << LastStep(result.out) << " with "
        << result.status << "\n"
        << result.err;
    ExpectCompleteUnlessReported(result, machine);
    return fs::exists(machine.Real("/var/reached"));
}

class LibraryCalls : public testing::TestWithParam<const char*> {};

TEST_P(LibraryCalls, FailWithExpectedOutcome) {
    HX_REQUIRE_NAMESPACES();
    int number = 1;
    while (FailOne(GetParam(), number))
        ++number;
    EXPECT_GT(number, 1) << "nothing calls it";
}

INSTANTIATE_TEST_SUITE_P(Of, LibraryCalls,
                         testing::Values("access", "chmod", "close", "fclose", "fdopen", "fopen",
                                         "getcwd", "getgrnam_r", "getpwnam_r", "lstat", "mkdir",
                                         "mkstemp", "readlink", "setenv", "symlink", "unlink"),
                         [](const auto& call) { return std::string(call.param); });

}  // namespace
