// cv_install --undo against the machine as it was before the setup.
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <set>

#include "apps/JsonSchema.h"
#include "apps/RootSetup.h"
#include "apps/SetupMachine.h"
#include "apps/TracedSetup.h"
#include "harness/Effort.h"
#include "harness/Expect.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

using namespace hx_test;

const std::vector<std::string> undoCommand = {"/opt/corvane26/cv_install", "--undo", "--yes"};

ProcessResult RunUndo(const std::vector<std::string>& more = {}) {
    std::vector<std::string> command = undoCommand;
    command.insert(command.end(), more.begin(), more.end());
    ProcessOptions options;
    options.workingDirectory = "/";
    return Run(command, options);
}

struct UndoneSetups {
    const char* name;
    Before before;
    std::vector<SetupKind> setups;  // one after the other, all undone
};

const UndoneSetups undoneSetups[] = {
    {"First", Before::Nothing, {internalQueue}},
    {"Upgrade", Before::EarlierVersion, {withMembers}},
    {"ChangedMembers", Before::OtherAnswers, {withOtherMembers}},
    {"ComputeNode", Before::EarlierVersion, {clusterNode}},
    {"SubmissionScripts", Before::SameSetup, {torqueWithSubmissionScripts}},
    {"TwoSetups", Before::Nothing, {withMembers, torqueWithSubmissionScripts}},
};

class UndoneSetup : public testing::TestWithParam<UndoneSetups> {};

TEST_P(UndoneSetup, LeavesMachineAsItWasBefore) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const UndoneSetups& row = GetParam();
    HX_EXPECT_SCENARIO([&] {
        PrepareMachine(row.setups.front(), row.before);
        std::vector<WholeState> before;
        for (const SetupKind& kind : row.setups) {
            before.emplace_back();
            const auto setup = RunSetup(kind);
            ASSERT_EQ(setup.status, 0) << setup.out << setup.err;
            EXPECT_NE(DifferencesFrom(before.back()), std::vector<std::string>{});
        }
        for (; !before.empty(); before.pop_back()) {
            const auto undo = RunUndo();
            EXPECT_EQ(undo.status, 0) << undo.out << undo.err;
            EXPECT_EQ(undo.err, "");
            EXPECT_EQ(DifferencesFrom(before.back()), std::vector<std::string>{}) << undo.out;
        }
        const auto further = RunUndo();
        EXPECT_EQ(further.status, 68) << further.out << further.err;
    });
}

INSTANTIATE_TEST_SUITE_P(Setups, UndoneSetup, testing::ValuesIn(TriedRows(undoneSetups)),
                         [](const auto& test) { return std::string(test.param.name); });

const std::vector<std::string> nothing;

struct KilledSetups {
    const char* name;
    SetupKind kind;
    Before before;
    size_t distance;  // of the points that are tried
};

// A first setup is a part of an upgrade.
const KilledSetups killedSetups[] = {
    {"Upgrade", internalQueue, Before::EarlierVersion, TriesEveryFault() ? 2 : PointStep()},
    {"First", internalQueue, Before::Nothing, 10}};

class KilledAndUndone : public testing::TestWithParam<KilledSetups> {};

// No state is saved if the setup was killed before its first change, or if it failed and reverted
// its changes.
void ExpectUndone(const WholeState& before) {
    const auto undo = RunUndo();
    EXPECT_TRUE(undo.status == 0 || undo.status == 68) << undo.status;
    EXPECT_EQ(DifferencesFrom(before), nothing) << undo.out << undo.err;
    EXPECT_EQ(OtherProcesses(), nothing);
}

