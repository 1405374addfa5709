// Asks how calculations are run, by the built-in queue or an external one, and tells the settings.
#include <cstdio>

#include "prompts/Console.h"
#include "setuprun/CInstallBase.h"

namespace {

constexpr const char* QueueMenu = R"(
Choose type of queue...
  1) Internal
       Default queue built into Corvane.  The queue implements
       a simple FIFO (First In First Out) scheduler.
  2) External
       Allows submitting jobs to a queue external to Corvane.
       Examples are Torque, OpenPBS, Slurm, SGE, and LSF.
>)";

void WriteSetting(const char* name, const QString& value) {
    std::printf("    %s=\"%s\"\n", name, qUtf8Printable(value));
}

void WriteSchedulerSettings(const CInstallBase& run) {
    if (run.m_scheduler == u"TORQUE") {
        if (!run.m_queueName.isEmpty())
            WriteSetting("queue", run.m_queueName);
        WriteSetting("qsub command", run.m_qsubCmd);
        WriteSetting("qdel command", run.m_qdelCmd);
        WriteSetting("qsig command", run.m_qsigCmd);
    } else if (run.m_scheduler == u"SLURM") {
        if (!run.m_partitionName.isEmpty())
            WriteSetting("partition", run.m_partitionName);
        WriteSetting("sbatch command", run.m_sbatchCmd);
        WriteSetting("scancel command", run.m_scancelCmd);
    }
}

// Kept: a run without a queue reports itself as external.
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
        m_queueType = hx::AskMenu(*this, QueueMenu, "type of queue");
        if (m_queueType == QueueExternal)
            PromptExternalQueueOptions();
    }
    WriteSummary(*this);
    InstallPause();
}
