#include "merge/Services.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <set>
#include <sstream>

#include "commit/EarlierServices.h"
#include "installation/Tool.h"
#include "staging/Recorder.h"

namespace {

constexpr const char* unitSuffix = ".service";
constexpr const char* isActive = "active";
constexpr const char* isInactive = "inactive";

// False, with errno set, on failure.
bool ReadCalls(const Descriptor& file, std::set<std::string>& calls) {
    std::string text;
    std::array<char, 4096> block = {};
    ssize_t length = 0;
    do {
        length = pread(file.Number(), block.data(), block.size(), static_cast<off_t>(text.size()));
        text.append(block.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
    } while (length > 0);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        calls.insert(line);
    return length == 0;
}

// The name for the tool that controls the service.
std::string NameOf(const hx::EarlierService& service) {
    return service.hasInitScript ? service.name : std::string(service.name) + unitSuffix;
}

const hx::EarlierService* FindEarlierService(const std::string& name) {
    const auto* found =
        std::find_if(hx::earlierServices.begin(), hx::earlierServices.end(),
                     [&](const hx::EarlierService& service) { return NameOf(service) == name; });
    return found == hx::earlierServices.end() ? nullptr : found;
}

std::vector<std::string> Command(const hx::EarlierService& service, const char* verb) {
    if (service.hasInitScript)
        return {"service", service.name, verb};
    return {"systemctl", verb, NameOf(service)};
}

std::string CallOf(const std::vector<std::string>& command) {
    return command[0] + ' ' + command[1] + ' ' + command[2];
}

// The service's name in StagedMachine.
QString ShortNameOfService() {
    return QString::fromLatin1(serviceUnit)
        .chopped(static_cast<qsizetype>(std::strlen(unitSuffix)));
}

// True if a running service has to be restarted.
bool UsesChanges(const StagedMachine& staged, const Differences& differences) {
    const std::string user = staged.serviceUser.toStdString();
    return std::any_of(differences.paths.begin(), differences.paths.end(),
                       [](const PathDifference& difference) {
                           return difference.entry != nullptr && difference.entry->serviceUses;
                       }) ||
           std::any_of(differences.members.begin(), differences.members.end(),
                       [&](const MemberDifference& difference) { return difference.user == user; });
}

bool CreatesUnit(const Differences& differences) {
    return std::any_of(
        differences.paths.begin(), differences.paths.end(), [](const PathDifference& difference) {
            return difference.entry == &Find(Item::Unit) && difference.change == Change::Create;
        });
}

void AddService(const StagedMachine& staged, bool alwaysRestart, Differences& differences) {
    if (!staged.activeServices.contains(ShortNameOfService())) {
        differences.services.push_back(
            {Change::Create, serviceUnit, CreatesUnit(differences) ? "" : isInactive, isActive});
    } else if (alwaysRestart || UsesChanges(staged, differences)) {
        differences.services.push_back({Change::Modify, serviceUnit, isActive, isActive});
    }
}

bool ConcernsManager(const PathDifference& difference) {
    const std::string unit = Find(Item::Unit).path;
    return difference.entry == nullptr || difference.entry->kind == Kind::EarlierService ||
           difference.path.starts_with(unit.substr(0, unit.rfind('/') + 1));
}

void ReloadManager() {
    RunTool({"systemctl", "daemon-reload"}, Messages::Discarded);
}

void ReportFailure(const char* verb, const std::string& name, const QString& reason) {
    const QString service = QString::fromStdString(name);
    ReportWarning(
        {ExitStatus::Complete,
         QStringLiteral("cannot %1 service \"%2\": %3").arg(QLatin1String(verb), service, reason),
         QStringLiteral("For details, run: journalctl --unit=%1").arg(service)});
}

bool StartAgain(const hx::EarlierService& service) {
    ReloadManager();
    const auto reason = RunTool(Command(service, "start"), Messages::Discarded);
    if (reason)
        ReportFailure("start", NameOf(service), *reason);
    return !reason;
}

bool ControlService(const char* verb) {
    const auto reason = RunTool({"systemctl", verb, serviceUnit}, Messages::Discarded);
    if (reason)
        ReportFailure(verb, serviceUnit, *reason);
    return !reason;
}

}  // namespace

Failure FindServiceDifferences(const StagedMachine& staged, bool alwaysRestart,
                               Differences& differences) {
    std::set<std::string> calls;
    if (!ReadCalls(staged.calls, calls)) {
        return Problem{ExitStatus::SystemCallFailed,
                       QStringLiteral("cannot read the recorded service calls: %1")
                           .arg(QString::fromUtf8(std::strerror(errno))),
                       QStringLiteral("Run the setup again.")};
    }
    for (const hx::EarlierService& service : hx::earlierServices) {
        if (!calls.contains(CallOf(Command(service, "stop"))))
            continue;
        const bool wasActive = staged.activeServices.contains(QLatin1String(service.name));
        differences.services.push_back(
            {Change::Delete, NameOf(service), wasActive ? isActive : isInactive, ""});
    }
    if (staged.isManagerRunning && (calls.contains(CallOf({"systemctl", "start", serviceUnit})) ||
                                    calls.contains(CallOf({"systemctl", "restart", serviceUnit}))))
        AddService(staged, alwaysRestart, differences);
    return {};
}

void AddServicesBefore(Differences& snapshot) {
    const ServiceStates states = FindServiceStates();
    if (!states.isManagerRunning)
        return;
    const auto exists = [&](const std::string& path) {
        return std::ranges::any_of(snapshot.paths, [&](const PathDifference& each) {
            return each.path == path && each.before.kind != State::Kind::Missing;
        });
    };
    for (const hx::EarlierService& service : hx::earlierServices) {
        const bool wasActive = states.active.contains(QLatin1String(service.name));
        if (exists(service.path))
            snapshot.services.push_back(
                {Change::Delete, NameOf(service), wasActive ? isActive : isInactive, ""});
    }
    if (states.active.contains(ShortNameOfService())) {
        snapshot.services.push_back({Change::Modify, serviceUnit, isActive, isActive});
    } else {
        const char* before = exists(Find(Item::Unit).path) ? isInactive : "";
        snapshot.services.push_back({Change::Create, serviceUnit, before, isActive});
    }
}

void KeepServiceIdle(Differences& differences) {
    std::erase_if(differences.services, [](const ServiceDifference& service) {
        return service.change == Change::Create && service.name == serviceUnit;
    });
}

void StopEarlierServices(const Differences& differences, Undo& undo) {
    for (const ServiceDifference& difference : differences.services) {
        const hx::EarlierService* service = FindEarlierService(difference.name);
        if (service == nullptr)
            continue;
        const bool wasActive = difference.before == isActive;
        // Also one that is not active: the manager may be about to start it again.
        const auto reason = RunTool(Command(*service, "stop"), Messages::Discarded);
        if (reason && wasActive)
            ReportFailure("stop", difference.name, *reason);
        if (wasActive)
            undo.Add([service] { return StartAgain(*service); });
    }
}

void StartService(const Differences& differences) {
    // Also before every restart: the manager of a setup that was killed may have the former unit.
    const auto isRestart = [](const ServiceDifference& service) {
        return service.change == Change::Modify;
    };
    if (std::any_of(differences.paths.begin(), differences.paths.end(), ConcernsManager) ||
        std::any_of(differences.services.begin(), differences.services.end(), isRestart))
        ReloadManager();
    for (const ServiceDifference& difference : differences.services) {
        if (difference.name != serviceUnit)
            continue;
        ControlService(difference.change == Change::Modify ? "restart" : "start");
    }
}

void FindServicesToUndo(const std::vector<ServiceDifference>& changed, const QStringList& active,
                        bool wasInterrupted, Differences& differences) {
    for (const ServiceDifference& service : changed) {
        const hx::EarlierService* earlier = FindEarlierService(service.name);
        const bool isNow = active.contains(earlier == nullptr ? ShortNameOfService()
                                                              : QLatin1String(earlier->name));
        const bool wasBefore = service.before == isActive;
        const bool mayRunFormerFiles = wasInterrupted || !differences.paths.empty();
        if (wasBefore && !isNow && (earlier != nullptr || wasInterrupted))
            differences.services.push_back({Change::Create, service.name, isInactive, isActive});
        else if (wasBefore && isNow && earlier == nullptr && mayRunFormerFiles)
            differences.services.push_back({Change::Modify, service.name, isActive, isActive});
        else if (!wasBefore && isNow && earlier == nullptr)
            differences.services.push_back(
                {Change::Delete, service.name, isActive, service.before});
    }
}

void StopServiceForUndo(const Differences& differences, Undo& undo) {
    for (const ServiceDifference& difference : differences.services) {
        if (difference.change != Change::Delete)
            continue;
        ControlService("stop");
        undo.Add([] {
            ReloadManager();
            return ControlService("start");
        });
    }
}

void StopRemovedService(const Differences& differences) {
    const bool isStoppedLater =
        std::ranges::any_of(differences.services, [](const ServiceDifference& service) {
            return service.name == serviceUnit && service.change == Change::Delete;
        });
    const bool isRemoved =
        std::ranges::any_of(differences.paths, [](const PathDifference& difference) {
            return difference.entry == &Find(Item::Unit) && difference.change == Change::Delete;
        });
    if (isRemoved && !isStoppedLater)
        RunTool({"systemctl", "stop", serviceUnit}, Messages::Discarded);
}

void StartServicesAfterUndo(const Differences& differences) {
    if (!differences.services.empty() ||
        std::any_of(differences.paths.begin(), differences.paths.end(), ConcernsManager))
        ReloadManager();
    for (const ServiceDifference& difference : differences.services) {
        const hx::EarlierService* earlier = FindEarlierService(difference.name);
        if (difference.change == Change::Modify)
            ControlService("restart");
        else if (difference.change == Change::Create && earlier != nullptr)
            StartAgain(*earlier);
        else if (difference.change == Change::Create)
            ControlService("start");
    }
}
