// Failures while the compute service is installed: what stops the script, what is left, and that
// the next run after the repair completes.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ServiceManager.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

using Calls = std::vector<std::string>;

const std::string Product = ProductDirectory;
const std::string Unit26 = Unit;

void ExpectCompleteRun() {
    const auto result = RunCommitScript(NewRootRun());
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(ReadFile(ServiceProgram), ServiceProgramText);
    EXPECT_EQ(ReadFile(Rendered), ServiceUnit());
    EXPECT_EQ(ReadFile(UnitFile), ServiceUnit());
    EXPECT_EQ(Mode(UnitFile), "644");
    EXPECT_TRUE(IsEnabled(Unit));
    EXPECT_EQ(ActiveText(Unit), ServiceUnit());
}

TEST(ServiceFailures, AMissingServiceProgramStopsTheScript) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit("corvane24_service.service", "old", true, true);
        const std::string source = Product + "/corvane26_service_script";
        fs::rename(source, source + ".away");
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(
            result.out.ends_with("\nError, writing Corvane'26 service script (1), "
                                 "/usr/bin/corvane26_service_script\n"))
            << result.out;
        EXPECT_FALSE(fs::exists(Rendered));
        EXPECT_FALSE(fs::exists(UnitFile));
        // All that stands before it is done: the queue's limits and the end of the old service.
        EXPECT_EQ(Access(Tree + "/QueueLimits"), "664 corvsrvc:corvsrvc");
        EXPECT_FALSE(IsActive("corvane24_service.service"));
        fs::rename(source + ".away", source);
        ExpectCompleteRun();
    });
}

TEST(ServiceFailures, TheStatusOfTheFailingCopyIsTold) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        const std::string copy = ReadFile("/usr/bin/cp");
        WriteFile("/usr/bin/cp", "#!/bin/sh\nexit 42\n");
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(
            result.out.ends_with("\nError, writing Corvane'26 service script (42), "
                                 "/usr/bin/corvane26_service_script\n"))
            << result.out;
        WriteFile("/usr/bin/cp", copy);
        ExpectCompleteRun();
    });
}

TEST(ServiceFailures, AMissingUnitTemplateLeavesAnEmptyUnitInTheTree) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        const std::string source = Product + "/corvane26_service.template";
        fs::rename(source, source + ".away");
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(
            result.out.ends_with("\nWrote Corvane'26 service script, "
                                 "/usr/bin/corvane26_service_script\n"
                                 "Error, writing Corvane'26 service script, " +
                                 Rendered + "\n"))
            << result.out;
        EXPECT_EQ(ReadFile(ServiceProgram), ServiceProgramText);
        EXPECT_TRUE(fs::is_empty(Rendered));
        EXPECT_FALSE(fs::exists(UnitFile));
        EXPECT_EQ(ServiceCalls(), Calls{});
        fs::rename(source + ".away", source);
        ExpectCompleteRun();
    });
}

// The section's second look at the snapshot template is not tested; the first one would have
// stopped the script, so here the template goes in between, with the copy of the program.
TEST(ServiceFailures, TheSecondWritingOfTheSnapshotScriptMayFail) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        fs::rename("/usr/bin/cp", "/usr/bin/cp.real");
        WriteFile("/usr/bin/cp",
                  "#!/bin/sh\nrm -f /opt/corvane26/corvane26_snapshot.template\n"
                  "exec /usr/bin/cp.real \"$@\"\n");
        fs::permissions("/usr/bin/cp", fs::perms(0755));
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_TRUE(fs::is_empty(Tree + "/corvane26_snapshot"));
        EXPECT_TRUE(IsActive(Unit));
        fs::rename("/usr/bin/cp.real", "/usr/bin/cp");
        LayOutProduct(Product);
        ExpectCompleteRun();
        EXPECT_EQ(ReadFile(Tree + "/corvane26_snapshot"), SnapshotScript(Tree, Product));
    });
}

const std::string CopyFailed = "\nError, updating Corvane Compute Servive systemd script\n";

TEST(ServiceFailures, AUnitThatCannotBeInstalledIsToldAndTheScriptGoesOn) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        const std::string units = "/etc/systemd/system";
        fs::remove_all(units);
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0);
        // The mode line comes all the same, and finds no file.
        EXPECT_TRUE(result.out.ends_with(
            CopyFailed + "Updating " + UnitFile +
            ":  -> 644\nCorvane'26 Installation script completed successfully!\n\n"))
            << result.out;
        EXPECT_EQ(ServiceCalls(),
                  (Calls{"systemctl status --no-pager " + Unit26, "systemctl start " + Unit26}));
        EXPECT_FALSE(IsActive(Unit));
        fs::create_directory(units);
        ExpectCompleteRun();
    });
}

TEST(ServiceFailures, AnOldUnitThatCannotBeReplacedIsStartedAgain) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(Unit, OldText, true, true);
        fs::permissions(UnitFile, fs::perms::owner_all);
        fs::rename("/usr/bin/cp", "/usr/bin/cp.real");
        WriteFile("/usr/bin/cp", "#!/bin/sh\n[ \"$3\" != /etc/systemd/system/" + Unit26 +
                                     " ] || exit 1\nexec /usr/bin/cp.real \"$@\"\n");
        fs::permissions("/usr/bin/cp", fs::perms(0755));
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.out.ends_with(
            CopyFailed + "Updating " + UnitFile +
            ": 700 -> 644\nCorvane'26 Installation script completed successfully!\n\n"))
            << result.out;
        EXPECT_EQ(ReadFile(UnitFile), OldText);
        EXPECT_TRUE(IsActive(Unit));
        EXPECT_EQ(ServiceCalls(),
                  (Calls{"systemctl status --no-pager " + Unit26, "systemctl stop " + Unit26,
                         "systemctl status --no-pager " + Unit26, "systemctl start " + Unit26}));
        fs::rename("/usr/bin/cp.real", "/usr/bin/cp");
        ExpectCompleteRun();
    });
}

TEST(ServiceFailures, AServiceManagerThatRefusesEverythingStopsNothing) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(Unit, OldText, true, true);
        const char* verbs[] = {"status", "stop", "daemon-reload", "enable", "start", "restart"};
        for (const char* verb : verbs)
            LetSystemctlFail(verb);
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.out.ends_with("completed successfully!\n\n")) << result.out;
        EXPECT_EQ(ReadFile(UnitFile), ServiceUnit());
    });
}

TEST(ServiceFailures, AServiceThatDoesNotStartDoesNotFailTheScript) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        LetSystemctlFail("start");
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.out.ends_with("completed successfully!\n\n")) << result.out;
        EXPECT_FALSE(IsActive(Unit));
        EXPECT_TRUE(IsEnabled(Unit));
        fs::remove(std::string(ServiceManagerState) + "/failing/start");
        ExpectCompleteRun();
    });
}

TEST(ServiceFailures, WithoutSystemctlTheUnitLiesThereForLater) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RemoveSystemctl();
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.out.ends_with("completed successfully!\n\n")) << result.out;
        EXPECT_EQ(ReadFile(UnitFile), ServiceUnit());
        EXPECT_EQ(Access(UnitFile), "644 root:root");
    });
}

}  // namespace
