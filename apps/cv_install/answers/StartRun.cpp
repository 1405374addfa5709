#include "answers/StartRun.h"

#include "answers/Members.h"
#include "installation/Installation.h"
#include "installation/SetupRun.h"
#include "setuprun/Schedulers.h"

namespace {

void AnswerWithDefaults(CInstallBase& run) {
    run.m_interactive = false;
    // The queue's menu has no default.
    if (run.m_queueType == CInstallBase::QueueUnset)
        run.m_queueType = CInstallBase::QueueInternal;
}

QString QueueOf(const CInstallBase& run) {
    if (run.m_queueType == CInstallBase::QueueInternal)
        return QStringLiteral("internal");
    if (run.m_queueType != CInstallBase::QueueExternal)
        return QStringLiteral("none");
    const hx::Scheduler* scheduler = hx::FindScheduler(run);
    if (scheduler == nullptr)
        return run.m_scheduler;
    const QString& name = run.*scheduler->queue;
    return QLatin1String(scheduler->label) + u' ' +
           (name.isEmpty() ? QStringLiteral("(default)") : name);
}

}  // namespace

std::unique_ptr<CInstallBase> StartRun(Arguments& arguments) {
    auto run = std::make_unique<CInstallBase>(
        CInstallBase::ParseUserModeArg(arguments.argc(), arguments.argv()), arguments.argc(),
        arguments.argv());
    // The limits are divided by the number of cores.
    if (run->m_coreCount < 1)
        run->m_coreCount = 1;
    if (arguments.Has(OwnOption::Yes))
        AnswerWithDefaults(*run);
    FindPresentMembers(*run);
    return run;
}

unsigned ConditionsOf(const CInstallBase& run, const Arguments& arguments) {
    unsigned conditions = IsRootSetup(run) ? AsRoot : AsUser;
    if (!run.m_clusterNode)
        conditions |= WithoutClusterNode;
    if (arguments.Has(OwnOption::SubmissionScripts))
        conditions |= WithSubmissionScripts;
    return conditions;
}

std::vector<std::pair<QString, QString>> ValuesOf(const CInstallBase& run) {
    return {
        {QStringLiteral("Job limit"), QStringLiteral("%1 threads").arg(run.m_jobLimit)},
        {QStringLiteral("Memory limit"),
         QStringLiteral("%1 MB per thread").arg(run.m_memoryLimitMB)},
        {QStringLiteral("Scratch directory"), run.m_scratchDir},
        {QStringLiteral("Scratch limit"),
         QStringLiteral("%1 GB per thread").arg(run.m_scratchLimitGB)},
        {QStringLiteral("Queue"), QueueOf(run)},
        {QStringLiteral("Service account"), run.m_serviceUser + u':' + run.m_serviceGroup},
    };
}
