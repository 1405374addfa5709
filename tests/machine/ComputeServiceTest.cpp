// The compute service: its program and unit, the calls of the service manager in order, and
// failures while it is installed.
#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ServiceManager.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

using Calls = std::vector<std::string>;

const std::string enable = "systemctl enable " + unitName;
const std::string status = "systemctl status --no-pager " + unitName;
const std::string stop = "systemctl stop " + unitName;
const std::string start = "systemctl start " + unitName;
const std::string restart = "systemctl restart " + unitName;

const std::string cp = "/usr/bin/cp";
const std::string succeeded = "Corvane'26 Installation script completed successfully!\n\n";
const std::string updateFailed = "\nError, updating Corvane Compute Servive systemd script\n";

void ExpectInstalled() {
    EXPECT_EQ(ReadFile(serviceProgram), serviceProgramText);
    EXPECT_EQ(ReadFile(renderedUnit), ServiceUnit());
    EXPECT_EQ(ReadFile(unitFile), ServiceUnit());
    EXPECT_EQ(Access(unitFile), "644 root:root");
    EXPECT_TRUE(IsEnabled(unitName));
    EXPECT_EQ(ActiveText(unitName), ServiceUnit());
}

// The setup after the failure was repaired.
void ExpectCompleteSetup() {
    Complete();
    ExpectInstalled();
}

enum class Unit { Missing, Equal, Different };

struct UnitCase {
    Unit unit;
    bool enabled;
    bool active;
    Calls calls;
};

const UnitCase unitCases[] = {
    {Unit::Missing, false, false, {daemonReload, enable, status, start}},
    {Unit::Missing, true, true, {daemonReload, enable, status, restart}},
    {Unit::Equal, true, true, {status, restart}},
    {Unit::Equal, true, false, {status, start}},
    {Unit::Different, true, true, {status, stop, daemonReload, enable, status, start}},
    {Unit::Different, false, false, {status, daemonReload, enable, status, start}},
};

TEST(ComputeService, IsInstalledAndStartedFromEveryState) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& [unit, enabled, active, calls] : unitCases) {
        ExpectOnMachine([&, unit = unit, enabled = enabled, active = active] {
            if (unit != Unit::Missing || active)
                AddUnit(unitName, unit == Unit::Equal ? ServiceUnit() : oldUnitText, enabled,
                        active);
            if (unit == Unit::Missing)
                fs::remove(unitFile);
            Complete();
            EXPECT_EQ(ServiceCalls(), calls);
            ExpectInstalled();
            EXPECT_EQ(Access(serviceProgram), "755 root:root");
            EXPECT_EQ(Access(renderedUnit), "644 root:root");
        });
    }
}

HX_MACHINE_TEST(ComputeService, RestartsAndReplacesNothingOnRerun) {
    Complete();
    ServiceCalls();
    const std::string unit = Shell("stat -c '%i %y' " + unitFile);
    const std::string out = Complete();
    EXPECT_EQ(ServiceCalls(), (Calls{status, restart}));
    EXPECT_EQ(Shell("stat -c '%i %y' " + unitFile), unit);
    EXPECT_EQ(out.substr(out.find("Wrote Corvane'26 service script, /usr/bin/")),
              "Wrote Corvane'26 service script, /usr/bin/corvane26_service_script\n"
              "Wrote Corvane'26 service script, /var/corvane/corvane26_service.service\n\n" +
                  succeeded);
}

HX_MACHINE_TEST(ComputeService, RewritesProgramAndRenderedUnitOnRerun) {
    Complete();
    WriteFile(serviceProgram, "another program");
    WriteFile(renderedUnit, "another text");
    ExpectCompleteSetup();
}

HX_MACHINE_TEST(ComputeService, ReplacesEditedUnitAndShowsDifference) {
    Complete();
    WriteFile(unitFile, ServiceUnit() + "Nice=5\n");
    fs::permissions(unitFile, fs::perms::owner_all);
    const std::string out = Complete();
    ExpectInstalled();
    EXPECT_NE(out.find("\n< Nice=5\n"), std::string::npos) << out;
    EXPECT_NE(out.find("\nCorvane Compute Servive systemd script updated\n\n"), std::string::npos);
}

HX_MACHINE_TEST(ComputeService, KeepsModeAndDisabledStateOfEqualUnit) {
    AddUnit(unitName, ServiceUnit(), false, false);
    fs::permissions(unitFile, fs::perms::owner_all);
    Complete();
    EXPECT_EQ(Mode(unitFile), "700");
    EXPECT_FALSE(IsEnabled(unitName));
    EXPECT_TRUE(IsActive(unitName));
}

HX_MACHINE_TEST(ComputeService, PrintsOnlyReloadAndEnableCalls) {
    AddUnit(unitName, oldUnitText, true, true);
    const std::string out = Complete() + Complete();
    EXPECT_NE(out.find("\n" + daemonReload + "\n" + enable + "\n"), std::string::npos) << out;
    for (const auto& call : {status, stop, start, restart})
        EXPECT_EQ(out.find(call), std::string::npos) << call;
}

HX_MACHINE_TEST(ComputeService, TakesModeOfProgramFromFirstCopy) {
    const std::string source = productDir + "/corvane26_service_script";
    fs::permissions(source, fs::perms(0711));
    Complete();
    EXPECT_EQ(Access(serviceProgram), "711 root:root");
    fs::permissions(source, fs::perms(0755));
    Complete();
    EXPECT_EQ(Access(serviceProgram), "711 root:root");
}

