// Setups as root without private mounts: killed, continued, and undone.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <optional>

#include "apps/RootSetup.h"
#include "apps/SetupMachine.h"
#include "apps/TracedSetup.h"
#include "harness/Effort.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

using namespace hx_test;

const std::vector<std::string> inPlaceNothing;

std::vector<std::string> InPlace(std::vector<std::string> command) {
    command.insert(command.begin(), {"/usr/bin/setpriv", "--bounding-set=-sys_admin"});
    return command;
}

ProcessResult RunAtRoot(const std::vector<std::string>& command) {
    ProcessOptions options;
    options.workingDirectory = "/";
    return Run(command, options);
}

ProcessResult UndoInPlace(const std::string& option = "--yes") {
    return RunAtRoot(InPlace({"/opt/corvane26/cv_install", "--undo", "--yes", option}));
}

struct SetupsInPlace {
    const char* name;
    SetupKind kind;
    Before before;
    size_t distance;  // of the points that are tried
};

const SetupsInPlace setupsInPlace[] = {
    {"Upgrade", internalQueue, Before::EarlierVersion, TriesEveryFault() ? 1u : 400u},
    {"First", internalQueue, Before::Nothing, 5},
    {"SameSetup", torqueWithSubmissionScripts, Before::SameSetup, 5},
};

class KilledInPlace : public testing::TestWithParam<SetupsInPlace> {};

// Kills each process of the setup at its calls, each time on a new machine, and returns the number
// of kills. A setup whose script was killed ends with a failure.
size_t KillEverywhere(const SetupsInPlace& row, const std::function<void()>& look,
                      const std::function<void()>& check) {
    const auto command = InPlace(SetupCommand(row.kind));
    const TracedResult whole = TraceUndisturbed(row.kind, row.before, command);
    size_t points = 0;
    for (const SetupProcess process :
         {SetupProcess::Parent, SetupProcess::Script, SetupProcess::Unpacking}) {
        const size_t calls = whole.calls[static_cast<size_t>(process)];
        for (size_t call = 1 + row.distance / 2; call <= calls; call += row.distance) {
            SCOPED_TRACE("process " + std::to_string(static_cast<int>(process)) + " call " +
                         std::to_string(call));
            HX_EXPECT_SCENARIO([&] {
                PrepareMachine(row.kind, row.before);
                look();
                const auto killed = RunTraced(command, {process, call, SIGKILL});
                SCOPED_TRACE(killed.struckCall + killed.output);
                WaitForOtherProcesses();
                // Kept for inspection.
                Shell("rm -f /tmp/corvane26_commit_*");
                check();
            });
            ++points;
        }
    }
    return points;
}

TEST_P(KilledInPlace, FurtherSetupGivesUndisturbedResult) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const SetupsInPlace& row = GetParam();
    const auto command = InPlace(SetupCommand(row.kind));
    const std::string undisturbed = ResultInRoot([&] {
        PrepareMachine(row.kind, row.before);
        EXPECT_EQ(RunAtRoot(command).status, 0);
        return WholeMachine();
    });
    const size_t points = KillEverywhere(
        row, [] {},
        [&] {
            const auto further = RunAtRoot(command);
            EXPECT_EQ(further.status, 0) << further.out << further.err;
            EXPECT_EQ(DifferingLines(undisturbed, WholeMachine()), inPlaceNothing) << further.out;
        });
    std::printf("kills of a setup in place that is run again: %zu\n", points);
}

// There is no state of a setup that was killed before it saved one and changed anything.
TEST_P(KilledInPlace, UndoRestoresMachine) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const SetupsInPlace& row = GetParam();
    std::optional<WholeState> before;
    const size_t points = KillEverywhere(
        row, [&] { before.emplace(); },
        [&] {
            const auto undo = UndoInPlace();
            EXPECT_TRUE(undo.status == 0 || undo.status == 68) << undo.status;
            EXPECT_EQ(DifferencesFrom(*before), inPlaceNothing) << undo.out << undo.err;
        });
    std::printf("kills of a setup in place that is undone: %zu\n", points);
}

INSTANTIATE_TEST_SUITE_P(Setups, KilledInPlace, testing::ValuesIn(TriedRows(setupsInPlace)),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(UndoInPlace, RestoresMachine) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& row : TriedRows(setupsInPlace)) {
        SCOPED_TRACE(row.name);
        HX_EXPECT_SCENARIO([&] {
            PrepareMachine(row.kind, row.before);
            const WholeState before;
            const auto setup = RunAtRoot(InPlace(SetupCommand(row.kind)));
            EXPECT_EQ(setup.status, 0) << setup.out << setup.err;
            EXPECT_NE(DifferencesFrom(before), inPlaceNothing);
            const auto undo = UndoInPlace();
            EXPECT_EQ(undo.status, 0) << undo.out << undo.err;
            EXPECT_EQ(undo.err, "");
            EXPECT_EQ(DifferencesFrom(before), inPlaceNothing) << undo.out;
        });
    }
}

}  // namespace
