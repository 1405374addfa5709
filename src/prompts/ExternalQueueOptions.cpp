// Asks for the external scheduler and for the commands that submit and cancel jobs.
#include <cstdio>

#include "prompts/Console.h"
#include "setuprun/CInstallBase.h"

namespace {

constexpr const char* SchedulerMenu = R"(
Choose scheduler...
  1) Torque/OpenPBS
  2) Slurm
>)";

// The words in the brackets are literal: an empty answer names no queue.
void AskForName(const char* kind, QString& name) {
    name.clear();
    std::printf("\n%s to which CORVANE jobs will be submitted [<default>]:", kind);
    hx::ReadTextAnswerInto(name);
}

void AskForCommand(const char* command, QString& path) {
    std::printf("\nLocation of %s command [%s]:", command, qUtf8Printable(path));
    hx::ReadTextAnswerInto(path);
}

// The companion of a submit command is looked for beside it, whatever stood in `path` before.
void AskForCompanion(const QString& submitPath, const char* command, QString& path) {
    path = submitPath.left(submitPath.lastIndexOf(u'/') + 1) + QLatin1String(command);
    AskForCommand(command, path);
}

}  // namespace

void CInstallBase::PromptExternalQueueOptions() {
    InstallSeparator();
    if (hx::AskMenu(*this, SchedulerMenu, "scheduler") == 1) {
        m_scheduler = QStringLiteral("TORQUE");
        AskForName("Queue", m_queueName);
        AskForCommand("qsub", m_qsubCmd);
        AskForCompanion(m_qsubCmd, "qdel", m_qdelCmd);
        AskForCompanion(m_qsubCmd, "qsig", m_qsigCmd);
    } else {
        m_scheduler = QStringLiteral("SLURM");
        AskForName("Partition", m_partitionName);
        AskForCommand("sbatch", m_sbatchCmd);
        AskForCompanion(m_sbatchCmd, "scancel", m_scancelCmd);
    }
}
