// Setups as root that fail, are declined, or are killed.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "apps/RootSetup.h"
#include "apps/SetupMachine.h"
#include "apps/TracedSetup.h"
#include "harness/Effort.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

using namespace hx_test;

struct FailingTool {
    const char* tool;
    const char* call;  // a shell pattern for the call that fails
    SetupKind kind;
    Before before;
    int status = 1;
};

const FailingTool failingTools[] = {
    {"/usr/sbin/groupadd", "*", internalQueue, Before::Nothing},
    {"/usr/sbin/useradd", "*", internalQueue, Before::Nothing},
    {"/usr/bin/mkdir", "*/corvanerc", internalQueue, Before::Nothing},
    {"/usr/bin/mkdir", "*/corvanerc/corvane26", internalQueue, Before::Nothing},
    {"/usr/bin/mkdir", "*/corvane26server", internalQueue, Before::EarlierVersion},
    {"/usr/bin/tar", "*resources.tar", internalQueue, Before::Nothing},
    {"/usr/bin/tar", "*icons.tar", internalQueue, Before::EarlierVersion},
    {"/usr/bin/sed", "*/corvane26.template", internalQueue, Before::Nothing},
    {"/usr/bin/sed", "*/corvane26.template", clusterNode, Before::EarlierVersion},
    {"/usr/bin/sed", "*snapshot.template", internalQueue, Before::OtherAnswers},
    {"/usr/bin/sed", "*service.template", internalQueue, Before::Nothing},
    {"/usr/bin/chmod", "*/corvane26", internalQueue, Before::Nothing},
    {"/usr/bin/chmod", "*/corvane26_snapshot", internalQueue, Before::EarlierVersion},
    {"/usr/bin/touch", "*/QueueEntries", internalQueue, Before::Nothing},
    {"/usr/bin/rm", "/usr/bin/corvane26", internalQueue, Before::EarlierVersion},
    {"/usr/bin/ln", "*/usr/bin/corvane26", internalQueue, Before::Nothing},
    {"/usr/bin/ln", "*/usr/bin/corvane26_snapshot", internalQueue, Before::EarlierVersion},
    {"/usr/bin/cp", "*/usr/bin/corvane26_service_script", internalQueue, Before::EarlierVersion},
    // The script continues, and the setup finds what is missing.
    {"/usr/bin/cp", "*/etc/systemd/system/*", internalQueue, Before::Nothing, 10},
    {"/usr/bin/chown", "*", internalQueue, Before::Nothing, 10},
};

// A setup whose script fails keeps the script.
std::string KeptScript(const std::string& output) {
    const Match found = FirstMatch(output, "    Commit script: (/tmp/corvane26_commit_\\w+)\n");
    return found.empty() ? std::string() : found[1];
}
const std::set<std::string> failureDirectories = {"/run", "/var/log", "/tmp"};

TEST(StagedFailure, LeavesMachineAsItWasWhenToolFails) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const FailingTool& row : TriedRows(failingTools)) {
        SCOPED_TRACE(std::string(row.tool) + ' ' + row.call);
        HX_EXPECT_SCENARIO([&] {
            PrepareMachine(row.kind, row.before);
            const std::string real = std::string(row.tool) + ".real";
            std::filesystem::rename(row.tool, real);
            AddProgram(row.tool, std::string("#!/bin/sh\ncase \"$*\" in ") + row.call +
                                     ") exit 1;; esac\nexec " + real + " \"$@\"\n");
            const MachineState before = StateOfTouchedPaths();
            const auto result = RunSetup(row.kind);
            EXPECT_EQ(result.status, row.status) << result.out << result.err;
            const std::string script = KeptScript(result.err);
            EXPECT_NE(result.err.find(script + "\n    Log: "), std::string::npos) << result.err;
            EXPECT_EQ(Shell("stat -c %a:%u " + script + "; tail -n 1 " + script), "600:0\nexit 0");
            std::filesystem::remove(script);
            EXPECT_EQ(TracesOf(before, failureDirectories), std::vector<std::string>{});
        });
    }
}

