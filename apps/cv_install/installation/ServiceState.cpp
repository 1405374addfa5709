#include "installation/ServiceState.h"

#include <QFile>
#include <QProcess>
#include <QThread>
#include <algorithm>

#include "Problem.h"
#include "installation/Installation.h"
#include "installation/PathParts.h"

namespace {

constexpr int longestQuery = 30000;
constexpr int queryInterval = 100;
constexpr int longestStart = 10000;
constexpr int shortestLife = 500;  // of a program that has not failed at once
constexpr qsizetype widestMessage = 200;

// Empty when the tool cannot be run, or does not end.
QStringList LinesOf(const QString& tool, const QStringList& arguments) {
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(tool, arguments);
    if (!process.waitForFinished(longestQuery)) {
        process.kill();
        process.waitForFinished(1000);
        return {};
    }
    return QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
}

// True while the main process is the service manager's, which is about to run the service script,
// or that script or the run script, which its program replaces.
bool IsBeingStarted() {
    const QString process = PropertyOf(ServiceProperties(), "MainPID");
    const QString directory = QStringLiteral("/proc/") + process;
    QFile file(directory + QStringLiteral("/cmdline"));
    if (process.isEmpty() || !file.open(QIODevice::ReadOnly))
        return false;
    const QString program = QFile::symLinkTarget(directory + QStringLiteral("/exe"));
    if (program.contains(QLatin1String("/systemd")))
        return true;
    const auto isScript = [](const QByteArray& argument) {
        const std::string name = BaseNameOf(argument.toStdString());
        return name == BaseNameOf(Find(Item::ServiceScript).path) ||
               name == BaseNameOf(Find(Item::RunScript).path);
    };
    return std::ranges::any_of(file.readAll().split('\0'), isScript);
}

}  // namespace

QString ServiceState() {
    return LinesOf(QStringLiteral("systemctl"),
                   {QStringLiteral("is-active"), QLatin1String(serviceUnit)})
        .value(0)
        .trimmed();
}

QString ServiceStateAfterStart() {
    QString state = ServiceState();
    for (int waited = 0; state == u"active" && waited < longestStart && IsBeingStarted();
         waited += queryInterval) {
        QThread::msleep(queryInterval);
        state = ServiceState();
    }
    if (state != u"active")
        return state;
    QThread::msleep(shortestLife);
    return ServiceState();
}

QStringList ServiceProperties() {
    return LinesOf(QStringLiteral("systemctl"),
                   {QStringLiteral("show"),
                    QStringLiteral("--property=ActiveState,SubState,Result,UnitFileState,"
                                   "InactiveEnterTimestampMonotonic,MainPID,DropInPaths"),
                    QLatin1String(serviceUnit)});
}

QString PropertyOf(const QStringList& properties, const char* name) {
    const QString start = QLatin1String(name) + u'=';
    const auto found = std::ranges::find_if(
        properties, [&](const QString& line) { return line.startsWith(start); });
    return found == properties.end() ? QString() : found->mid(start.size());
}

QString StateOfIdleService(const QStringList& properties) {
    if (PropertyOf(properties, "ActiveState") != u"inactive" ||
        PropertyOf(properties, "Result") != u"success")
        return {};
    if (PropertyOf(properties, "UnitFileState") == u"disabled")
        return QStringLiteral("disabled");
    // An enabled service that has not run since the machine was started was not stopped.
    const QString lastEnd = PropertyOf(properties, "InactiveEnterTimestampMonotonic");
    return lastEnd.isEmpty() || lastEnd == u"0" ? QString() : QStringLiteral("stopped");
}

QStringList ServiceMessages() {
    QStringList messages = LinesOf(
        QStringLiteral("journalctl"),
        {QStringLiteral("--unit"), QLatin1String(serviceUnit), QStringLiteral("--lines=5"),
         QStringLiteral("--no-pager"), QStringLiteral("--quiet"), QStringLiteral("--no-hostname")});
    for (QString& message : messages)
        message = Printable(message.left(widestMessage));
    return messages;
}
