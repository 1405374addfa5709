// The compute service: its program and unit, and what the service manager is told, in order.
#include <gtest/gtest.h>

#include <filesystem>

#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ServiceManager.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

using Calls = std::vector<std::string>;

const std::string Enable = "systemctl enable corvane26_service.service";
const std::string Status = "systemctl status --no-pager corvane26_service.service";
const std::string Stop = "systemctl stop corvane26_service.service";
const std::string Start = "systemctl start corvane26_service.service";
const std::string Restart = "systemctl restart corvane26_service.service";

// Runs the script to its end and returns what it said.
std::string Complete() {
    const auto result = RunCommitScript(NewRootRun());
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
    return result.out;
}

void ExpectRunning(const std::string& text = ServiceUnit()) {
    EXPECT_TRUE(IsEnabled(Unit));
    EXPECT_TRUE(IsActive(Unit));
    EXPECT_EQ(ActiveText(Unit), text);
}

TEST(ComputeService, AFirstRunInstallsAndStartsIt) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        Complete();
        EXPECT_EQ(ReadFile(ServiceProgram), ServiceProgramText);
        EXPECT_EQ(Access(ServiceProgram), "755 root:root");
        EXPECT_EQ(ReadFile(Rendered), ServiceUnit());
        EXPECT_EQ(Access(Rendered), "644 root:root");
        EXPECT_EQ(ReadFile(UnitFile), ServiceUnit());
        EXPECT_EQ(Access(UnitFile), "644 root:root");
        ExpectRunning();
    });
}

TEST(ComputeService, AMissingUnitIsInstalledEnabledAndStarted) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        Complete();
        EXPECT_EQ(ServiceCalls(), (Calls{Reload, Enable, Status, Start}));
    });
}

TEST(ComputeService, AnEqualUnitThatRunsIsRestarted) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(Unit, ServiceUnit(), true, true);
        Complete();
        EXPECT_EQ(ServiceCalls(), (Calls{Status, Restart}));
        ExpectRunning();
    });
}

TEST(ComputeService, AnEqualUnitThatDoesNotRunIsStarted) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(Unit, ServiceUnit(), true, false);
        Complete();
        EXPECT_EQ(ServiceCalls(), (Calls{Status, Start}));
        ExpectRunning();
    });
}

TEST(ComputeService, AnotherUnitThatRunsIsStoppedReplacedAndStarted) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(Unit, OldText, true, true);
        Complete();
        EXPECT_EQ(ServiceCalls(), (Calls{Status, Stop, Reload, Enable, Status, Start}));
        EXPECT_EQ(ReadFile(UnitFile), ServiceUnit());
        ExpectRunning();
    });
}

TEST(ComputeService, AnotherUnitThatDoesNotRunIsReplacedAndStarted) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(Unit, OldText, false, false);
        Complete();
        EXPECT_EQ(ServiceCalls(), (Calls{Status, Reload, Enable, Status, Start}));
        EXPECT_EQ(ReadFile(UnitFile), ServiceUnit());
        ExpectRunning();
    });
}

TEST(ComputeService, AServiceThatRunsWithoutItsUnitsFileIsRestarted) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(Unit, OldText, true, true);
        fs::remove(UnitFile);
        Complete();
        EXPECT_EQ(ServiceCalls(), (Calls{Reload, Enable, Status, Restart}));
        ExpectRunning();
    });
}

TEST(ComputeService, ASecondRunRestartsItAndReplacesNothing) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        Complete();
        ServiceCalls();
        const std::string inode = Inode(UnitFile);
        const auto written = fs::last_write_time(UnitFile);
        const std::string out = Complete();
        EXPECT_EQ(ServiceCalls(), (Calls{Status, Restart}));
        EXPECT_EQ(Inode(UnitFile), inode);
        EXPECT_EQ(fs::last_write_time(UnitFile), written);
        const size_t wrote = out.find("Wrote Corvane'26 service script, /usr/bin/");
        EXPECT_EQ(out.substr(wrote),
                  "Wrote Corvane'26 service script, /usr/bin/corvane26_service_script\n"
                  "Wrote Corvane'26 service script, /var/corvane/corvane26_service.service\n\n"
                  "Corvane'26 Installation script completed successfully!\n\n");
    });
}

TEST(ComputeService, ASecondRunWritesProgramAndRenderedUnitAnew) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        Complete();
        WriteFile(ServiceProgram, "another program");
        WriteFile(Rendered, "another text");
        Complete();
        EXPECT_EQ(ReadFile(ServiceProgram), ServiceProgramText);
        EXPECT_EQ(ReadFile(Rendered), ServiceUnit());
    });
}

TEST(ComputeService, AnEditedUnitIsReplacedAndTheDifferenceShown) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        Complete();
        WriteFile(UnitFile, ServiceUnit() + "Nice=5\n");
        fs::permissions(UnitFile, fs::perms::owner_all);
        const std::string out = Complete();
        EXPECT_EQ(ReadFile(UnitFile), ServiceUnit());
        EXPECT_EQ(Mode(UnitFile), "644");
        EXPECT_NE(out.find("\n< Nice=5\n"), std::string::npos) << out;
        EXPECT_NE(out.find("\nCorvane Compute Servive systemd script updated\n\n"),
                  std::string::npos);
    });
}

TEST(ComputeService, AnUnchangedUnitKeepsItsModeAndStaysDisabled) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(Unit, ServiceUnit(), false, false);
        fs::permissions(UnitFile, fs::perms::owner_all);
        Complete();
        EXPECT_EQ(Mode(UnitFile), "700");
        EXPECT_FALSE(IsEnabled(Unit));
        EXPECT_TRUE(IsActive(Unit));
    });
}

TEST(ComputeService, TheConsoleShowsReloadAndEnableOnly) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(Unit, OldText, true, true);
        const std::string out = Complete() + Complete();
        EXPECT_NE(out.find("\n" + Reload + "\n" + Enable + "\n"), std::string::npos) << out;
        for (const auto& call : {Status, Stop, Start, Restart})
            EXPECT_EQ(out.find(call), std::string::npos) << call;
    });
}

TEST(ComputeService, TheProgramsModeComesWithTheCopy) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        const std::string source = std::string(ProductDirectory) + "/corvane26_service_script";
        fs::permissions(source, fs::perms(0711));
        Complete();
        EXPECT_EQ(Access(ServiceProgram), "711 root:root");
        fs::permissions(source, fs::perms(0755));
        Complete();
        EXPECT_EQ(Access(ServiceProgram), "711 root:root");
    });
}

TEST(ComputeService, TheSnapshotScriptKeepsOwnerAndModeWhenItIsWrittenAgain) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        Complete();
        EXPECT_EQ(Access(Tree + "/corvane26_snapshot"), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(ReadFile(Tree + "/corvane26_snapshot"), SnapshotScript(Tree, ProductDirectory));
    });
}

}  // namespace