TEST(StagedFailure, LeavesMachineAsItWasWhenDeclined) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const Before start : {Before::Nothing, Before::OtherAnswers, Before::EarlierVersion}) {
        HX_EXPECT_SCENARIO([&] {
            SetupKind declined = withMembers;
            const std::string answers = std::string(declined.answers) + "\n\n\nn\n";
            declined.answers = answers.c_str();
            PrepareMachine(withMembers, start);
            const MachineState before = StateOfTouchedPaths();
            const auto result = RunSetup(declined);
            EXPECT_EQ(result.status, 9) << result.out << result.err;
            EXPECT_EQ(TracesOf(before, logDirectories), std::vector<std::string>{});
        });
    }
}

struct Interrupted {
    const char* name;
    SetupKind kind;
    Before before;
};

const Interrupted interrupted[] = {
    {"Upgrade", internalQueue, Before::EarlierVersion},
    {"First", internalQueue, Before::Nothing},
};

class KilledSetup : public testing::TestWithParam<Interrupted> {};

TEST_P(KilledSetup, LeavesMachineAsItWasBeforeMerge) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const Interrupted& row = GetParam();
    const TracedResult whole =
        TraceUndisturbed([&] { PrepareMachine(row.kind, row.before); }, SetupCommand(row.kind));
    ASSERT_GT(whole.callsBeforeMerge, 5u);
    const CallCounts ends = {whole.callsBeforeMerge, whole.calls[1], whole.calls[2]};
    const std::string tried = ResultInRoot([&] {
        PrepareMachine(row.kind, row.before);
        // The lock exists after the first setup.
        const MachineState before = StateOfTouchedPaths();
        size_t points = 0;
        for (size_t process = 0; process < setupProcesses; ++process) {
            for (size_t call = 1; call <= ends[process]; call += PointStep()) {
                // Every third signal is one that can be caught.
                const int signal = ++points % 3 == 0 ? SIGTERM : SIGKILL;
                const auto result = RunTraced(SetupCommand(row.kind),
                                              {static_cast<SetupProcess>(process), call, signal});
                SCOPED_TRACE(result.struckCall + " signal " + std::to_string(signal));
                EXPECT_NE(result.struckCall, "") << process << ' ' << call;
                EXPECT_NE(result.status, 0) << result.output;
                WaitForOtherProcesses();
                std::filesystem::remove(KeptScript(result.output));
                EXPECT_EQ(TracesOf(before, failureDirectories), std::vector<std::string>{});
                if (testing::Test::HasFailure())
                    return std::string("failed");
            }
        }
        return std::to_string(points);
    });
    std::printf("signals before the merge: %s\n", tried.c_str());
}

TEST_P(KilledSetup, IsCompletedByFurtherSetupAfterMergeBegan) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const Interrupted& row = GetParam();
    const TracedResult whole =
        TraceUndisturbed([&] { PrepareMachine(row.kind, row.before); }, SetupCommand(row.kind));
    const std::string undisturbed = ResultInRoot([&] {
        PrepareMachine(row.kind, row.before);
        EXPECT_EQ(RunSetup(row.kind).status, 0);
        return WholeMachine();
    });
    size_t points = 0;
    for (size_t call = whole.callsBeforeMerge + 1; call <= whole.calls[0]; call += PointStep()) {
        SCOPED_TRACE("call " + std::to_string(call));
        const std::string completed = ResultInRoot([&] {
            PrepareMachine(row.kind, row.before);
            const auto killed =
                RunTraced(SetupCommand(row.kind), {SetupProcess::Parent, call, SIGKILL});
            // The number of calls varies a little.
            EXPECT_EQ(killed.status, killed.struckCall.empty() ? 0 : 128 + SIGKILL)
                << killed.output;
            const auto further = RunSetup(row.kind);
            EXPECT_EQ(further.status, 0) << further.out << further.err;
            EXPECT_EQ(OtherProcesses(), std::vector<std::string>{});
            return WholeMachine();
        });
        EXPECT_EQ(DifferingLines(undisturbed, completed), std::vector<std::string>{});
        ++points;
    }
    std::printf("kills in the merge: %zu\n", points);
}

INSTANTIATE_TEST_SUITE_P(Setups, KilledSetup, testing::ValuesIn(TriedRows(interrupted)),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
