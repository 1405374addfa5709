#include "answers/StartRun.h"

#include "answers/Members.h"
#include "installation/Installation.h"
#include "installation/SetupRun.h"
#include "setuprun/Schedulers.h"

namespace {

// A question asks whether to keep these.
bool IsAskedAbout(const CInstallBase& run, AnswerId id, const Answer& answer) {
    return run.m_interactive && answer.source == AnswerSource::Record &&
           (id == AnswerId::JobLimit || id == AnswerId::Queue || id == AnswerId::QueueName);
}

void ApplyAtStart(const Answers& answers, CInstallBase& run) {
    Answers applied = answers;
    for (const auto& [id, answer] : answers.All()) {
        if (IsAskedAbout(run, id, answer))
            applied.Remove(id);
    }
    ApplyAnswers(applied, run);
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

std::unique_ptr<CInstallBase> StartRun(Arguments& arguments, const Answers& file,
                                       const TakeOver& takeOver, Answers& answers) {
    auto run = std::make_unique<CInstallBase>(
        CInstallBase::ParseUserModeArg(arguments.argc(), arguments.argv()), arguments.argc(),
        arguments.argv());
    // The limits are divided by the number of cores.
    if (run->m_coreCount < 1)
        run->m_coreCount = 1;
    if (arguments.Has(OwnOption::Yes))
        run->m_interactive = false;
    answers = {};
    answers.Complete(arguments.AnswersIn(*run));
    answers.Complete(file);
    ApplyAtStart(answers, *run);
    FindPresentMembers(*run);
    if (takeOver) {
        answers.Complete(takeOver(*run));
        ApplyAtStart(answers, *run);
        // The service group may be that of the previous setup.
        FindPresentMembers(*run);
    }
    // The queue's menu has no default.
    if (!run->m_interactive && run->m_queueType == CInstallBase::QueueUnset)
        run->m_queueType = CInstallBase::QueueInternal;
    return run;
}

unsigned ConditionsOf(const CInstallBase& run, const Answers& answers) {
    unsigned conditions = IsRootSetup(run) ? AsRoot : AsUser;
    if (!run.m_clusterNode)
        conditions |= WithoutClusterNode;
    const Answer* scripts = answers.Find(AnswerId::SubmissionScripts);
    if (scripts != nullptr && scripts->value == AnswerValue(true))
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
