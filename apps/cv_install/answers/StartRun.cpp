#include "answers/StartRun.h"

#include "answers/Listeners.h"
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

using Values = std::vector<std::pair<QString, QString>>;

AnswerValue AnswerIn(const CInstallBase& run, AnswerId id) {
    return RowOf(id).read(run);
}

bool Differs(const CInstallBase& run, const Answers& previous, AnswerId id) {
    const Answer* answer = previous.Find(id);
    return answer != nullptr && answer->value != AnswerIn(run, id);
}

QString With(const QString& value, const QString& former) {
    return value + QStringLiteral(" (was: %1)").arg(former);
}

QString TextOf(const CInstallBase& run, const Answers& previous, AnswerId id) {
    const QString text = TextOf(RowOf(id), AnswerIn(run, id));
    return Differs(run, previous, id) ? With(text, previous.Text(id)) : text;
}

void AddQueue(const CInstallBase& run, const Answers& previous, Values& values) {
    values.emplace_back(QStringLiteral("Queue"), TextOf(run, previous, AnswerId::Queue));
    const hx::Scheduler* scheduler = hx::FindScheduler(run);
    if (run.m_queueType != CInstallBase::QueueExternal || scheduler == nullptr)
        return;
    // Another scheduler has other queues.
    const bool isSame = !Differs(run, previous, AnswerId::Queue);
    values.emplace_back(scheduler == &hx::slurm ? QLatin1String(scheduler->queueQuestion)
                                                : QLatin1String(RowOf(AnswerId::QueueName).label),
                        TextOf(run, isSame ? previous : Answers(), AnswerId::QueueName));
}

void AddServiceAccount(const CInstallBase& run, const Answers& previous, Values& values) {
    const QString account = run.m_serviceUser + u':' + run.m_serviceGroup;
    Answers former = previous;
    former.Complete(AnswersOf(run, {}));
    const QString before =
        former.Text(AnswerId::ServiceUser) + u':' + former.Text(AnswerId::ServiceGroup);
    values.emplace_back(QStringLiteral("Service account"),
                        account == before ? account : With(account, before));
}

// What the limits of all threads add up to, such as "2 threads x 600 MB = 1200".
QString SumOf(int threads, int limit, const char* unit) {
    return QStringLiteral("%1 threads x %2 %3 = %4")
        .arg(threads)
        .arg(limit)
        .arg(QLatin1String(unit))
        .arg(qint64{threads} * limit);
}

// Points out that the service can be reached from everywhere without encryption.
QString ListenersOf(const CInstallBase& run) {
    QStringList listeners;
    for (const QString& protocol : run.m_compSrvcAllow.split(u',')) {
        const bool isHttp = protocol == u"HTTP";
        const QString& address = isHttp ? run.m_compSrvcHttpAddr : run.m_compSrvcHttpsAddr;
        const bool isEverywhere = IsAnyAddress(address.toStdString());
        listeners.append(
            QStringLiteral("%1 on %2, port %3%4")
                .arg(protocol, isEverywhere ? QStringLiteral("all addresses") : address)
                .arg(isHttp ? run.m_compSrvcHttpPort : run.m_compSrvcHttpsPort)
                .arg(isHttp && isEverywhere ? QStringLiteral(" (not encrypted)") : QString()));
    }
    return listeners.join(QStringLiteral("; "));
}

}  // namespace

std::unique_ptr<CInstallBase> StartRun(Arguments& arguments, const Answers& file,
                                       const TakeOver& takeOver, Answers& answers) {
    const bool repairs = arguments.Has(OwnOption::Repair);
    auto run = std::make_unique<CInstallBase>(
        (repairs && getuid() != 0) ||
            CInstallBase::ParseUserModeArg(arguments.argc(), arguments.argv()),
        arguments.argc(), arguments.argv());
    // The limits are divided by the number of cores.
    if (run->m_coreCount < 1)
        run->m_coreCount = 1;
    if (arguments.Has(OwnOption::Yes) || repairs)
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

std::vector<std::pair<QString, QString>> ValuesOf(const CInstallBase& run,
                                                  const Answers& previous) {
    Values values;
    for (const AnswerId id : {AnswerId::JobLimit, AnswerId::MemoryLimit, AnswerId::ScratchDirectory,
                              AnswerId::ScratchLimit})
        values.emplace_back(QLatin1String(RowOf(id).label), TextOf(run, previous, id));
    values.emplace_back(QStringLiteral("Memory in total"),
                        SumOf(run.m_jobLimit, run.m_memoryLimitMB, "MB") +
                            QStringLiteral(" of %1 MB").arg(run.m_ramMB));
    values.emplace_back(QStringLiteral("Scratch in total"),
                        SumOf(run.m_jobLimit, run.m_scratchLimitGB, "GB") + QStringLiteral(" GB"));
    AddQueue(run, previous, values);
    if (IsRootSetup(run))
        AddServiceAccount(run, previous, values);
    if (IsRootSetup(run) && !run.m_clusterNode)
        values.emplace_back(QStringLiteral("Listeners"), ListenersOf(run));
    for (const AnswerRow& row : AnswerRows()) {
        if (row.id >= AnswerId::ClusterNode && row.read != nullptr &&
            Differs(run, previous, row.id))
            values.emplace_back(QLatin1String(row.label), TextOf(run, previous, row.id));
    }
    return values;
}
