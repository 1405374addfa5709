#include "report/Summary.h"

#include <unistd.h>

#include <QProcess>
#include <QThread>
#include <cstdio>

#include "Problem.h"
#include "apply/Console.h"
#include "apply/SetupLog.h"
#include "installation/SetupRun.h"
#include "setuprun/Schedulers.h"

namespace {

// The answer of systemctl, such as "active" or "failed"; empty when it cannot be run.
QString ServiceState() {
    QProcess systemctl;
    systemctl.start(QStringLiteral("systemctl"),
                    {QStringLiteral("is-active"), QLatin1String(serviceUnit)});
    if (!systemctl.waitForFinished(-1))
        return {};
    return QString::fromUtf8(systemctl.readAllStandardOutput()).trimmed();
}

// A name without a directory is searched for by its caller.
bool IsExecutable(const QString& command) {
    return !command.contains(u'/') || access(command.toUtf8().constData(), X_OK) == 0;
}

// The library does not check the scheduler's commands, and no option sets them.
QStringList FindMissingCommands(const CInstallBase& run) {
    QStringList missing;
    const hx::Scheduler* scheduler = hx::FindScheduler(run);
    if (run.m_queueType != CInstallBase::QueueExternal || scheduler == nullptr)
        return missing;
    for (const hx::SchedulerCommand& row : scheduler->commands) {
        const QString& command = run.*row.path;
        if (!IsExecutable(command))
            missing.push_back(command);
    }
    return missing;
}

void ShowMissingCommands(const QStringList& missing) {
    const Console::Printing problem(missing.isEmpty() ? Console::Importance::Usual
                                                      : Console::Importance::Needed);
    for (const QString& command : missing)
        std::printf("  Queue:     cannot execute command \"%s\"\n", qUtf8Printable(command));
    if (!missing.isEmpty()) {
        std::printf("             To set its path, run the setup again without a queue option.\n");
    }
}

void ShowService() {
    QString state = ServiceState();
    if (state == u"active") {
        // A service that fails at once is active for a moment.
        QThread::msleep(500);
        state = ServiceState();
    }
    if (state.isEmpty()) {
        std::printf("  Service:   unknown (cannot run systemctl)\n");
        return;
    }
    std::printf("  Service:   %s\n", qUtf8Printable(state));
    if (state != u"active")
        std::printf("             For details, run: journalctl --unit=%s\n", serviceUnit);
}

void PrintInQuiet(const QString& line) {
    const Console::Printing summary(Console::Importance::Needed);
    std::printf("cv_install: %s\n", qUtf8Printable(Printable(line)));
}

}  // namespace

Summary SummaryOf(const CInstallBase& run) {
    return {.isRoot = IsRootSetup(run),
            .hasService = IsRootSetup(run) && !run.m_clusterNode,
            .installDir = run.m_installDir,
            .missingCommands = FindMissingCommands(run)};
}

Summary SummaryOf(const StagedMachine& staged) {
    return {.isRoot = true,
            .hasService = Applies(Find(Item::Unit), staged.conditions),
            .isManagerRunning = staged.isManagerRunning,
            .installDir = staged.installDir,
            .missingCommands = staged.missingCommands};
}

void ShowSummary(const Summary& summary) {
    const std::string installDir = summary.installDir.toStdString();
    std::printf("  Installed: %s\n", installDir.c_str());
    ShowMissingCommands(summary.missingCommands);
    if (summary.hasService && !summary.isManagerRunning)
        std::printf("  Service:   not started (the service manager is not running)\n");
    else if (summary.hasService)
        ShowService();
    if (!SetupLog::Path().empty())
        std::printf("  Log:       %s\n", SetupLog::Path().c_str());
    std::printf("  Next step: start Corvane with %s\n",
                summary.isRoot ? commandName : PathOf(Find(Item::RunScript), installDir).c_str());
    std::fflush(stdout);
    if (Console::IsQuiet())
        PrintInQuiet(QStringLiteral("set up \"%1\"").arg(summary.installDir));
}

void ShowSummaryOfDryRun(const Differences& differences) {
    const size_t count = differences.accounts.size() + differences.members.size() +
                         differences.paths.size() + differences.services.size();
    if (Console::IsQuiet())
        PrintInQuiet(QStringLiteral("changes of a setup: %1").arg(count));
}
