// The services of a staged setup.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "commit/EarlierServices.h"
#include "harness/TempDir.h"
#include "installation/ServiceState.h"
#include "machine/ServiceManager.h"
#include "machine/ThrowawayRoot.h"
#include "merge/Services.h"
#include "staging/Recorder.h"

using hx_test::ServiceCalls;

namespace {

using Texts = std::vector<std::string>;

const std::string startCall = "systemctl start corvane26_service.service\n";
const std::string restartCall = "systemctl restart corvane26_service.service\n";
const std::string stopUnit24 =
    "systemctl stop corvane24_service.service\nsystemctl disable corvane24_service.service\n"
    "systemctl daemon-reload\n";
const std::string statusOfInit =
    "chkconfig --del corvane_service\nservice corvane_service status\n";
const std::string stopInit = statusOfInit + "service corvane_service stop\n";

struct RecordedSetup {
    std::string calls;
    QStringList active;
    Texts changed;  // paths
    bool alwaysRestart;
    Texts services;
};

constexpr const char* ownUnit = "corvane26_service.service";
const QString ownName = QStringLiteral("corvane26_service");
const QString unit24 = QStringLiteral("corvane24_service");
const QString initName = QStringLiteral("corvane_service");
const Texts restarted = {"modify corvane26_service.service active active"};
const Texts started = {"create corvane26_service.service inactive active"};

const RecordedSetup recordedSetups[] = {
    // On a compute node the script calls nothing.
    {"", {ownName}, {"/etc/corvane26/service"}, true, {}},
    {startCall, {}, {}, false, started},
    {startCall,
     {},
     {"/etc/systemd/system/corvane26_service.service"},
     false,
     {"create corvane26_service.service  active"}},
    {restartCall, {ownName}, {}, false, {}},
    {restartCall, {ownName}, {}, true, restarted},
    {restartCall,
     {ownName},
     {"QueueLimits", "corvane26_snapshot", "/usr/bin/corvane26_snapshot"},
     false,
     {}},
    {restartCall, {ownName}, {"corvane26"}, false, restarted},
    {restartCall, {ownName}, {"corvanerc/corvane26server/icons"}, false, restarted},
    {restartCall, {ownName}, {"/usr/bin/corvane26"}, false, restarted},
    {restartCall, {ownName}, {"/usr/bin/corvane26_service_script"}, false, restarted},
    {restartCall, {ownName}, {"/etc/corvane26/service"}, false, restarted},
    // The script stops the service before it replaces the unit.
    {"systemctl stop corvane26_service.service\n" + startCall,
     {ownName},
     {"/etc/systemd/system/corvane26_service.service"},
     false,
     restarted},
    {stopInit + stopUnit24 + startCall,
     {initName, unit24},
     {},
     false,
     {"delete corvane_service active ", "delete corvane24_service.service active ", started[0]}},
    {statusOfInit + stopUnit24 + startCall,
     {},
     {},
     false,
     {"delete corvane24_service.service inactive ", started[0]}},
};

const char* Word(Change change) {
    return change == Change::Create ? "create" : change == Change::Modify ? "modify" : "delete";
}

Texts ServiceLines(const Differences& differences) {
    Texts lines;
    for (const ServiceDifference& each : differences.services) {
        lines.push_back(std::string(Word(each.change)) + " " + each.name + " " + each.before + " " +
                        each.after);
    }
    return lines;
}

PathDifference Changed(const std::string& path) {
    PathDifference difference;
    difference.path = path;
    for (const Entry& entry : Entries()) {
        if (entry.path == path)
            difference.entry = &entry;
    }
    return difference;
}

void RecordCalls(StagedMachine& staged, const std::string& text) {
    staged.calls = Descriptor(memfd_create("calls", MFD_CLOEXEC));
    EXPECT_EQ(write(staged.calls.Number(), text.data(), text.size()),
              static_cast<ssize_t>(text.size()));
}

TEST(Services, DifferAsInRecordedCalls) {
    for (const RecordedSetup& setup : recordedSetups) {
        SCOPED_TRACE(setup.calls + (setup.changed.empty() ? "" : setup.changed[0]));
        StagedMachine staged;
        RecordCalls(staged, setup.calls);
        staged.activeServices = setup.active;
        Differences differences;
        for (const std::string& path : setup.changed) {
            differences.paths.push_back(Changed(path));
            EXPECT_NE(differences.paths.back().entry, nullptr) << path;
        }
        EXPECT_FALSE(FindServiceDifferences(staged, setup.alwaysRestart, differences));
        EXPECT_EQ(ServiceLines(differences), setup.services);
    }
}

// Nothing could start it, and what the script calls has no effect.
TEST(Services, StartOnlyIfManagerIsRunning) {
    for (const RecordedSetup& setup : recordedSetups) {
        StagedMachine staged;
        RecordCalls(staged, setup.calls);
        staged.isManagerRunning = false;
        Differences differences;
        EXPECT_FALSE(FindServiceDifferences(staged, true, differences));
        for (const ServiceDifference& service : differences.services)
            EXPECT_EQ(service.change, Change::Delete) << service.name;
    }
}

// What systemctl prints and its status, as of systemd 252.
struct ManagerAnswer {
    const char* commands;
    bool isManagerRunning;
    bool isActive;
};

const ManagerAnswer managerAnswers[] = {
    {"echo active", true, true},
    {"echo inactive; exit 3", true, false},
    {"echo System has not been booted with systemd >&2; exit 1", false, false},
    {"echo Running in chroot, ignoring request. >&2", false, false},
};

TEST(Services, AreFoundByAnswersOfManager) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        for (const ManagerAnswer& answer : managerAnswers) {
            SCOPED_TRACE(answer.commands);
            hx_test::WriteFile("/usr/bin/systemctl",
                               "#!/bin/sh\n[ \"$1\" = is-active ] || exit 1\n" +
                                   std::string(answer.commands) + '\n');
            const ServiceStates states = FindServiceStates();
            EXPECT_EQ(states.isManagerRunning, answer.isManagerRunning);
            EXPECT_EQ(states.active.contains(ownName), answer.isActive);
        }
        hx_test::RemoveSystemctl();
        EXPECT_FALSE(FindServiceStates().isManagerRunning);
    });
}

