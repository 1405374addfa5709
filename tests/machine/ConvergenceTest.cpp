// Kills a commit script after each of its commands in turn. A complete second setup must then
// leave the same machine as an undisturbed one, with a few known exceptions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>

#include "harness/Effort.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/Installation.h"
#include "machine/Interruption.h"
#include "machine/ServiceManager.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

// A kill after the command `from`, up to the one before the end of `until`, leaves these paths
// different from those of an undisturbed setup.
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

// The number of commands up to the first one, or the last one, that starts with `text`.
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

// The expected differences by the number of commands before the kill.
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

// Conditions, assignments, and output on the terminal leave the machine as it was.
bool CanChangeMachine(const std::string& command) {
    static const std::string harmless =
        R"((\[|if |case |for |local |return|exit|unset|export |\w+=|echo |\$\{ECHO_CMD\} [^>]*$).*)";
    return !IsMatch(command, harmless);
}

// The numbers of commands after which the script is killed: of those that can change the machine
// every 36th, and where the known exceptions change; with HX_TEST_EVERY_FAULT after every command.
std::vector<size_t> KillPoints(const std::vector<std::string>& commands,
                               const std::vector<std::vector<std::string>>& expected) {
    const bool every = TriesEveryFault();
    std::vector<size_t> points;
    for (size_t n = 1, changes = 0; n < commands.size(); ++n) {
        const bool canChange = CanChangeMachine(commands[n - 1]);
        changes += canChange ? 1 : 0;
        if (every || (canChange && (changes % 36 == 0 || expected[n] != expected[n - 1])))
            points.push_back(n);
    }
    return points;
}

void KillAtEachPoint(const Scenario& scenario, const std::vector<std::string>& commands,
                     const Snapshot& undisturbed) {
    const auto expected = ExpectedDifferences(scenario.exceptions, commands);
    const auto points = KillPoints(commands, expected);
    size_t states = 0;
    size_t last = 0;
    Snapshot left;
    std::vector<std::string> differences;
    for (const size_t n : points) {
        RestoreMachine();
        const TracedRun first = RunUntil(RunOf(scenario), n);
        EXPECT_TRUE(first.killed);
        EXPECT_TRUE(std::equal(first.commands.begin(), first.commands.end(), commands.begin()));
        EXPECT_EQ(first.commands.size(), n);
        Snapshot now = StateOfMachine();
        if (last == 0 || now != left) {
            ++states;
            EXPECT_TRUE(last == 0 || std::any_of(&commands[last], &commands[n], CanChangeMachine))
                << commands[n - 1];
            left = std::move(now);
            Complete(RunOf(scenario));
            differences = Differences(StateOfMachine(), undisturbed);
        }
        EXPECT_EQ(differences, expected[n]) << "killed after " << commands[n - 1];
        last = n;
    }
    std::printf("kill points tried: %zu of %zu commands, leaving %zu states\n", points.size(),
                commands.size(), states);
}

void Try(const Scenario& scenario) {
    scenario.prepare();
    SaveMachine();
    Complete(RunOf(scenario));
    const Snapshot undisturbed = StateOfMachine();
    Complete(RunOf(scenario));
    EXPECT_EQ(Differences(StateOfMachine(), undisturbed), std::vector<std::string>{});
    RestoreMachine();
    const TracedRun whole = RunUntil(RunOf(scenario), 100000);
    ASSERT_EQ(whole.status, 0);
    EXPECT_EQ(Differences(StateOfMachine(), undisturbed), std::vector<std::string>{});
    KillAtEachPoint(scenario, whole.commands, undisturbed);
}

void ExpectConvergence(const Scenario& scenario) {
    const auto result = RunInThrowawayRoot([&] {
        PrepareMachine();
        Try(scenario);
    });
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    std::fputs(result.out.c_str(), stdout);
}

// The second setup treats a unit whose file exists with its text as installed.
const std::string unitCopy =
    "${CP_CMD} -f \"${CORV_INSTALL_DIR}/corvane26_service.service\" /etc/systemd/system/";

// The unit is enabled only in the setup that installs it.
const Exception notEnabled = {
    unitCopy, "${SYSTEMCTL_CMD} enable", {managerState + "/enabled/" + unitName}};

// So is the reload, without which the service manager does not read the new text.
const Exception oldUnitRuns = {
    unitCopy,
    "${SYSTEMCTL_CMD} daemon-reload",
    {managerState + "/active/" + unitName, managerState + "/loaded/" + unitName}};

// So is the correction of its mode.
const Exception unitMode = {unitCopy, "/bin/chmod", {unitFile}};

// Members who joined count as present in the second setup. Fewer wanted than present members remove
// none.
const Exception noneLeaves = {
    "${USERMOD_CMD} --append", "${USERMOD_CMD} -G", {"/etc/group", "/etc/gshadow"}};

// The link is created in the setup that creates the server's directory.
const Exception noRepository = {
    "${MKDIR_CMD} --mode=775 \"${CORV_INSTALL_DIR}/corvanerc/corvane26server\"",
    "${LN_CMD} -s \"${CORV_INSTALL_DIR}/corvanerc/corvane24server",
    {serverDir + "/CorvaneServerRepository"}};

