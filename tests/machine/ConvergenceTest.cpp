// A commit script that is killed after each of its commands in turn, and what a complete second
// setup run makes of the machine then: the same as an undisturbed one, but for the named
// exceptions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <sstream>

#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/Installation.h"
#include "machine/Interruption.h"
#include "machine/ServiceManager.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

// Two tests share the commands of a scenario, so that they can run at once. Under a sanitizer only
// some are tried.
#ifdef HX_TEST_KEEP_MALLOC
constexpr size_t Step = 10;
#else
constexpr size_t Step = 2;
#endif

const std::string State = ServiceManagerState;

// A kill after the command `from`, up to one before the end of the command `until`, leaves these
// paths other than an undisturbed run does.
struct Exception {
    std::string from;
    std::string until;
    std::vector<std::string> paths;
};

struct Scenario {
    std::function<void()> prepare;
    QStringList members;
    std::vector<Exception> exceptions;
};

CInstallBase& RunOf(const Scenario& scenario) {
    CInstallBase& run = NewRootRun();
    run.m_serviceMembers = scenario.members;
    return run;
}

// How many commands have ended with the first one, or with the last one, that starts like this.
size_t EndOfFirst(const std::vector<std::string>& commands, const std::string& text) {
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const auto& command) { return command.starts_with(text); });
    EXPECT_NE(found, commands.end()) << text;
    return static_cast<size_t>(found - commands.begin()) + 1;
}

size_t EndOfLast(const std::vector<std::string>& commands, const std::string& text) {
    const auto found = std::find_if(commands.rbegin(), commands.rend(),
                                    [&](const auto& command) { return command.starts_with(text); });
    EXPECT_NE(found, commands.rend()) << text;
    return static_cast<size_t>(commands.rend() - found);
}

// The paths that are to differ, by the number of commands after which the script is killed.
std::vector<std::vector<std::string>> ExpectedDifferences(
    const std::vector<Exception>& exceptions, const std::vector<std::string>& commands) {
    std::vector<std::vector<std::string>> expected(commands.size() + 1);
    for (const auto& exception : exceptions) {
        const size_t end = EndOfLast(commands, exception.until);
        for (size_t n = EndOfFirst(commands, exception.from); n < end; ++n)
            expected[n].insert(expected[n].end(), exception.paths.begin(), exception.paths.end());
    }
    for (auto& paths : expected)
        std::sort(paths.begin(), paths.end());
    return expected;
}

struct Tried {
    size_t killPoints = 0;
    size_t secondRuns = 0;  // a state like the one at the last kill point has had its second run
};

Tried KillAtEachCommand(const Scenario& scenario, size_t from,
                        const std::vector<std::string>& commands, const MachineState& undisturbed) {
    const auto expected = ExpectedDifferences(scenario.exceptions, commands);
    Tried tried;
    MachineState left;
    std::vector<std::string> differences;
    for (size_t n = from;; n += Step) {
        RestoreMachine();
        const TracedRun first = RunUntil(RunOf(scenario), n);
        if (!first.killed)
            return tried;
        ++tried.killPoints;
        EXPECT_TRUE(std::equal(first.commands.begin(), first.commands.end(), commands.begin()));
        EXPECT_EQ(first.commands.size(), n);
        MachineState now = LookAtMachine();
        if (now != left) {
            ++tried.secondRuns;
            left = std::move(now);
            const auto second = RunCommitScript(RunOf(scenario));
            EXPECT_EQ(second.status, 0) << second.out;
            differences = Differences(LookAtMachine(), undisturbed);
        }
        EXPECT_EQ(differences, expected[n]) << "killed after " << commands[n - 1];
    }
}

void TryAll(const Scenario& scenario, size_t from) {
    scenario.prepare();
    SaveMachine();
    ASSERT_EQ(RunCommitScript(RunOf(scenario)).status, 0);
    const MachineState undisturbed = LookAtMachine();
    ASSERT_EQ(RunCommitScript(RunOf(scenario)).status, 0);
    EXPECT_EQ(Differences(LookAtMachine(), undisturbed), std::vector<std::string>{});
    RestoreMachine();
    const TracedRun whole = RunUntil(RunOf(scenario), 100000);
    ASSERT_EQ(whole.status, 0);
    EXPECT_EQ(Differences(LookAtMachine(), undisturbed), std::vector<std::string>{});
    const Tried tried = KillAtEachCommand(scenario, from, whole.commands, undisturbed);
    // The last command has nothing behind it to be killed at.
    EXPECT_EQ(tried.killPoints, (whole.commands.size() - from + Step - 1) / Step);
    std::printf("kill points tried: %zu of %zu commands, leaving %zu states\n", tried.killPoints,
                whole.commands.size(), tried.secondRuns);
}