TEST_P(KilledAndUndone, SetupIsUndone) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const KilledSetups& row = GetParam();
    const TracedResult whole =
        TraceUndisturbed([&] { PrepareMachine(row.kind, row.before); }, SetupCommand(row.kind));
    size_t points = 0;
    for (size_t call = whole.callsBeforeMerge + 1; call <= whole.calls[0]; call += row.distance) {
        SCOPED_TRACE("call " + std::to_string(call));
        HX_EXPECT_SCENARIO([&] {
            PrepareMachine(row.kind, row.before);
            const WholeState before;
            const auto killed =
                RunTraced(SetupCommand(row.kind), {SetupProcess::Parent, call, SIGKILL});
            // The number of calls varies a little.
            EXPECT_EQ(killed.status, killed.struckCall.empty() ? 0 : 128 + SIGKILL)
                << killed.output;
            WaitForOtherProcesses();
            ExpectUndone(before);
        });
        ++points;
    }
    std::printf("kills of a setup that is undone: %zu of %zu calls\n", points,
                whole.calls[0] - whole.callsBeforeMerge);
}

TEST_P(KilledAndUndone, UndoCompletesOnRerun) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const KilledSetups& row = GetParam();
    const size_t points = StrikeEachCall(row.distance, [&](size_t call) {
        return ResultInRoot([&] {
            PrepareMachine(row.kind, row.before);
            const WholeState before;
            EXPECT_EQ(RunSetup(row.kind).status, 0);
            const auto killed = RunTraced(undoCommand, {SetupProcess::Parent, call, SIGKILL});
            WaitForOtherProcesses();
            if (!killed.struckCall.empty())
                ExpectUndone(before);
            EXPECT_EQ(DifferencesFrom(before), nothing) << killed.output;
            return killed.struckCall;
        });
    });
    EXPECT_GT(points, 1u);
    std::printf("kills of an undo: %zu\n", points);
}

INSTANTIATE_TEST_SUITE_P(Setups, KilledAndUndone, testing::ValuesIn(TriedRows(killedSetups)),
                         [](const auto& test) { return std::string(test.param.name); });

struct ForeignChange {
    const char* name;
    const char* change;               // a shell command after the setup
    const char* shown;                // by the undo
    std::vector<std::string> kept;    // paths that are not as before the setup
    std::vector<std::string> forced;  // the same with --force
};

const ForeignChange foreignChanges[] = {
    {"EditedLimits",
     "echo '# mine' >> /var/corvane/QueueLimits",
     "  /var/corvane/QueueLimits: changed after the setup; --force restores it\n",
     {"/var/corvane/QueueLimits"},
     {}},
    {"EditedUnit",
     "echo '# mine' >> /etc/systemd/system/corvane26_service.service",
     "  /etc/systemd/system/corvane26_service.service: changed after the setup; --force restores "
     "it\n",
     {"/etc/systemd/system/corvane26_service.service"},
     {}},
    {"Mode",
     "chmod 700 /var/corvane/corvane26",
     "  /var/corvane/corvane26: changed after the setup; --force restores it\n",
     {"/var/corvane/corvane26"},
     {}},
    {"OtherFile",
     "touch /var/corvane/qchemrc/mine",
     "  /var/corvane/qchemrc: has other entries\n",
     {"/var/corvane/qchemrc", "/var/corvane/qchemrc/mine"},
     {"/var/corvane/qchemrc", "/var/corvane/qchemrc/mine"}},
    {"Link",
     "cd /var/corvane && mv corvane26_snapshot /srv/moved && ln -s /srv/moved corvane26_snapshot",
     "  /var/corvane/corvane26_snapshot: changed after the setup; --force restores it\n",
     {"/srv/moved", "/var/corvane/corvane26_snapshot"},
     {"/srv/moved"}},
    {"MovedPages",
     "cd /var/corvane/corvanerc/corvane26server && mv icons /srv/icons && mkdir icons &&"
     " chown corvsrvc:corvsrvc icons",
     "",
     {"/srv/icons"},
     {"/srv/icons"}},
};

