// The external schedulers that a setup supports, one row each.
#pragma once

#include <QString>
#include <span>

#include "setuprun/CInstallBase.h"

namespace hx {

// A command of a scheduler.
struct SchedulerCommand {
    const char* name;             // its file name, also in questions and reports
    QString CInstallBase::*path;  // the field with its path
    const char* variable;         // the run script exports the path as CORV_ and this name
};

// A scheduler, with its queue, which its users may call by another word.
struct Scheduler {
    const char* name;                            // value of m_scheduler
    const char* label;                           // its choice in the menu
    const char* queueQuestion;                   // first word of the question for the queue
    const char* queueSetting;                    // name of the queue in the report
    QString CInstallBase::*queue;                // the field with the queue
    const char* queueVariable;                   // the run script exports it as CORV_ and this name
    bool inWrittenRunScript;                     // WriteCorvaneOLD exports the commands
    std::span<const char* const> directories;    // where its commands are searched for
    std::span<const SchedulerCommand> commands;  // the first one submits jobs
};

inline constexpr const char* torqueDirectories[] = {"/opt/pbs/bin/", "/usr/local/bin/"};
inline constexpr SchedulerCommand torqueCommands[] = {
    {"qsub", &CInstallBase::m_qsubCmd, "QSUB_CMD"},
    {"qdel", &CInstallBase::m_qdelCmd, "QDEL_CMD"},
    {"qsig", &CInstallBase::m_qsigCmd, "QSIG_CMD"}};

inline constexpr const char* slurmDirectories[] = {"/usr/bin/"};
inline constexpr SchedulerCommand slurmCommands[] = {
    {"sbatch", &CInstallBase::m_sbatchCmd, "SBATCH_CMD"},
    {"scancel", &CInstallBase::m_scancelCmd, "SCANCEL_CMD"}};

// In the order of the menu and of the commit script.
inline constexpr Scheduler schedulers[] = {
    {"TORQUE", "Torque/OpenPBS", "Queue", "queue", &CInstallBase::m_queueName, "QUEUE_NAME", true,
     torqueDirectories, torqueCommands},
    {"SLURM", "Slurm", "Partition", "partition", &CInstallBase::m_partitionName, "PARTITION_NAME",
     false, slurmDirectories, slurmCommands}};

// The schedulers that the command line selects.
inline constexpr const Scheduler& torque = schedulers[0];
inline constexpr const Scheduler& slurm = schedulers[1];

// Returns the scheduler that m_scheduler names, or null.
inline const Scheduler* FindScheduler(const CInstallBase& run) {
    for (const Scheduler& scheduler : schedulers) {
        if (run.m_scheduler == QLatin1String(scheduler.name))
            return &scheduler;
    }
    return nullptr;
}

// Sets the paths of all commands but the first to the directory of the first. Without a directory
// in the first, the commands have none.
inline void SetCompanionCommands(CInstallBase& run, const Scheduler& scheduler) {
    const QString& submit = run.*scheduler.commands.front().path;
    const QString directory = submit.left(submit.lastIndexOf(u'/') + 1);
    for (const SchedulerCommand& command : scheduler.commands.subspan(1))
        run.*command.path = directory + QLatin1String(command.name);
}

}  // namespace hx