void ExpectConvergence(const Scenario& scenario, size_t from) {
    const auto result = RunInThrowawayRoot([&] { TryAll(scenario, from); });
    EXPECT_EQ(result.status, 0) << result.err;
    std::fputs(result.out.c_str(), stdout);
    testing::Test::RecordProperty("kill_points", result.out);
}

// The unit's text stands in its place, so that the second run takes it for installed.
const std::string UnitCopy =
    "${CP_CMD} -f \"${CORV_INSTALL_DIR}/corvane26_service.service\" /etc/systemd/system/";

// The unit is enabled only in the run that installs it.
const Exception NotEnabled = {UnitCopy, "${SYSTEMCTL_CMD} enable", {State + "/enabled/" + Unit}};

// The service manager reads a unit that it knows only at a reload, which is in that run, too.
const Exception OldUnitRuns = {UnitCopy,
                               "${SYSTEMCTL_CMD} daemon-reload",
                               {State + "/active/" + Unit, State + "/loaded/" + Unit}};

// So is the correction of its mode.
const Exception UnitMode = {UnitCopy, "/bin/chmod", {UnitFile}};

// The members who joined count as present in the second run: the wanted ones are then fewer than
// the present ones, which removes nobody.
const Exception NobodyLeaves = {
    "${USERMOD_CMD} --append", "${USERMOD_CMD} -G", {"/etc/group", "/etc/gshadow"}};

// The link is made in the run that makes the server's directory.
const Exception NoRepository = {
    "${MKDIR_CMD} --mode=775 \"${CORV_INSTALL_DIR}/corvanerc/corvane26server\"",
    "${LN_CMD} -s \"${CORV_INSTALL_DIR}/corvanerc/corvane24server",
    {Tree + "/corvanerc/corvane26server/CorvaneServerRepository"}};

// The first line empties the file that the second run reads the threads per molecule from.
const Exception NoThreadsPerMolecule = {
    "${ECHO_CMD} \"MaxThreads", "${ECHO_CMD} \"ThreadsPerMolecule", {Tree + "/QueueLimits"}};

void PrepareFirstInstallation() {
    PrepareMachine();
    AddPerson("ada", "people");
    AddPerson("bob", "people", {"others"});
}

// A tree with other owners and modes, links to elsewhere, and services of every age that run.
void PrepareUpgrade() {
    PrepareMachine();
    MakeServiceGroup({"ada", "bob", "zoe"});
    for (const char* name : {"carol", "dora"})
        AddPerson(name, "people");
    AddPerson(ServiceAccount, ServiceAccount);
    fs::create_directories(Tree + "/corvanerc/corvane24server/CorvaneServerRepository/jobs");
    for (const char* name : {"/corvane26", "/corvane26_snapshot"})
        WriteFile(Tree + name, "the last version's\n");
    WriteFile(Tree + "/QueueEntries", "1 chem waiting\n");
    WriteFile(Tree + "/QueueLimits",
              "MaxThreads: 12\nMemoryPerThreadMB: 1024\nScratch: /scratch/old\n"
              "DiskPerThreadGB: 10\nThreadsPerMolecule: 4\n");
    for (const char* name : {"", "/corvanerc", "/corvane26", "/QueueEntries", "/QueueLimits"})
        fs::permissions(Tree + name, fs::perms::owner_all);
    fs::create_symlink("/opt/corvane24/corvane", "/usr/bin/corvane26");
    fs::create_symlink("/opt/corvane24/snapshot", "/usr/bin/corvane26_snapshot");
    WriteFile(ServiceProgram, "the last version's\n");
    AddInitService(true);
    for (const char* unit : {"corvane20_service.service", "corvane24_service.service", Unit})
        AddUnit(unit, "[Service]\nExecStart=/usr/bin/old\n", true, true);
    fs::permissions(UnitFile, fs::perms::owner_all);
}

const Scenario FirstInstallation = {
    PrepareFirstInstallation, {QStringLiteral("ada"), QStringLiteral("bob")}, {NotEnabled}};

