#include "Summary.h"

#include <unistd.h>

#include <QProcess>
#include <QThread>
#include <cstdio>

#include "SetupLog.h"

namespace {

constexpr const char* Unit = "corvane26_service.service";

// What systemctl answers, such as "active" or "failed"; empty when it cannot be asked.
QString ServiceState() {
    QProcess systemctl;
    systemctl.start(QStringLiteral("systemctl"),
                    {QStringLiteral("is-active"), QString::fromUtf8(Unit)});
    if (!systemctl.waitForFinished(-1))
        return {};
    return QString::fromUtf8(systemctl.readAllStandardOutput()).trimmed();
}

// A name without a directory is looked for by whoever calls it.
bool CanBeStarted(const QString& command) {
    return !command.contains(u'/') || access(command.toUtf8().constData(), X_OK) == 0;
}

// The library takes the scheduler's commands on trust, and the options give no way to name them.
void ShowMissingQueueCommands(const CInstallBase& run) {
    if (run.m_queueType != CInstallBase::QueueExternal)
        return;
    bool missing = false;
    const QStringList commands = run.m_scheduler == u"SLURM"
                                     ? QStringList{run.m_sbatchCmd, run.m_scancelCmd}
                                     : QStringList{run.m_qsubCmd, run.m_qdelCmd, run.m_qsigCmd};
    for (const QString& command : commands) {
        if (CanBeStarted(command))
            continue;
        std::printf("  Queue:     the command \"%s\" cannot be started\n", qUtf8Printable(command));
        missing = true;
    }
    if (missing)
        std::printf("             Give its place: run the setup again without a queue option\n");
}

void ShowService(const CInstallBase& run) {
    if (run.m_clusterNode)
        return;
    // A service that fails at once has been active for a moment.
    QThread::msleep(500);
    const QString state = ServiceState();
    if (state.isEmpty()) {
        std::printf("  Service:   unknown, systemctl cannot be asked\n");
        return;
    }
    std::printf("  Service:   %s\n", qUtf8Printable(state));
    if (state != u"active")
        std::printf("             See why: journalctl --unit=%s\n", Unit);
}

}  // namespace

void ShowSummary(const CInstallBase& run) {
    const bool rootRun = run.m_accessFlags == CInstallBase::RootAccess;
    std::printf("  Installed: %s\n", qUtf8Printable(run.m_installDir));
    ShowMissingQueueCommands(run);
    if (rootRun)
        ShowService(run);
    if (!SetupLog::Path().empty())
        std::printf("  Log:       %s\n", SetupLog::Path().c_str());
    std::printf(
        "  Next step: start Corvane with %s\n",
        rootRun ? "corvane26" : qUtf8Printable(run.m_installDir + QStringLiteral("/corvane26")));
    std::fflush(stdout);
}