TEST(Services, RestartWhenServiceUserChangesGroups) {
    StagedMachine staged;
    RecordCalls(staged, restartCall);
    staged.activeServices = {ownName};
    staged.serviceUser = QStringLiteral("corvsrvc");
    for (const std::string user : {"ann", "corvsrvc"}) {
        Differences differences;
        differences.members.push_back({Change::Create, user, "lab"});
        EXPECT_FALSE(FindServiceDifferences(staged, false, differences));
        EXPECT_EQ(ServiceLines(differences), user == "ann" ? Texts() : restarted);
    }
}

// Stops are recorded for all earlier services.
Differences WithEarlierServices(const std::string& before) {
    Differences differences;
    for (const hx::EarlierService& earlier : hx::earlierServices) {
        const std::string suffix = earlier.hasInitScript ? "" : ".service";
        differences.services.push_back({Change::Delete, earlier.name + suffix, before, ""});
    }
    differences.services.push_back({Change::Create, ownUnit, "inactive", "active"});
    return differences;
}

// Lines of systemctl, as of systemd 252.
struct IdleCase {
    const char* name;
    QStringList lines;
    const char* state;
};

QStringList PropertiesOf(const QString& active, const QString& result, const QString& file,
                         const QString& lastEnd) {
    return {"Result=" + result, "ActiveState=" + active, "UnitFileState=" + file,
            "InactiveEnterTimestampMonotonic=" + lastEnd};
}