const Scenario Upgrade = {
    PrepareUpgrade,
    {QStringLiteral("ada"), QStringLiteral("carol"), QStringLiteral("dora")},
    {NobodyLeaves, NoRepository, NoThreadsPerMolecule, OldUnitRuns, UnitMode}};

class Convergence : public testing::TestWithParam<size_t> {};

TEST_P(Convergence, OfAFirstInstallation) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectConvergence(FirstInstallation, GetParam());
}

TEST_P(Convergence, OfAnUpgrade) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectConvergence(Upgrade, GetParam());
}

std::string ShareName(const testing::TestParamInfo<size_t>& share) {
    return share.param == 1 ? "OddCommand" : "EvenCommand";
}

INSTANTIATE_TEST_SUITE_P(AfterEvery, Convergence, testing::Values(1, 2), ShareName);

// What the two scenarios converge to is a changed machine.
TEST(ConvergenceOfTheScenarios, LeadsSomewhere) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareUpgrade();
        ASSERT_EQ(RunCommitScript(RunOf(Upgrade)).status, 0);
        EXPECT_EQ(Members(), "ada,carol,dora");
        EXPECT_TRUE(fs::is_symlink(Tree + "/corvanerc/corvane26server/CorvaneServerRepository"));
        EXPECT_EQ(ReadFile(Tree + "/QueueLimits"),
                  "MaxThreads: 12\nMemoryPerThreadMB: 2048\nScratch: /scratch/chem\n"
                  "DiskPerThreadGB: 50\nThreadsPerMolecule: 4\n");
        EXPECT_EQ(Mode(UnitFile), "644");
        EXPECT_EQ(ActiveText(Unit), ServiceUnit());
        EXPECT_FALSE(IsActive("corvane24_service.service"));
        EXPECT_EQ(fs::read_symlink("/usr/bin/corvane26"), Tree + "/corvane26");
    });
}

// A stand-in that does half of the work of `tool` and then kills the script's group with itself.
void InterruptWithin(const std::string& tool, const std::string& half) {
    fs::rename("/usr/bin/" + tool, "/usr/bin/" + tool + ".real");
    WriteFile("/usr/bin/" + tool,
              "#!/bin/sh\n" + half + "\nexec /usr/bin/" + tool + ".real \"$@\"\n");
    fs::permissions("/usr/bin/" + tool, fs::perms(0755));
}

// The paths at which a run that was killed within `tool`, and the complete one after it, differ
// from an undisturbed one.
std::vector<std::string> DifferencesAfterKillWithin(const std::string& tool,
                                                    const std::string& half) {
    PrepareFirstInstallation();
    SaveMachine();
    EXPECT_EQ(RunCommitScript(RunOf(FirstInstallation)).status, 0);
    const MachineState undisturbed = LookAtMachine();
    RestoreMachine();
    InterruptWithin(tool, half);
    EXPECT_TRUE(RunUntil(RunOf(FirstInstallation), 100000).killed);
    fs::rename("/usr/bin/" + tool + ".real", "/usr/bin/" + tool);
    EXPECT_EQ(RunCommitScript(RunOf(FirstInstallation)).status, 0);
    return Differences(LookAtMachine(), undisturbed);
}

TEST(ConvergenceOfAKillWithinACommand, WritesAHalfWrittenFileAgain) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string halfOfCopy = "{ cp.real \"$@\"; echo half > \"$3\"; kill -KILL 0; }";
    const std::pair<std::string, std::string> halves[] = {
        {"sed", "echo half; kill -KILL 0"},
        {"cp", halfOfCopy},
        {"cp", "[ \"$3\" != " + std::string(UnitFile) + " ] || " + halfOfCopy}};
    for (const auto& half : halves) {
        HX_EXPECT_SCENARIO([&] {
            EXPECT_EQ(DifferencesAfterKillWithin(half.first, half.second),
                      std::vector<std::string>{})
                << half.second;
        });
    }
}

// Server files are unpacked only where their directory is missing.
TEST(ConvergenceOfAKillWithinACommand, LeavesServerFilesHalfUnpacked) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const std::string server = Tree + "/corvanerc/corvane26server";
        const auto differences = DifferencesAfterKillWithin(
            "tar", "mkdir -m 750 " + server + "/resources; kill -KILL 0");
        EXPECT_EQ(differences, std::vector<std::string>{server + "/resources/resources.txt"});
    });
}

}  // namespace
