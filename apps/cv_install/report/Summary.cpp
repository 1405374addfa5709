#include "report/Summary.h"

#include <unistd.h>

#include <QProcess>
#include <QThread>
#include <cstdio>

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
void ShowMissingQueueCommands(const CInstallBase& run) {
    const hx::Scheduler* scheduler = hx::FindScheduler(run);
    if (run.m_queueType != CInstallBase::QueueExternal || scheduler == nullptr)
        return;
    bool missing = false;
    for (const hx::SchedulerCommand& row : scheduler->commands) {
        const QString& command = run.*row.path;
        if (IsExecutable(command))
            continue;
        std::printf("  Queue:     cannot execute command \"%s\"\n", qUtf8Printable(command));
        missing = true;
    }
    if (missing) {
        std::printf("             To set its path, run the setup again without a queue option.\n");
    }
}

void ShowService(const CInstallBase& run) {
    if (run.m_clusterNode)
        return;
    // A service that fails at once is active for a moment.
    QThread::msleep(500);
    const QString state = ServiceState();
    if (state.isEmpty()) {
        std::printf("  Service:   unknown (cannot run systemctl)\n");
        return;
    }
    std::printf("  Service:   %s\n", qUtf8Printable(state));
    if (state != u"active")
        std::printf("             For details, run: journalctl --unit=%s\n", serviceUnit);
}

}  // namespace

void ShowSummary(const CInstallBase& run) {
    const bool root = IsRootSetup(run);
    std::printf("  Installed: %s\n", qUtf8Printable(run.m_installDir));
    ShowMissingQueueCommands(run);
    if (root)
        ShowService(run);
    if (!SetupLog::Path().empty())
        std::printf("  Log:       %s\n", SetupLog::Path().c_str());
    const QString command =
        root ? QString::fromUtf8(commandName) : PathIn(run, Find(Item::RunScript));
    std::printf("  Next step: start Corvane with %s\n", qUtf8Printable(command));
    std::fflush(stdout);
}