const IdleCase idleCases[] = {
    {"running", PropertiesOf("active", "success", "enabled", "0"), ""},
    {"running, disabled", PropertiesOf("active", "success", "disabled", "71"), ""},
    {"stopped", PropertiesOf("inactive", "success", "enabled", "71"), "stopped"},
    {"disabled", PropertiesOf("inactive", "success", "disabled", "0"), "disabled"},
    {"stopped and disabled", PropertiesOf("inactive", "success", "disabled", "71"), "disabled"},
    {"never run", PropertiesOf("inactive", "success", "enabled", "0"), ""},
    {"failed", PropertiesOf("failed", "exit-code", "enabled", "71"), ""},
    {"failed, disabled", PropertiesOf("failed", "exit-code", "disabled", "71"), ""},
    {"failing again and again", PropertiesOf("activating", "exit-code", "enabled", "71"), ""},
    {"its condition failed", PropertiesOf("inactive", "exec-condition", "enabled", "71"), ""},
    {"no answer", {}, ""},
};

TEST(Services, AreIdleIfStoppedOrDisabledWithoutFailure) {
    for (const IdleCase& row : idleCases)
        EXPECT_EQ(StateOfIdleService(row.lines), row.state) << row.name;
}

TEST(Services, StayIdleWithoutTheirStart) {
    Differences differences = WithEarlierServices("active");
    differences.services.push_back({Change::Modify, ownUnit, "active", "active"});
    KeepServiceIdle(differences);
    EXPECT_EQ(ServiceLines(differences),
              (Texts{"delete corvane_service active ", "delete corvane20_service.service active ",
                     "delete corvane24_service.service active ", restarted[0]}));
}

TEST(Services, StopAndStartAgainInUndo) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        hx_test::InstallServiceManager();
        hx_test::AddInitService(true);
        hx_test::AddUnit("corvane20_service.service", "text", true, true);
        hx_test::AddUnit("corvane24_service.service", "text", true, true);
        Undo undo;
        StopEarlierServices(WithEarlierServices("active"), undo);
        EXPECT_EQ(ServiceCalls(),
                  (Texts{"service corvane_service stop", "systemctl stop corvane20_service.service",
                         "systemctl stop corvane24_service.service"}));
        undo.Run();
        EXPECT_EQ(ServiceCalls(),
                  (Texts{"systemctl daemon-reload", "systemctl start corvane24_service.service",
                         "systemctl daemon-reload", "systemctl start corvane20_service.service",
                         "systemctl daemon-reload", "service corvane_service start"}));
        StopEarlierServices(WithEarlierServices("inactive"), undo);
        ServiceCalls();
        undo.Run();
        EXPECT_EQ(ServiceCalls(), Texts());
    });
}

TEST(Services, ReloadManagerBeforeStartAndAfterUnitChanges) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::pair<std::string, bool> paths[] = {
        {"/etc/systemd/system/corvane26_service.service", true},
        {"/etc/systemd/system/multi-user.target.wants/corvane26_service.service", true},
        {"/etc/systemd/system/multi-user.target.wants/corvane24_service.service", true},
        {"/etc/init.d/corvane_service", true},
        {"corvane26", false},
        {"/usr/bin/corvane26_service_script", false}};
    HX_EXPECT_SCENARIO([&] {
        hx_test::InstallServiceManager();
        hx_test::AddUnit(ownUnit, "text", true, true);
        for (const auto& [path, reloads] : paths) {
            Differences differences;
            differences.paths.push_back(Changed(path));
            StartService(differences);
            EXPECT_EQ(ServiceCalls(), reloads ? Texts{"systemctl daemon-reload"} : Texts()) << path;
        }
        Differences differences;
        differences.services.push_back({Change::Modify, ownUnit, "active", "active"});
        StartService(differences);
        EXPECT_EQ(ServiceCalls(), (Texts{"systemctl daemon-reload",
                                         "systemctl restart corvane26_service.service"}));
    });
}

TEST(Services, CompleteWithoutManager) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        hx_test::InstallServiceManager();
        hx_test::RemoveSystemctl();
        Undo undo;
        StopEarlierServices(WithEarlierServices("inactive"), undo);
        StartService(WithEarlierServices("inactive"));
        EXPECT_EQ(ServiceCalls(), Texts{"service corvane_service stop"});
    });
}

}  // namespace
