#include "verify/StatusReport.h"

#include <QDateTime>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "Console.h"
#include "installation/ServiceState.h"
#include "installation/SetupLock.h"
#include "report/JsonReport.h"
#include "verify/InstalledMachine.h"

namespace {

using Json = nlohmann::ordered_json;

struct InstallationStatus {
    QString productVersion;  // empty if it is unknown
    QString productReason;
    QString service;  // empty without one
    QString dropIns;
    LockState lock;
    bool isUnfinished = false;
};

QString ServiceText(const QStringList& lines) {
    const QString state = PropertyOf(lines, "ActiveState");
    if (state.isEmpty())
        return QStringLiteral("unknown (the service manager is not running)");
    const QString enabled = PropertyOf(lines, "UnitFileState");
    return enabled.isEmpty() ? state : state + QStringLiteral(", ") + enabled;
}

InstallationStatus ReadStatus(const RecordedInstallation& installation) {
    InstallationStatus status;
    status.productVersion = VersionOf(installation.manifest.productDir, status.productReason);
    if (HasService(installation.manifest)) {
        const QStringList lines = ServiceProperties();
        status.service = ServiceText(lines);
        status.dropIns = PropertyOf(lines, "DropInPaths");
    }
    status.lock = SetupLock::Look(installation.installDir, installation.IsRoots());
    status.isUnfinished =
        status.lock.runningSetup.isEmpty() && IsUnfinished(installation, status.lock);
    return status;
}

void PrintField(const char* label, const QString& value) {
    std::printf("  %-15s %s\n", label, qUtf8Printable(Printable(value)));
}

QString VerificationText(const RecordedInstallation& installation) {
    if (!installation.lastVerification)
        return QStringLiteral("never");
    const auto& [time, differences] = *installation.lastVerification;
    const QString now = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
    return AgeOf(time, now) + QStringLiteral(" (%1), differences: %2").arg(time).arg(differences);
}

QString SetupText(const InstallationStatus& status) {
    if (!status.lock.runningSetup.isEmpty())
        return status.lock.runningSetup;
    return status.isUnfinished ? QStringLiteral("did not run to its end; run it again")
                               : QStringLiteral("complete");
}

void PrintStatus(const RecordedInstallation& installation, const InstallationStatus& status) {
    const Manifest& manifest = installation.manifest;
    const Console::Printing needed(Console::Importance::Needed);
    PrintField("Installed:", installation.installDir);
    PrintField("Version:", manifest.facts.version);
    PrintField("Product:", QString::fromStdString(manifest.productDir));
    PrintField("Its version:", status.productVersion.isEmpty()
                                   ? QStringLiteral("unknown (%1)").arg(status.productReason)
                                   : status.productVersion);
    PrintField("Set up:", manifest.facts.time + QStringLiteral(" by ") + manifest.facts.user);
    PrintField("Command:", manifest.facts.command);
    PrintField("Previous setup:", SetupText(status));
    if (!status.service.isEmpty())
        PrintField("Service:", status.service);
    if (!status.dropIns.isEmpty())
        PrintField("Drop-ins:", status.dropIns);
    PrintField("Last verified:", VerificationText(installation));
    std::printf("Answers:\n");
    for (const auto& [id, answer] : manifest.answers.All())
        std::printf("  %s: %s\n", RowOf(id).label,
                    qUtf8Printable(Printable(manifest.answers.Text(id))));
    std::fflush(stdout);
}

Json TextOrNull(const QString& text) {
    return text.isEmpty() ? Json() : Json(text.toStdString());
}

Json VerificationJson(const RecordedInstallation& installation) {
    if (!installation.lastVerification)
        return nullptr;
    return {{"time", installation.lastVerification->time.toStdString()},
            {"differences", installation.lastVerification->differences}};
}

void NoteStatus(const RecordedInstallation& installation, const InstallationStatus& status) {
    const SetupFacts& facts = installation.manifest.facts;
    JsonReport::NoteAnswers(installation.manifest.answers);
    JsonReport::NoteMember("installation", {{"version", facts.version.toStdString()},
                                            {"time", facts.time.toStdString()},
                                            {"user", facts.user.toStdString()},
                                            {"command", facts.command.toStdString()},
                                            {"product_dir", installation.manifest.productDir},
                                            {"product_version", TextOrNull(status.productVersion)},
                                            {"service", TextOrNull(status.service)},
                                            {"running", !status.lock.runningSetup.isEmpty()},
                                            {"unfinished", status.isUnfinished},
                                            {"last_verification", VerificationJson(installation)}});
}

}  // namespace

QString AgeOf(const QString& time, const QString& now) {
    struct Unit {
        qint64 seconds;
        const char* name;
    };
    constexpr Unit units[] = {{86400, "day"}, {3600, "hour"}, {60, "minute"}};
    const qint64 age =
        QDateTime::fromString(time, Qt::ISODate).secsTo(QDateTime::fromString(now, Qt::ISODate));
    for (const Unit& unit : units) {
        const qint64 count = age / unit.seconds;
        if (count > 0) {
            return QStringLiteral("%1 %2%3 ago")
                .arg(count)
                .arg(QLatin1String(unit.name), count == 1 ? QString() : QStringLiteral("s"));
        }
    }
    return QStringLiteral("less than a minute ago");
}

ExitStatus RunStatus(Arguments& arguments) {
    RecordedInstallation installation;
    if (const Failure failure = FindInstallation(arguments.argv()[0], installation)) {
        Report(*failure);
        return failure->status;
    }
    JsonReport::NoteInstallDirectory(installation.installDir);
    const InstallationStatus status = ReadStatus(installation);
    PrintStatus(installation, status);
    NoteStatus(installation, status);
    return ExitStatus::Complete;
}
