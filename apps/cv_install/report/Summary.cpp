#include "report/Summary.h"

#include <cstdio>

#include "Console.h"
#include "Problem.h"
#include "apply/SetupLog.h"
#include "installation/ServiceState.h"
#include "installation/SetupRun.h"
#include "record/InstalledEntries.h"
#include "setuprun/Schedulers.h"

namespace {

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

void ShowService(const Summary& summary) {
    const Console::Printing problem(summary.serviceMessages.isEmpty()
                                        ? Console::Importance::Usual
                                        : Console::Importance::Needed);
    const bool isUnknown = summary.serviceState.isEmpty();
    std::printf("  Service:   %s\n", !summary.isManagerRunning
                                         ? "not started (the service manager is not running)"
                                     : isUnknown ? "unknown (cannot run systemctl)"
                                                 : qUtf8Printable(summary.serviceState));
    for (const QString& message : summary.serviceMessages)
        std::printf("             %s\n", qUtf8Printable(message));
}

bool IsActiveOrUnknown(const Summary& summary) {
    return summary.serviceState.isEmpty() || summary.serviceState == u"active";
}

void PrintInQuiet(const QString& line) {
    const Console::Printing summary(Console::Importance::Needed);
    std::printf("cv_install: %s\n", qUtf8Printable(Printable(line)));
}

}  // namespace

Summary SummaryOf(const CInstallBase& run) {
    return {.isRoot = IsRootSetup(run),
            .hasService = IsRootSetup(run) && !run.m_clusterNode,
            .serviceState = {},
            .serviceMessages = {},
            .installDir = run.m_installDir,
            .missingCommands = FindMissingCommands(run)};
}

Summary SummaryOf(const StagedMachine& staged) {
    return {.isRoot = true,
            .hasService = Applies(Find(Item::Unit), staged.conditions),
            .isManagerRunning = staged.isManagerRunning,
            .serviceState = {},
            .serviceMessages = {},
            .installDir = staged.installDir,
            .missingCommands = staged.missingCommands};
}

Failure CheckService(Summary& summary) {
    if (!summary.hasService || !summary.isManagerRunning)
        return {};
    QString& state = summary.serviceState;
    state = ServiceStateAfterStart();
    if (IsActiveOrUnknown(summary))
        return {};
    summary.serviceMessages = ServiceMessages();
    return Problem{
        ExitStatus::ServiceNotRunning,
        QStringLiteral("service \"%1\" is not running: %2").arg(QLatin1String(serviceUnit), state),
        QStringLiteral("For details, run: journalctl --unit=%1").arg(QLatin1String(serviceUnit)),
        Changes::Unknown};
}

void ShowSummary(const Summary& summary) {
    const std::string installDir = summary.installDir.toStdString();
    std::printf("  Installed: %s\n", installDir.c_str());
    ShowMissingCommands(summary.missingCommands);
    if (summary.hasService)
        ShowService(summary);
    if (!SetupLog::Path().empty())
        std::printf("  Log:       %s\n", SetupLog::Path().c_str());
    if (IsActiveOrUnknown(summary)) {
        std::printf(
            "  Next step: start Corvane with %s\n",
            summary.isRoot ? commandName : PathOf(Find(Item::RunScript), installDir).c_str());
    }
    std::fflush(stdout);
    if (Console::IsQuiet() && IsActiveOrUnknown(summary))
        PrintInQuiet(QStringLiteral("set up \"%1\"").arg(summary.installDir));
}

void ShowNothingToDo(const QString& idleService) {
    const Console::Printing summary(Console::Importance::Needed);
    std::printf("Nothing to do.\n");
    if (!idleService.isEmpty())
        std::printf("  Service:   %s, not started\n", qUtf8Printable(idleService));
    std::fflush(stdout);
}

void ShowSummaryOfDryRun(const Differences& differences, const char* action) {
    const size_t count = differences.accounts.size() + differences.members.size() +
                         differences.userChanges.size() + differences.paths.size() +
                         differences.services.size();
    if (Console::IsQuiet())
        PrintInQuiet(QStringLiteral("changes of %1: %2").arg(QLatin1String(action)).arg(count));
}
