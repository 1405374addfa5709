// cv_install --remove against the machine as it was before the first setup.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <set>
#include <span>

#include "apps/JsonSchema.h"
#include "apps/PlantedEntries.h"
#include "apps/RootSetup.h"
#include "apps/SetupMachine.h"
#include "apps/TracedSetup.h"
#include "harness/Effort.h"
#include "harness/TempDir.h"
#include "installation/Installation.h"
#include "machine/ThrowawayRoot.h"

namespace {

using namespace hx_test;

const std::vector<std::string> noLines;
const std::vector<std::string> purge = {"--purge"};

std::vector<std::string> RemoveCommand(const std::vector<std::string>& more) {
    std::vector<std::string> command = {"/opt/corvane26/cv_install", "--remove", "--yes"};
    command.insert(command.end(), more.begin(), more.end());
    return command;
}

ProcessResult RunRemoval(const std::vector<std::string>& more) {
    ProcessOptions options;
    options.workingDirectory = "/";
    return Run(RemoveCommand(more), options);
}

void ExpectRemoved(const std::vector<std::string>& more) {
    const auto removal = RunRemoval(more);
    EXPECT_EQ(removal.status, 0) << removal.out << removal.err;
    EXPECT_EQ(removal.err, "") << removal.out;
}

// The paths that differ.
std::set<std::string> PathsIn(const std::vector<std::string>& lines) {
    std::set<std::string> paths;
    for (const std::string& line : lines)
        paths.insert(line.substr(0, line.find(": ")));
    return paths;
}

// What a removal without --purge may leave: settings and the record, their directories, and the
// accounts.
bool MayStay(const std::string& path) {
    return path == "missing" || path == "surplus" || path.starts_with("/var/lib/corvane26") ||
           std::ranges::any_of(Entries(), [&](const Entry& entry) {
               const std::string own = PathOf(entry, sharedDirectory);
               return (path == own && entry.removal != Removal::Remove) ||
                      (entry.removesAllBelow && entry.removal == Removal::Purge &&
                       path.starts_with(own + '/'));
           });
}

struct RemovedSetups {
    const char* name;
    Before before;
    std::vector<SetupKind> setups;  // one after the other
    const char* between = ":";      // a shell command after each of them
    RootMode mode = RootMode::Staged;
};

const RemovedSetups removedSetups[] = {
    {"EarlierVersion", Before::EarlierVersion, {withMembers}},
    {"First", Before::Nothing, {internalQueue}},
    {"TwoVersions",
     Before::EarlierVersion,
     {withMembers, withMembers},
     "cd /opt/corvane26 && sed -i '2i # 26.1' corvane26.template corvane26_service_script"},
    {"ComputeNode", Before::EarlierVersion, {clusterNode}},
    {"SubmissionScripts", Before::SameSetup, {torqueWithSubmissionScripts}},
    {"InPlace", Before::Nothing, {internalQueue}, ":", RootMode::InPlace},
    {"FiveSetups",
     Before::OtherAnswers,
     {withOtherMembers, slurm, torqueWithSubmissionScripts, internalQueue, withMembers}},
};

class RemovedSetup : public testing::TestWithParam<RemovedSetups> {};

void RunSetups(const RemovedSetups& row) {
    for (const SetupKind& kind : row.setups) {
        const auto setup = row.mode == RootMode::Staged
                               ? RunSetup(kind)
                               : RunRootSetup({"--yes", "--internal-default-queue"}, {}, row.mode);
        ASSERT_EQ(setup.status, 0) << setup.out << setup.err;
        Shell(row.between);
    }
}

// At once, and after a removal that kept the settings.
TEST_P(RemovedSetup, LeavesMachineAsItWasBefore) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const RemovedSetups& row = GetParam();
    HX_EXPECT_SCENARIO([&] {
        PrepareMachine(row.setups.front(), row.before);
        Shell("cp -a /opt/corvane26 /opt/kept");
        const WholeState before;
        RunSetups(row);
        ExpectRemoved({});
        Shell("rm -r /opt/corvane26; cp -a /opt/kept /opt/corvane26");
        for (const std::string& path : PathsIn(DifferencesFrom(before)))
            EXPECT_TRUE(MayStay(path) || path.starts_with("/opt/")) << path;
        EXPECT_EQ(Shell("ls /var/lib/corvane26/private/answers"),
                  "/var/lib/corvane26/private/answers");
        ExpectRemoved(purge);
        EXPECT_EQ(DifferencesFrom(before), noLines);
        if (!TriesEveryFault())
            return;
        RunSetups(row);
        ExpectRemoved(purge);
        Shell("rm -r /opt/corvane26; cp -a /opt/kept /opt/corvane26");
        EXPECT_EQ(DifferencesFrom(before), noLines);
    });
}