// The first line empties the file from which the second setup reads the threads per molecule.
const Exception noThreadsPerMolecule = {
    "${ECHO_CMD} \"MaxThreads", "${ECHO_CMD} \"ThreadsPerMolecule", {sharedDir + "/QueueLimits"}};

void PrepareFirstInstallation() {
    AddUser("ada");
    AddUser("bob", "people", {"others"});
}

// An install directory with other owners and modes, other links, and active old services.
void PrepareUpgrade() {
    MakeServiceGroup({"ada", "bob", "zoe"});
    for (const char* name : {"carol", "dora"})
        AddUser(name);
    AddUser(serviceAccount, serviceAccount);
    fs::create_directories(sharedDir + "/corvanerc/corvane24server/CorvaneServerRepository/jobs");
    for (const char* name : {"/corvane26", "/corvane26_snapshot"})
        WriteFile(sharedDir + name, "of version 24\n");
    WriteFile(sharedDir + "/QueueEntries", "1 chem waiting\n");
    WriteFile(sharedDir + "/QueueLimits",
              "MaxThreads: 12\nMemoryPerThreadMB: 1024\nScratch: /scratch/old\n"
              "DiskPerThreadGB: 10\nThreadsPerMolecule: 4\n");
    for (const char* name : {"", "/corvanerc", "/corvane26", "/QueueEntries", "/QueueLimits"})
        fs::permissions(sharedDir + name, fs::perms::owner_all);
    fs::create_symlink("/opt/corvane24/corvane", commandLink);
    fs::create_symlink("/opt/corvane24/snapshot", snapshotLink);
    WriteFile(serviceProgram, "of version 24\n");
    AddInitService(true);
    for (const std::string& unit : {std::string("corvane20_service.service"),
                                    std::string("corvane24_service.service"), unitName})
        AddUnit(unit, "[Service]\nExecStart=/usr/bin/old\n", true, true);
    fs::permissions(unitFile, fs::perms::owner_all);
}

const Scenario firstInstallation = {
    PrepareFirstInstallation, {QStringLiteral("ada"), QStringLiteral("bob")}, {notEnabled}};

const Scenario upgrade = {PrepareUpgrade,
                          {QStringLiteral("ada"), QStringLiteral("carol"), QStringLiteral("dora")},
                          {noneLeaves, noRepository, noThreadsPerMolecule, oldUnitRuns, unitMode}};

TEST(Convergence, CompletesKilledFirstInstallation) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectConvergence(firstInstallation);
}

TEST(Convergence, CompletesKilledUpgrade) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectConvergence(upgrade);
}

// The undisturbed upgrade changes the machine.
HX_MACHINE_TEST(Upgrade, ReplacesOldInstallation) {
    PrepareUpgrade();
    Complete(RunOf(upgrade));
    EXPECT_EQ(Members(), "ada,carol,dora");
    EXPECT_TRUE(fs::is_symlink(serverDir + "/CorvaneServerRepository"));
    EXPECT_EQ(ReadFile(sharedDir + "/QueueLimits"), QueueLimits() + "ThreadsPerMolecule: 4\n");
    EXPECT_EQ(Mode(unitFile), "644");
    EXPECT_EQ(ActiveText(unitName), ServiceUnit());
    EXPECT_FALSE(IsActive("corvane24_service.service"));
    EXPECT_EQ(fs::read_symlink(commandLink), sharedDir + "/corvane26");
}

struct PartialCase {
    const char* tool;
    std::string part;  // what the tool does before the script's process group is killed
    std::vector<std::string> differences;
};

const std::string halfCopy = "{ cp.real \"$@\"; echo half > \"$3\"; kill -KILL 0; }";

// Server files are unpacked only where their directory is missing.
const PartialCase partialCases[] = {
    {"sed", "echo half; kill -KILL 0", {}},
    {"cp", halfCopy, {}},
    {"cp", "[ \"$3\" != " + unitFile + " ] || " + halfCopy, {}},
    {"tar",
     "mkdir -m 750 " + serverDir + "/resources; kill -KILL 0",
     {serverDir + "/resources/resources.txt"}},
};

TEST(ConvergenceWithinCommand, RewritesPartialFiles) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& row : partialCases) {
        ExpectOnMachine([&] {
            PrepareFirstInstallation();
            SaveMachine();
            Complete(RunOf(firstInstallation));
            const Snapshot undisturbed = StateOfMachine();
            RestoreMachine();
            const std::string tool = std::string("/usr/bin/") + row.tool;
            ReplaceProgram(tool, row.part + "\nexec " + tool + ".real \"$@\"");
            EXPECT_TRUE(RunUntil(RunOf(firstInstallation), 100000).killed);
            RestoreProgram(tool);
            Complete(RunOf(firstInstallation));
            EXPECT_EQ(Differences(StateOfMachine(), undisturbed), row.differences) << row.part;
        });
    }
}

}  // namespace
