// Compute services of earlier versions: stopped and removed, each in its way.
#include <gtest/gtest.h>

#include <filesystem>

#include "machine/Installation.h"
#include "machine/ServiceManager.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

using Calls = std::vector<std::string>;

const std::string InitScript = "/etc/init.d/corvane_service";

std::string UnitOf(const std::string& version) {
    return "corvane" + version + "_service.service";
}

std::string FileOf(const std::string& version) {
    return "/etc/systemd/system/" + UnitOf(version);
}

Calls CallsToRemove(const std::string& version) {
    return {"systemctl stop " + UnitOf(version), "systemctl disable " + UnitOf(version), Reload};
}

// The calls, without those that install and start the present service on a first run.
Calls CallsBeforeTheInstallation(const Calls& calls) {
    const std::string unit = Unit;
    const Calls installing = {Reload, "systemctl enable " + unit,
                              "systemctl status --no-pager " + unit, "systemctl start " + unit};
    const auto from =
        calls.end() - static_cast<std::ptrdiff_t>(std::min(calls.size(), installing.size()));
    EXPECT_EQ(Calls(from, calls.end()), installing);
    return {calls.begin(), from};
}

// Runs the script to its end and returns the calls that removed services.
Calls Remove() {
    const auto result = RunCommitScript(NewRootRun());
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
    return CallsBeforeTheInstallation(ServiceCalls());
}

TEST(OldServices, NoneMeansNoCall) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        EXPECT_EQ(Remove(), Calls{});
    });
}

TEST(OldServices, AnInitServiceThatRunsIsStoppedAndRemoved) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        InstallChkconfig();
        AddInitService(true);
        EXPECT_EQ(Remove(),
                  (Calls{"chkconfig --del corvane_service", "service corvane_service status",
                         "service corvane_service stop", Reload}));
        EXPECT_FALSE(fs::exists(InitScript));
        EXPECT_FALSE(IsActive("corvane_service"));
        EXPECT_FALSE(IsEnabled("corvane_service"));
    });
}

TEST(OldServices, AnInitServiceThatDoesNotRunIsOnlyRemoved) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        InstallChkconfig();
        AddInitService(false);
        EXPECT_EQ(Remove(), (Calls{"chkconfig --del corvane_service",
                                   "service corvane_service status", Reload}));
        EXPECT_FALSE(fs::exists(InitScript));
    });
}

TEST(OldServices, WithoutChkconfigAnInitServiceIsStoppedAndRemovedAllTheSame) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddInitService(true);
        EXPECT_EQ(Remove(), (Calls{"service corvane_service status", "service corvane_service stop",
                                   Reload}));
        EXPECT_FALSE(fs::exists(InitScript));
        EXPECT_FALSE(IsActive("corvane_service"));
    });
}

TEST(OldServices, UnitsOfEarlierVersionsAreStoppedDisabledAndRemoved) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string version : {"20", "24"}) {
        for (const bool active : {true, false}) {
            HX_EXPECT_SCENARIO([&] {
                PrepareMachine();
                AddUnit(UnitOf(version), "old", true, active);
                EXPECT_EQ(Remove(), CallsToRemove(version));
                EXPECT_FALSE(fs::exists(FileOf(version)));
                EXPECT_FALSE(IsActive(UnitOf(version)));
                EXPECT_FALSE(IsEnabled(UnitOf(version)));
            });
        }
    }
}

TEST(OldServices, AllOfThemGoInTheOrderOfTheirAgeEachWithAReload) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(UnitOf("24"), "old", true, true);
        AddUnit(UnitOf("20"), "older", true, true);
        AddInitService(true);
        Calls expected = {"service corvane_service status", "service corvane_service stop", Reload};
        for (const std::string version : {"20", "24"}) {
            const Calls calls = CallsToRemove(version);
            expected.insert(expected.end(), calls.begin(), calls.end());
        }
        EXPECT_EQ(Remove(), expected);
    });
}

TEST(OldServices, UnitsOfOtherNamesStay) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(UnitOf("22"), "another", true, true);
        EXPECT_EQ(Remove(), Calls{});
        EXPECT_TRUE(fs::exists(FileOf("22")));
        EXPECT_TRUE(IsActive(UnitOf("22")));
    });
}

// The removal of units speaks on the console; the init service's own words are thrown away.
TEST(OldServices, TheConsoleShowsTheRemovalOfUnits) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        InstallChkconfig();
        AddUnit(UnitOf("20"), "old", true, true);
        AddInitService(true);
        const std::string out = RunCommitScript(NewRootRun()).out;
        EXPECT_NE(out.find("\nchkconfig --del corvane_service\nsystemctl daemon-reload\n"
                           "systemctl stop corvane20_service.service\n"
                           "systemctl disable corvane20_service.service\n"
                           "systemctl daemon-reload\nWrote Corvane'26 service script"),
                  std::string::npos)
            << out;
        EXPECT_EQ(out.find("service corvane_service s"), std::string::npos) << out;
    });
}

TEST(OldServices, FailuresOnTheWayStopNothing) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        for (const char* verb : {"stop", "disable", "daemon-reload"})
            LetSystemctlFail(verb);
        AddUnit(UnitOf("20"), "old", true, true);
        AddUnit(UnitOf("24"), "old", true, true);
        AddInitService(true);
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.out.ends_with("completed successfully!\n\n")) << result.out;
        for (const auto& path : {FileOf("20"), FileOf("24"), InitScript})
            EXPECT_FALSE(fs::exists(path)) << path;
        EXPECT_TRUE(IsActive(Unit));
    });
}

TEST(OldServices, WithoutSystemctlUnitsStayAndTheInitScriptGoes) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RemoveSystemctl();
        AddUnit(UnitOf("20"), "old", true, true);
        AddUnit(UnitOf("24"), "old", true, true);
        AddInitService(true);
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.out.ends_with("completed successfully!\n\n")) << result.out;
        EXPECT_NE(result.err.find("/usr/bin/systemctl"), std::string::npos) << result.err;
        EXPECT_TRUE(fs::exists(FileOf("20")));
        EXPECT_TRUE(fs::exists(FileOf("24")));
        EXPECT_FALSE(fs::exists(InitScript));
        EXPECT_EQ(ServiceCalls(),
                  (Calls{"service corvane_service status", "service corvane_service stop"}));
        EXPECT_TRUE(fs::exists(UnitFile));
    });
}

TEST(OldServices, AClusterNodeKeepsThem) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddUnit(UnitOf("24"), "old", true, true);
        AddInitService(true);
        CInstallBase& run = NewRootRun();
        run.m_clusterNode = true;
        EXPECT_EQ(RunCommitScript(run).status, 0);
        EXPECT_EQ(ServiceCalls(), Calls{});
        EXPECT_TRUE(fs::exists(FileOf("24")));
        EXPECT_TRUE(fs::exists(InitScript));
    });
}

}  // namespace