INSTANTIATE_TEST_SUITE_P(Upgrade, RemovedSetup, testing::Values(removedSetups[0]),
                         [](const auto& test) { return std::string(test.param.name); });
INSTANTIATE_TEST_SUITE_P(Setups, RemovedSetup,
                         testing::ValuesIn(RowsOfSoak(std::span(removedSetups).subspan(1))),
                         [](const auto& test) { return std::string(test.param.name); });

std::vector<std::string> PathsOfTree() {
    std::vector<std::string> paths;
    for (const Entry& entry : Entries()) {
        const std::string path = PathOf(entry, sharedDirectory);
        if (IsInTree(entry) && path.find(randomPart) == std::string::npos &&
            Applies(entry, AsRoot | WithoutClusterNode))
            paths.push_back(path);
    }
    return paths;
}

constexpr const char* changesByOthers = R"sh(
find /var/corvane /etc/corvane26 /var/lib/corvane26 -maxdepth 9 -type d ! -path '*/private*' \
    -exec touch {}/mine \;
cd /var/corvane
mkdir -p corvanerc/corvane26server/CorvaneServerRepository/mine
echo job > corvanerc/corvane26server/CorvaneServerRepository/mine/mine
echo '1 chem waiting' > QueueEntries
echo >> QueueLimits
echo >> corvanerc/corvane26server/icons/mine.png
echo >> "$(find corvanerc/corvane26server/resources -type f ! -name mine | head -n 1)"
echo >> corvane26_snapshot
cd /etc/systemd/system
echo >> corvane26_service.service
mkdir -p corvane26_service.service.d
touch corvane26_service.service.d/mine.conf
)sh";

// Everything else is as before the first setup.
TEST(Removal, KeepsWhatOthersAddedOrChanged) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine(withMembers, Before::Nothing);
        const WholeState before;
        EXPECT_EQ(RunSetup(withMembers).status, 0);
        EXPECT_EQ(Shell(std::string("exec 2>&1; set -e; ") + changesByOthers), "");
        const std::string page = Shell(
            "find /var/corvane/corvanerc/corvane26server/resources -type f -size -2k ! -name mine "
            "-newer /var/corvane/QueueLimits");
        const auto removal = RunRemoval(purge);
        EXPECT_EQ(removal.status, 0) << removal.err;
        std::set<std::string> expected = {
            "/var/corvane/QueueEntries", "/var/corvane/corvane26_snapshot",
            "/etc/systemd/system/corvane26_service.service", "missing", "surplus"};
        for (const auto& entry : LinesOf(Shell(
                 "find /var/corvane /etc/corvane26 /etc/systemd/system/corvane26_service.service.d "
                 "/var/lib/corvane26 -name 'mine*' -o -size -9k "
                 "-newer /var/corvane/QueueEntries -type f"))) {
            for (std::filesystem::path path = entry; path.has_relative_path();
                 path = path.parent_path())
                expected.insert(path);
        }
        std::set<std::string> differing = PathsIn(DifferencesFrom(before));
        for (const std::string& path : differing)
            EXPECT_TRUE(expected.contains(path)) << path << '\n' << removal.out;
        for (const std::string& directory :
             {"/var/corvane", "/var/corvane/qchemrc",
              "/var/corvane/corvanerc/corvane26server/icons", "/etc/corvane26"}) {
            EXPECT_NE(removal.out.find("  " + directory + "/mine: is not from a setup\n"),
                      std::string::npos)
                << removal.out;
        }
        for (const char* line : {"  /var/corvane/QueueEntries: contains jobs\n",
                                 "  /var/corvane/corvane26_snapshot: changed after the setup\n"})
            EXPECT_NE(removal.out.find(line), std::string::npos) << line << removal.out;
        // They belong to the unit, which was edited.
        EXPECT_EQ(Shell("ls /etc/systemd/system/corvane26_service.service.d"), "mine.conf");
    });
}