// Everything else is as before the setup.
TEST(Undo, KeepsWhatOthersChangedUnlessForced) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const bool force : {false, true}) {
        HX_EXPECT_SCENARIO([&] {
            PrepareMachine(withMembers, Before::EarlierVersion);
            const WholeState before;
            EXPECT_EQ(RunSetup(withMembers).status, 0);
            std::set<std::string> expected;
            for (const ForeignChange& row : foreignChanges) {
                EXPECT_EQ(Shell(std::string("exec 2>&1; ") + row.change), "");
                const auto& paths = force ? row.forced : row.kept;
                expected.insert(paths.begin(), paths.end());
            }
            const auto undo = RunUndo(force ? std::vector<std::string>{"--force"} : nothing);
            EXPECT_EQ(undo.status, 0) << undo.err;
            EXPECT_EQ(undo.err, "");
            for (const ForeignChange& row : foreignChanges) {
                const bool isShown = undo.out.find(row.shown) != std::string::npos;
                EXPECT_TRUE(isShown || force) << row.shown << undo.out;
            }
            std::set<std::string> differing;
            for (const std::string& line : DifferencesFrom(before))
                differing.insert(line.substr(0, line.find(": ")));
            std::erase_if(differing,
                          [](const std::string& path) { return path.starts_with("/srv/icons/"); });
            EXPECT_EQ(differing, expected) << undo.out;
        });
    }
}

TEST(Undo, KeepsAccountThatIsUsed) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine(internalQueue, Before::Nothing);
        const WholeState before;
        EXPECT_EQ(RunSetup(internalQueue).status, 0);
        Shell("touch /tmp/result && chown corvsrvc /tmp/result");
        // The manager may be about to start it again.
        Shell("rm /run/hx_services/active/corvane26_service");
        TakeServiceCalls();
        const auto undo = RunUndo();
        EXPECT_EQ(undo.status, 0) << undo.out;
        EXPECT_EQ(undo.err,
                  "cv_install: warning: cannot delete user \"corvsrvc\": used by /tmp/result\n"
                  "    Make sure that nothing uses it, then delete it.\n");
        EXPECT_EQ(Shell("id -un corvsrvc; id -gn corvsrvc"), "corvsrvc\ncorvsrvc");
        ExpectHolds(JoinLines(TakeServiceCalls()), "systemctl stop corvane26_service.service\n");
        Shell("rm /tmp/result; userdel corvsrvc");
        EXPECT_EQ(DifferencesFrom(before), nothing);
    });
}

struct RefusedUndo {
    const char* name;
    const char* breaks;  // shell commands
    const char* restores;
    std::vector<std::string> options;
    int status;
    const char* message;
};

const std::string savedState = "/var/lib/corvane26/private/states/1";

const RefusedUndo refusedUndos[] = {
    {"DryRun", ":", ":", {"--dry-run", "--diff"}, 0, ""},
    {"FailingTool",
     "mv /usr/bin/gpasswd /usr/bin/gpasswd.real; ln -s /bin/false /usr/bin/gpasswd",
     "mv /usr/bin/gpasswd.real /usr/bin/gpasswd",
     {},
     2,
     "    Fix the cause, then run the undo again.\n"},
    {"DamagedContent",
     "cd STATE/tree; cp -p QueueLimits /run/kept; echo >> QueueLimits",
     "mv /run/kept STATE/tree/QueueLimits",
     {},
     68,
     "cv_install: the saved content of \"/var/corvane/QueueLimits\" is damaged\n"},
    {"MissingContent",
     "mv STATE/etc/init.d/corvane_service /run/kept",
     "mv /run/kept STATE/etc/init.d/corvane_service",
     {},
     68,
     "cv_install: the saved content of \"/etc/init.d/corvane_service\" is damaged\n"},
    {"DamagedState",
     "cd STATE; cp -p state /run/kept; truncate -s -1 state",
     "mv /run/kept STATE/state",
     {},
     68,
     "/states/1\": it is damaged\n"},
    {"OtherMachine",
     "cp -p /etc/machine-id /run/kept; echo 0123456789abcdef0123456789abcdef > /etc/machine-id",
     "mv /run/kept /etc/machine-id",
     {},
     68,
     "/states/1\": it is from another machine\n"},
};

