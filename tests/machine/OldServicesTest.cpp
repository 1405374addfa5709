// Compute services of earlier versions: how each kind is stopped and removed.
#include <algorithm>
#include <filesystem>

#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ServiceManager.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

using Calls = std::vector<std::string>;

const std::string initScript = "/etc/init.d/corvane_service";
const std::string scriptEnd = "completed successfully!\n\n";

const std::string initStatus = "service corvane_service status";
const std::string initStop = "service corvane_service stop";
const std::string initDelete = "chkconfig --del corvane_service";

std::string UnitOf(const std::string& version) {
    return "corvane" + version + "_service.service";
}

std::string FileOf(const std::string& version) {
    return "/etc/systemd/system/" + UnitOf(version);
}

// Runs the script and returns the calls before those that install the service.
Calls Remove() {
    Complete();
    Calls calls = ServiceCalls();
    const Calls installing = {daemonReload, "systemctl enable " + unitName,
                              "systemctl status --no-pager " + unitName,
                              "systemctl start " + unitName};
    const size_t count = calls.size() - std::min(calls.size(), installing.size());
    EXPECT_EQ(Calls(calls.begin() + static_cast<std::ptrdiff_t>(count), calls.end()), installing);
    calls.resize(count);
    return calls;
}

enum class Init { None, Active, Inactive };

struct OldCase {
    std::vector<std::string> versions;
    bool active;  // the units
    Init init;
    bool chkconfig;
    Calls calls;
};

const std::string stop20 = "systemctl stop corvane20_service.service";
const std::string stop24 = "systemctl stop corvane24_service.service";
const std::string disable20 = "systemctl disable corvane20_service.service";
const std::string disable24 = "systemctl disable corvane24_service.service";

const OldCase oldCases[] = {
    {{}, false, Init::None, false, {}},
    {{}, false, Init::Active, true, {initDelete, initStatus, initStop, daemonReload}},
    {{}, false, Init::Inactive, true, {initDelete, initStatus, daemonReload}},
    {{}, false, Init::Active, false, {initStatus, initStop, daemonReload}},
    {{"20"}, true, Init::None, false, {stop20, disable20, daemonReload}},
    {{"20"}, false, Init::None, false, {stop20, disable20, daemonReload}},
    {{"24"}, true, Init::None, false, {stop24, disable24, daemonReload}},
    {{"24"}, false, Init::None, false, {stop24, disable24, daemonReload}},
    {{"24", "20"},
     true,
     Init::Active,
     false,
     {initStatus, initStop, daemonReload, stop20, disable20, daemonReload, stop24, disable24,
      daemonReload}},
};

TEST(OldServices, AreStoppedAndRemovedOldestFirst) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& row : oldCases) {
        ExpectOnMachine([&] {
            if (row.chkconfig)
                InstallChkconfig();
            for (const auto& version : row.versions)
                AddUnit(UnitOf(version), "old", true, row.active);
            if (row.init != Init::None)
                AddInitService(row.init == Init::Active);
            EXPECT_EQ(Remove(), row.calls);
            for (const auto& version : row.versions) {
                EXPECT_FALSE(fs::exists(FileOf(version)));
                EXPECT_FALSE(IsActive(UnitOf(version)));
                EXPECT_FALSE(IsEnabled(UnitOf(version)));
            }
            EXPECT_FALSE(fs::exists(initScript));
            EXPECT_FALSE(IsActive("corvane_service"));
            EXPECT_EQ(IsEnabled("corvane_service"), row.init != Init::None && !row.chkconfig);
        });
    }
}

HX_MACHINE_TEST(OldServices, KeepUnitsOfOtherVersions) {
    AddUnit(UnitOf("22"), "another", true, true);
    EXPECT_EQ(Remove(), Calls{});
    EXPECT_TRUE(fs::exists(FileOf("22")));
    EXPECT_TRUE(IsActive(UnitOf("22")));
}

// The output of the init service's own tool is discarded.
HX_MACHINE_TEST(OldServices, PrintRemovalOfUnits) {
    InstallChkconfig();
    AddUnit(UnitOf("20"), "old", true, true);
    AddInitService(true);
    const std::string out = Complete();
    EXPECT_NE(out.find("\n" + initDelete + "\n" + daemonReload + "\n" + stop20 + "\n" + disable20 +
                       "\n" + daemonReload + "\nWrote Corvane'26 service script"),
              std::string::npos)
        << out;
    EXPECT_EQ(out.find("service corvane_service s"), std::string::npos) << out;
}

// The script ignores failures of systemctl, and keeps the units when there is none.
TEST(OldServices, AreRemovedOnlyWithSystemctl) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const bool installed : {true, false}) {
        ExpectOnMachine([&] {
            for (const char* verb : {"stop", "disable", "daemon-reload"})
                LetSystemctlFail(verb);
            if (!installed)
                RemoveSystemctl();
            AddUnit(UnitOf("20"), "old", true, true);
            AddUnit(UnitOf("24"), "old", true, true);
            AddInitService(true);
            const auto result = RunCommitScript(NewRootRun());
            EXPECT_EQ(result.status, 0);
            EXPECT_TRUE(result.out.ends_with(scriptEnd)) << result.out;
            EXPECT_EQ(result.err.find("/usr/bin/systemctl") == std::string::npos, installed)
                << result.err;
            EXPECT_EQ(fs::exists(FileOf("20")), !installed);
            EXPECT_EQ(fs::exists(FileOf("24")), !installed);
            EXPECT_FALSE(fs::exists(initScript));
            EXPECT_EQ(IsActive(unitName), installed);
            if (!installed) {
                EXPECT_EQ(ServiceCalls(), (Calls{initStatus, initStop}));
            }
            EXPECT_TRUE(fs::exists(unitFile));
        });
    }
}

HX_MACHINE_TEST(OldServices, StayOnComputeNode) {
    AddUnit(UnitOf("24"), "old", true, true);
    AddInitService(true);
    CInstallBase& run = NewRootRun();
    run.m_clusterNode = true;
    Complete(run);
    EXPECT_EQ(ServiceCalls(), Calls{});
    EXPECT_TRUE(fs::exists(FileOf("24")));
    EXPECT_TRUE(fs::exists(initScript));
}

}  // namespace