// Members of the service group can write to the tree of another version.
TEST(Removal, NeedsFilesOfRootWithoutManifest) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell(
            "mkdir -p /var/corvane/qchemrc; cd /var/corvane; touch QueueLimits qchemrc/qchemrc; "
            "printf '\\ncvset CORV_ROOT \"/opt\"\\n' > corvane26");
        const WholeState before;
        const auto forged = RunRemoval(purge);
        EXPECT_EQ(forged.status, 0) << forged.err;
        EXPECT_EQ(forged.out, "Nothing to remove.\n");
        EXPECT_EQ(DifferencesFrom(before), noLines);
        EXPECT_FALSE(std::filesystem::exists("/var/log/corvane26_setup.log"));
        Shell("ln -s /var/corvane/corvane26 /usr/bin/corvane26");
        ExpectRemoved(purge);
        EXPECT_EQ(Shell("cd /var/corvane; find . | sort; ls -d /usr/bin/corvane26 2> /dev/null"),
                  ".\n./QueueLimits\n./qchemrc\n./qchemrc/qchemrc");
    });
}

struct KeptTree {
    const char* name;
    const char* before;  // shell commands before and after the setup
    const char* after;
    const char* kept;  // a file
    const char* shown;
};

const KeptTree keptTrees[] = {
    {"Link", "mkdir /srv/real; ln -s /srv/real /var/corvane", ":", "/srv/real/QueueLimits",
     "  /var/corvane: other machines may use it\n"},
    {"LinkToNothing", "mkdir /srv/real; ln -s /srv/real /var/corvane", "mv /srv/real /srv/away",
     "/srv/away/QueueLimits", "  /var/corvane: other machines may use it\n"},
    {"Mount", "mkdir /var/corvane; mount -t tmpfs none /var/corvane", ":",
     "/var/corvane/QueueLimits", "  /var/corvane: other machines may use it\n"},
    {"MountBelow", ":",
     "cp -a /var/corvane/qchemrc /srv; mount --bind /srv/qchemrc "
     "/var/corvane/qchemrc",
     "/srv/qchemrc/qchemrc", "  /var/corvane/qchemrc: is on another file system\n"},
};

class RemovalWithOtherTree : public testing::TestWithParam<KeptTree> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RemovalWithOtherTree);

TEST_P(RemovalWithOtherTree, KeepsTree) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const KeptTree& row = GetParam();
    HX_EXPECT_SCENARIO([&] {
        PrepareMachine(clusterNode, Before::Nothing);
        EXPECT_EQ(Shell(std::string("exec 2>&1; ") + row.before), "");
        EXPECT_EQ(RunSetup(clusterNode).status, 0);
        EXPECT_EQ(Shell(std::string("exec 2>&1; ") + row.after), "");
        const auto removal = RunRemoval(purge);
        EXPECT_EQ(removal.status, 0) << removal.err;
        EXPECT_NE(removal.out.find(row.shown), std::string::npos) << removal.out;
        EXPECT_TRUE(std::filesystem::exists(row.kept));
        EXPECT_EQ(Shell("ls -d /usr/bin/corvane26 /etc/corvane26 /var/lib/corvane26"), "");
    });
}

INSTANTIATE_TEST_SUITE_P(Trees, RemovalWithOtherTree, testing::ValuesIn(RowsOfSoak(keptTrees)),
                         [](const auto& test) { return std::string(test.param.name); });

class RemovalWithPlantedEntries : public testing::TestWithParam<size_t> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RemovalWithPlantedEntries);

// Each path of the tree is replaced.
TEST_P(RemovalWithPlantedEntries, ChangesNothing) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([&] {
        const Victims victims = {"/var/victim", "/var/corvane/secret"};
        PrepareMachine(withMembers, Before::EarlierVersion);
        EXPECT_EQ(RunSetup(withMembers).status, 0);
        WriteFile(victims.file, "secret");
        const auto kinds = PlantedEntries();
        const std::vector<std::string> paths = PathsOfTree();
        for (size_t i = paths.size(); i-- > 1;) {
            const PlantedEntry& planted = kinds[(i + GetParam()) % kinds.size()];
            // There is only one.
            if (std::string(planted.name) == "SecretDirectory")
                continue;
            std::filesystem::rename(paths[i], paths[i] + ".moved");
            planted.put(paths[i], victims);
        }
        const std::string state =
            "cat /var/victim; stat -c '%a %U:%G %h %y' /var/victim; find /var/corvane "
            "-name '*.moved' -o -type p -o -type s -o -type l | sort";
        const std::string before = Shell(state);
        const auto removal = RunRemoval(purge);
        EXPECT_TRUE(removal.status == 0 || removal.status == 8) << removal.out << removal.err;
        EXPECT_EQ(Shell(state), before) << removal.out;
    });
}

