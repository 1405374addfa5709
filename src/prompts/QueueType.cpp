// Asks whether the internal queue or an external one runs calculations, and prints the settings.
#include <cstdio>

#include "prompts/Console.h"
#include "setuprun/CInstallBase.h"
#include "setuprun/Schedulers.h"

namespace {

// In the order of the values of QueueType, from QueueInternal.
constexpr hx::MenuChoice queueTypes[] = {
    {"Internal", R"(       Default queue built into Corvane.  The queue implements
       a simple FIFO (First In First Out) scheduler.
)"},
    {"External", R"(       Allows submitting jobs to a queue external to Corvane.
       Examples are Torque, OpenPBS, Slurm, SGE, and LSF.
)"}};

void WriteSchedulerSettings(const CInstallBase& run) {
    const hx::Scheduler* scheduler = hx::FindScheduler(run);
    if (scheduler == nullptr)
        return;
    const QString& queue = run.*scheduler->queue;
    if (!queue.isEmpty())
        std::printf("    %s=\"%s\"\n", scheduler->queueSetting, qUtf8Printable(queue));
    for (const hx::SchedulerCommand& command : scheduler->commands) {
        std::printf("    %s command=\"%s\"\n", command.name, qUtf8Printable(run.*command.path));
    }
}

// Compatibility: a setup without a queue is reported as external.
void WriteSummary(const CInstallBase& run) {
    CInstallBase::InstallSeparator();
    if (run.m_queueType == CInstallBase::QueueInternal) {
        std::printf("\n  Queue type: Internal\n");
    } else {
        std::printf("\n  Queue type: External\n");
        WriteSchedulerSettings(run);
    }
    std::printf("\n");
}

}  // namespace

void CInstallBase::PromptQueueType() {
    if (m_queueType == QueueUnset) {
        InstallSeparator();
        m_queueType = hx::AskMenu(*this, "type of queue", queueTypes);
        if (m_queueType == QueueExternal)
            PromptExternalQueueOptions();
    }
    WriteSummary(*this);
    InstallPause();
}
