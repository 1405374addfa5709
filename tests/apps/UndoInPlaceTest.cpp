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

const std::vector<std::string> asRootInPlace = {"/usr/bin/setpriv", "--bounding-set=-sys_admin"};
const std::vector<std::string> asUserInPlace = {"/usr/bin/setpriv", "--reuid=4321", "--regid=4321",
                                                "--clear-groups"};

ProcessResult RunAtRoot(const std::vector<std::string>& command) {
    ProcessOptions options;
    options.workingDirectory = "/";
    return Run(command, options);
}

// Commit scripts and logs of users, also from before the test.
const char* const removeKept = "rm -f /tmp/corvane26_commit_* /tmp/corvane26_setup_*.log";

const char* const privateCopy =
    "useradd -u 4321 -m dora; mkdir -p /home/dora/.local/state; "
    "chown -R 4321:4321 /opt/corvane26 /home/dora";
// Without measured limits.
const SetupKind userMode = {
    "UserMode",
    {"--user-mode", "--submission-scripts", "--job-limit=2", "-m", "600", "-d", "/tmp", "-s", "3"}};

struct SetupsInPlace {
    const char* name;
    const std::vector<std::string>& identity;
    SetupKind kind;
    Before before;
    size_t distance;  // of the points that are tried
    const char* prepare = ":";

    std::vector<std::string> Command() const { return With(SetupCommand(kind)); }
    std::vector<std::string> Undo() const {
        return With({"/opt/corvane26/cv_install", "--undo", "--yes"});
    }

    void Prepare() const {
        PrepareMachine(kind, before);
        EXPECT_EQ(Shell(std::string("exec 2>&1; ") + prepare), "");
        Shell(removeKept);
    }

private:
    std::vector<std::string> With(std::vector<std::string> command) const {
        command.insert(command.begin(), identity.begin(), identity.end());
        return command;
    }
};

const SetupsInPlace setupsInPlace[] = {
    {"Upgrade", asRootInPlace, internalQueue, Before::EarlierVersion, 6},
    {"First", asRootInPlace, internalQueue, Before::Nothing, 60},
    {"SameSetup", asRootInPlace, torqueWithSubmissionScripts, Before::SameSetup, 60},
    {"ComputeNode", asRootInPlace, clusterNode, Before::EarlierVersion, 60},
    {"Copy", asUserInPlace, userMode, Before::Nothing, 4, privateCopy},
};

class KilledInPlace : public testing::TestWithParam<SetupsInPlace> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(KilledInPlace);

// Kills each process of the setup at its calls, each time on a new machine, and returns the number
// of kills. A setup whose script was killed ends with a failure.
size_t KillEverywhere(const SetupsInPlace& row, const std::function<void()>& look,
                      const std::function<void()>& check) {
    const TracedResult whole = TraceUndisturbed([&] { row.Prepare(); }, row.Command());
    size_t points = 0;
    for (const SetupProcess process :
         {SetupProcess::Parent, SetupProcess::Script, SetupProcess::Unpacking}) {
        const size_t calls = whole.calls[static_cast<size_t>(process)];
        for (size_t call = 1 + row.distance / 2; call <= calls; call += row.distance) {
            SCOPED_TRACE("process " + std::to_string(static_cast<int>(process)) + " call " +
                         std::to_string(call));
            HX_EXPECT_SCENARIO([&] {
                row.Prepare();
                look();
                const auto killed = RunTraced(row.Command(), {process, call, SIGKILL});
                SCOPED_TRACE(killed.struckCall + killed.output);
                WaitForOtherProcesses();
                Shell(removeKept);
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
    // The record has the time of the setup.
    const auto result = [] {
        Shell(std::string("rm -rf /home/dora; ") + removeKept);
        return WholeMachine();
    };
    const std::string undisturbed = ResultInRoot([&] {
        row.Prepare();
        EXPECT_EQ(RunAtRoot(row.Command()).status, 0);
        return result();
    });
    const size_t points = KillEverywhere(
        row, [] {},
        [&] {
            const auto further = RunAtRoot(row.Command());
            EXPECT_EQ(further.status, 0) << further.out << further.err;
            EXPECT_EQ(DifferingLines(undisturbed, result()), inPlaceNothing) << further.out;
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
            const auto undo = RunAtRoot(row.Undo());
            EXPECT_TRUE(undo.status == 0 || undo.status == 68) << undo.status;
            Shell(removeKept);
            EXPECT_EQ(DifferencesFrom(*before), inPlaceNothing) << undo.out << undo.err;
        });
    std::printf("kills of a setup in place that is undone: %zu\n", points);
}

INSTANTIATE_TEST_SUITE_P(Setups, KilledInPlace, testing::ValuesIn(RowsOfSoak(setupsInPlace)),
                         [](const auto& test) { return std::string(test.param.name); });

class UndoneInPlace : public testing::TestWithParam<SetupsInPlace> {};

TEST_P(UndoneInPlace, LeavesMachineAsItWasBefore) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const SetupsInPlace& row = GetParam();
    HX_EXPECT_SCENARIO([&] {
        row.Prepare();
        const WholeState before;
        const auto setup = RunAtRoot(row.Command());
        EXPECT_EQ(setup.status, 0) << setup.out << setup.err;
        EXPECT_NE(DifferencesFrom(before), inPlaceNothing);
        const auto undo = RunAtRoot(row.Undo());
        EXPECT_EQ(undo.status, 0) << undo.out << undo.err;
        EXPECT_EQ(undo.err, "");
        Shell(removeKept);
        EXPECT_EQ(DifferencesFrom(before), inPlaceNothing) << undo.out;
    });
}

INSTANTIATE_TEST_SUITE_P(Setups, UndoneInPlace, testing::ValuesIn(TriedRows(setupsInPlace)),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