INSTANTIATE_TEST_SUITE_P(Kinds, RemovalWithPlantedEntries,
                         testing::ValuesIn(RowsOfSoak(NumbersOfPlantedEntries())));

struct RefusedRemoval {
    const char* name;
    const char* breaks;  // shell commands
    const char* restores;
    std::vector<std::string> options;
    int status;
    const char* message;
};

const RefusedRemoval refusedRemovals[] = {
    {"DryRun", ":", ":", {"--purge", "--dry-run"}, 0, ""},
    {"DamagedState",
     "cp -p state /run/kept; truncate -s -1 state",
     "mv /run/kept state",
     {},
     68,
     "/states/first\": it is damaged\n"},
    {"DamagedContent",
     "cp -p etc/init.d/corvane_service /run/kept;"
     "echo >> etc/init.d/corvane_service",
     "mv /run/kept etc/init.d/corvane_service",
     {},
     68,
     "cv_install: the saved content of \"/etc/init.d/corvane_service\" is damaged\n"},
    {"UnsafeDirectory", "chmod 777 /etc/corvane26", "chmod 755 /etc/corvane26", purge, 2,
     "cv_install: cannot read the service account in "},
};

TEST(Removal, ChangesNothingWhenRefused) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine(withMembers, Before::EarlierVersion);
        EXPECT_EQ(RunSetup(withMembers).status, 0);
        const WholeState after;
        const std::string cd = "exec 2>&1; cd /var/lib/corvane26/private/states/first && ";
        for (const RefusedRemoval& row : TriedRows(refusedRemovals)) {
            SCOPED_TRACE(row.name);
            EXPECT_EQ(Shell(cd + row.breaks), "");
            const auto removal = RunRemoval(row.options);
            EXPECT_EQ(removal.status, row.status) << removal.out;
            EXPECT_NE(removal.err.find(row.message), std::string::npos) << removal.err;
            EXPECT_EQ(Shell(cd + row.restores), "");
            EXPECT_EQ(DifferencesFrom(after), noLines) << removal.err;
        }
        const std::string report = runningServices + "/report";
        EXPECT_EQ(RunRemoval({"--purge", "--json", report}).status, 0);
        ExpectReport(ReadFile(report), R"({"action": "remove", "status": 0, "changed": true})");
        const auto further = RunRemoval(purge);
        EXPECT_EQ(further.status, 0) << further.err;
        EXPECT_NE(further.out.find("Nothing to remove.\n"), std::string::npos) << further.out;
    });
}

struct KilledRemovals {
    const char* name;
    Before before;
    std::vector<std::string> options;
    size_t distance;  // of the points that are tried
};

const KilledRemovals killedRemovals[] = {{"Upgrade", Before::EarlierVersion, purge, 2},
                                         {"First", Before::Nothing, purge, 10},
                                         {"KeptSettings", Before::EarlierVersion, {}, 10}};

class KilledRemoval : public testing::TestWithParam<KilledRemovals> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(KilledRemoval);

TEST_P(KilledRemoval, CompletesOnRerun) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const KilledRemovals& row = GetParam();
    const size_t points = StrikeEachCall(row.distance, [&](size_t call) {
        return ResultInRoot([&] {
            PrepareMachine(internalQueue, row.before);
            const WholeState before;
            EXPECT_EQ(RunSetup(internalQueue).status, 0);
            const auto killed =
                RunTraced(RemoveCommand(row.options), {SetupProcess::Parent, call, SIGKILL});
            WaitForOtherProcesses();
            EXPECT_EQ(RunRemoval(purge).status, 0);
            EXPECT_EQ(DifferencesFrom(before), noLines) << killed.output;
            return killed.struckCall;
        });
    });
    EXPECT_GT(points, 1u);
    std::printf("kills of a removal: %zu\n", points);
}

INSTANTIATE_TEST_SUITE_P(Setups, KilledRemoval, testing::ValuesIn(RowsOfSoak(killedRemovals)),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