std::string InState(const std::string& command) {
    return ReplaceMatches(command, "STATE", savedState);
}

TEST(Undo, ChangesNothingWhenRefused) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine(withMembers, Before::EarlierVersion);
        WriteFile("/etc/machine-id", "00112233445566778899aabbccddeeff\n");
        EXPECT_EQ(RunSetup(withMembers).status, 0);
        // The state of what is touched later is known only of files that were touched before.
        Shell("chmod 4755 /usr/bin/gpasswd");
        const WholeState after;
        for (const RefusedUndo& row : refusedUndos) {
            SCOPED_TRACE(row.name);
            EXPECT_EQ(Shell("exec 2>&1; " + InState(row.breaks)), "");
            const auto undo = RunUndo(row.options);
            EXPECT_EQ(undo.status, row.status) << undo.out;
            EXPECT_NE(undo.err.find(row.message), std::string::npos) << undo.err;
            EXPECT_EQ(undo.out.find("\n+old run script\n") != std::string::npos, row.status == 0)
                << undo.out;
            EXPECT_EQ(Shell("exec 2>&1; " + InState(row.restores)), "");
            EXPECT_EQ(DifferencesFrom(after), nothing) << undo.err;
        }
        const std::string report = runningServices + "/report";
        EXPECT_EQ(RunUndo({"--json", report}).status, 0);
        ExpectReport(ReadFile(report), R"({"action": "undo", "status": 0, "changed": true})");
    });
}

TEST(Undo, CompletesFailedSetupThatWasNotTakenBack) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine(withMembers, Before::Nothing);
        // The state of what is touched later is known only of files that were touched before.
        Shell("chmod 4755 /usr/bin/gpasswd; chmod 755 /usr/sbin/userdel");
        const WholeState before;
        const std::string each = "for tool in /usr/bin/gpasswd /usr/sbin/userdel; do ";
        Shell(each + "mv $tool $tool.real; ln -s /bin/false $tool; done");
        const auto setup = RunSetup(withMembers);
        EXPECT_EQ(setup.status, 2) << setup.out;
        EXPECT_NE(setup.err.find("warning: cannot undo a change of the accounts: "),
                  std::string::npos)
            << setup.err;
        EXPECT_EQ(setup.err.find("No changes were made."), std::string::npos) << setup.err;
        Shell(each + "mv $tool.real $tool; done");
        const auto undo = RunUndo();
        EXPECT_EQ(undo.status, 0) << undo.err;
        EXPECT_EQ(DifferencesFrom(before), nothing) << undo.out;
    });
}

// The record itself needs five entries.
void ExpectEndOnFullDisk(RootMode mode) {
    HX_EXPECT_SCENARIO([&] {
        PrepareMachine(internalQueue, Before::EarlierVersion);
        Shell(
            "mkdir /var/lib/corvane26; mount -t tmpfs -o nr_inodes=8,mode=755 none "
            "/var/lib/corvane26");
        const WholeState before;
        const auto setup = RunRootSetup({"--yes"}, {}, mode);
        EXPECT_EQ(setup.status, 2) << setup.out;
        EXPECT_NE(setup.err.find(" for --undo: No space left on device\n"), std::string::npos)
            << setup.err;
        EXPECT_NE(setup.err.find("    No changes were made.\n"), std::string::npos) << setup.err;
        EXPECT_EQ(DifferencesFrom(before), nothing);
        EXPECT_EQ(Shell("find /var/lib/corvane26 -mindepth 1; umount /var/lib/corvane26"), "");
    });
}

TEST(SavedStates, StopSetupBeforeFirstChangeOnFullDisk) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const RootMode mode : TriedRows(std::array{RootMode::InPlace, RootMode::Staged}))
        ExpectEndOnFullDisk(mode);
}

}  // namespace