HX_MACHINE_TEST(ServiceFailures, StopsWithoutServiceProgram) {
    AddUnit("corvane24_service.service", "old", true, true);
    const std::string source = productDir + "/corvane26_service_script";
    fs::rename(source, source + ".away");
    ExpectStop("Error, writing Corvane'26 service script (1), /usr/bin/corvane26_service_script");
    EXPECT_FALSE(fs::exists(renderedUnit));
    EXPECT_FALSE(fs::exists(unitFile));
    // The steps before it are done: the queue's limits and the removal of the old service.
    EXPECT_EQ(Access(sharedDir + "/QueueLimits"), "664 corvsrvc:corvsrvc");
    EXPECT_FALSE(IsActive("corvane24_service.service"));
    fs::rename(source + ".away", source);
    ExpectCompleteSetup();
}

HX_MACHINE_TEST(ServiceFailures, ReportsExitStatusOfFailingCopy) {
    ReplaceProgram(cp, "exit 42");
    ExpectStop("Error, writing Corvane'26 service script (42), /usr/bin/corvane26_service_script");
    RestoreProgram(cp);
    ExpectCompleteSetup();
}

HX_MACHINE_TEST(ServiceFailures, LeavesEmptyRenderedUnitWithoutTemplate) {
    const std::string source = productDir + "/corvane26_service.template";
    fs::rename(source, source + ".away");
    ExpectStop(
        "Wrote Corvane'26 service script, /usr/bin/corvane26_service_script\n"
        "Error, writing Corvane'26 service script, " +
        renderedUnit);
    EXPECT_EQ(ReadFile(serviceProgram), serviceProgramText);
    EXPECT_TRUE(fs::is_empty(renderedUnit));
    EXPECT_FALSE(fs::exists(unitFile));
    EXPECT_EQ(ServiceCalls(), Calls{});
    fs::rename(source + ".away", source);
    ExpectCompleteSetup();
}

// The section writes the snapshot script again without a check. A missing template would stop the
// script earlier, so it disappears with the copy of the program.
HX_MACHINE_TEST(ServiceFailures, CompletesWhenSecondSnapshotScriptFails) {
    ReplaceProgram(cp,
                   "rm -f /opt/corvane26/corvane26_snapshot.template\n"
                   "exec /usr/bin/cp.real \"$@\"");
    EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
    EXPECT_TRUE(fs::is_empty(sharedDir + "/corvane26_snapshot"));
    EXPECT_TRUE(IsActive(unitName));
    RestoreProgram(cp);
    LayOutProduct(productDir);
    ExpectCompleteSetup();
    EXPECT_EQ(ReadFile(sharedDir + "/corvane26_snapshot"), SnapshotScript());
}

HX_MACHINE_TEST(ServiceFailures, CompletesWhenUnitCannotBeInstalled) {
    const std::string units = "/etc/systemd/system";
    fs::remove_all(units);
    const auto result = RunCommitScript(NewRootRun());
    EXPECT_EQ(result.status, 0);
    // Compatibility: the mode line follows without a file.
    EXPECT_TRUE(
        result.out.ends_with(updateFailed + "Updating " + unitFile + ":  -> 644\n" + succeeded))
        << result.out;
    EXPECT_EQ(ServiceCalls(), (Calls{status, start}));
    EXPECT_FALSE(IsActive(unitName));
    fs::create_directory(units);
    ExpectCompleteSetup();
}

HX_MACHINE_TEST(ServiceFailures, RestartsOldUnitThatCannotBeReplaced) {
    AddUnit(unitName, oldUnitText, true, true);
    fs::permissions(unitFile, fs::perms::owner_all);
    ReplaceProgram(cp, "[ \"$3\" != /etc/systemd/system/" + unitName +
                           " ] || exit 1\nexec /usr/bin/cp.real \"$@\"");
    const auto result = RunCommitScript(NewRootRun());
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(
        result.out.ends_with(updateFailed + "Updating " + unitFile + ": 700 -> 644\n" + succeeded))
        << result.out;
    EXPECT_EQ(ReadFile(unitFile), oldUnitText);
    EXPECT_TRUE(IsActive(unitName));
    EXPECT_EQ(ServiceCalls(), (Calls{status, stop, status, start}));
    RestoreProgram(cp);
    ExpectCompleteSetup();
}

HX_MACHINE_TEST(ServiceFailures, CompletesWhenSystemctlFails) {
    AddUnit(unitName, oldUnitText, true, true);
    for (const char* verb : {"status", "stop", "daemon-reload", "enable", "start", "restart"})
        LetSystemctlFail(verb);
    const auto result = RunCommitScript(NewRootRun());
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.out.ends_with(succeeded)) << result.out;
    EXPECT_EQ(ReadFile(unitFile), ServiceUnit());
}

HX_MACHINE_TEST(ServiceFailures, CompletesWhenServiceDoesNotStart) {
    LetSystemctlFail("start");
    const auto result = RunCommitScript(NewRootRun());
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.out.ends_with(succeeded)) << result.out;
    EXPECT_FALSE(IsActive(unitName));
    EXPECT_TRUE(IsEnabled(unitName));
    fs::remove(managerState + "/failing/start");
    ExpectCompleteSetup();
}

HX_MACHINE_TEST(ServiceFailures, InstallsUnitWithoutSystemctl) {
    RemoveSystemctl();
    const auto result = RunCommitScript(NewRootRun());
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.out.ends_with(succeeded)) << result.out;
    EXPECT_EQ(ReadFile(unitFile), ServiceUnit());
    EXPECT_EQ(Access(unitFile), "644 root:root");
}

}  // namespace
