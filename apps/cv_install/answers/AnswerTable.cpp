#include "answers/AnswerTable.h"

#include <QRegularExpression>

#include "Problem.h"
#include "answers/ValueGuard.h"
#include "installation/SetupRun.h"
#include "setuprun/Schedulers.h"

namespace {

template <auto Field>
AnswerValue ReadField(const CInstallBase& run) {
    return run.*Field;
}

template <auto Field>
void WriteField(CInstallBase& run, const AnswerValue& value) {
    using Value = std::remove_cvref_t<decltype(run.*Field)>;
    run.*Field = std::get<Value>(value);
}

// The library's prompt of a limit takes the value of its option without a question.
template <auto Field, auto OptionField>
void WriteLimit(CInstallBase& run, const AnswerValue& value) {
    WriteField<Field>(run, value);
    WriteField<OptionField>(run, value);
}

constexpr const char* internalQueue = "internal";
constexpr const char* noQueue = "none";
constexpr const char* queueWords[] = {internalQueue, noQueue, "torque", "slurm"};

AnswerValue ReadQueue(const CInstallBase& run) {
    switch (run.m_queueType) {
        case CInstallBase::QueueInternal:
            return QLatin1String(internalQueue);
        case CInstallBase::QueueExternal:
            return run.m_scheduler.toLower();
        case CInstallBase::QueueNone:
            return QLatin1String(noQueue);
        default:
            return QString();
    }
}

void WriteQueue(CInstallBase& run, const AnswerValue& value) {
    const auto& queue = std::get<QString>(value);
    if (queue == QLatin1String(internalQueue)) {
        run.m_queueType = CInstallBase::QueueInternal;
    } else if (queue == QLatin1String(noQueue)) {
        run.m_queueType = CInstallBase::QueueNone;
    } else {
        run.m_queueType = CInstallBase::QueueExternal;
        run.m_scheduler = queue.toUpper();
    }
}

AnswerValue ReadQueueName(const CInstallBase& run) {
    const hx::Scheduler* scheduler = hx::FindScheduler(run);
    return scheduler == nullptr || run.m_queueType != CInstallBase::QueueExternal
               ? QString()
               : run.*scheduler->queue;
}

void WriteQueueName(CInstallBase& run, const AnswerValue& value) {
    if (const hx::Scheduler* scheduler = hx::FindScheduler(run))
        run.*scheduler->queue = std::get<QString>(value);
}

// As in the library, the other commands are those in the same directory, unless they have answers.
void WriteSubmitCommand(CInstallBase& run, const hx::Scheduler& scheduler,
                        const AnswerValue& value) {
    run.*scheduler.commands.front().path = std::get<QString>(value);
    hx::SetCompanionCommands(run, scheduler);
}

void WriteQsub(CInstallBase& run, const AnswerValue& value) {
    WriteSubmitCommand(run, hx::torque, value);
}

void WriteSbatch(CInstallBase& run, const AnswerValue& value) {
    WriteSubmitCommand(run, hx::slurm, value);
}

// The library asks nothing on a compute node.
void WriteClusterNode(CInstallBase& run, const AnswerValue& value) {
    run.m_clusterNode = std::get<bool>(value);
    if (run.m_clusterNode)
        run.m_interactive = false;
}

// The run script has one text for both protocols.
constexpr const char* protocolWords[] = {"HTTP", "HTTPS"};

AnswerValue ReadProtocols(const CInstallBase& run) {
    return run.m_compSrvcAllow.split(u',', Qt::SkipEmptyParts);
}

void WriteProtocols(CInstallBase& run, const AnswerValue& value) {
    run.m_compSrvcAllow = std::get<QStringList>(value).join(u',');
}

AnswerValue ReadMembers(const CInstallBase& run) {
    return ListFromAnswer(run.m_serviceMembers.join(u','));
}

constexpr int highestPort = 65535;

// CQueueLimits reads lines of 255 bytes, and this one begins with "Scratch: ".
constexpr int longestScratchDirectory = 246;

const AnswerRow answerRows[] = {
    {.id = AnswerId::JobLimit,
     .key = "job-limit",
     .kind = AnswerKind::Number,
     .label = "Job limit",
     .unit = "threads",
     .valueName = "COUNT",
     .meaning = "threads that can run at once; skips question",
     .read = ReadField<&CInstallBase::m_jobLimit>,
     .write = WriteField<&CInstallBase::m_jobLimit>},
    {.id = AnswerId::MemoryLimit,
     .key = "memory-limit",
     .kind = AnswerKind::Number,
     .label = "Memory limit",
     .unit = "MB per thread",
     .shortOption = "-m",
     .valueName = "MB",
     .meaning = "memory per thread; skips question",
     .detail =
         "In megabytes of 2^20 bytes, 1 to 2147483647. With 0 or less, the question is asked.",
     .read = ReadField<&CInstallBase::m_memoryLimitMB>,
     .write = WriteLimit<&CInstallBase::m_memoryLimitMB, &CInstallBase::m_argMemoryLimitMB>},
    {.id = AnswerId::ScratchDirectory,
     .key = "scratch-directory",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Quoted,
     .maximum = longestScratchDirectory,
     .label = "Scratch directory",
     .shortOption = "-d",
     .valueName = "DIR",
     .meaning = "scratch directory; skips question",
     .detail = "At most 246 bytes. Without it, the default is the directory of the previous setup, "
               "or /tmp.",
     .read = ReadField<&CInstallBase::m_scratchDir>,
     .write = WriteField<&CInstallBase::m_scratchDir>},
    {.id = AnswerId::ScratchLimit,
     .key = "scratch-limit",
     .kind = AnswerKind::Number,
     .label = "Scratch limit",
     .unit = "GB per thread",
     .shortOption = "-s",
     .valueName = "GB",
     .meaning = "scratch space per thread; skips question",
     .detail =
         "In gigabytes of 2^30 bytes, 1 to 2147483647. With 0 or less, the question is asked.",
     .read = ReadField<&CInstallBase::m_scratchLimitGB>,
     .write = WriteLimit<&CInstallBase::m_scratchLimitGB, &CInstallBase::m_argScratchLimitGB>},
    {.id = AnswerId::Queue,
     .key = "queue",
     .kind = AnswerKind::Word,
     .words = queueWords,
     .label = "Queue",
     .valueName = "KIND",
     .meaning = "internal, none, torque, or slurm; skips the questions about the queue",
     .detail = "The last of several queue options applies.",
     .read = ReadQueue,
     .write = WriteQueue},
    {.id = AnswerId::QueueName,
     .key = "queue-name",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .minimum = 0,
     .label = "Queue name",
     .valueName = "NAME",
     .meaning = "queue of Torque/OpenPBS or partition of Slurm",
     .detail = "An empty name selects the default queue or partition.",
     .read = ReadQueueName,
     .write = WriteQueueName},
    {.id = AnswerId::QsubCommand,
     .key = "qsub",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "qsub command",
     .valueName = "PATH",
     .meaning = "Torque/OpenPBS command that submits jobs",
     .read = ReadField<&CInstallBase::m_qsubCmd>,
     .write = WriteQsub},
    {.id = AnswerId::QdelCommand,
     .key = "qdel",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "qdel command",
     .valueName = "PATH",
     .meaning = "Torque/OpenPBS command that deletes jobs",
     .read = ReadField<&CInstallBase::m_qdelCmd>,
     .write = WriteField<&CInstallBase::m_qdelCmd>},
    {.id = AnswerId::QsigCommand,
     .key = "qsig",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "qsig command",
     .valueName = "PATH",
     .meaning = "Torque/OpenPBS command that sends signals to jobs",
     .read = ReadField<&CInstallBase::m_qsigCmd>,
     .write = WriteField<&CInstallBase::m_qsigCmd>},
    {.id = AnswerId::SbatchCommand,
     .key = "sbatch",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "sbatch command",
     .valueName = "PATH",
     .meaning = "Slurm command that submits jobs",
     .read = ReadField<&CInstallBase::m_sbatchCmd>,
     .write = WriteSbatch},
    {.id = AnswerId::ScancelCommand,
     .key = "scancel",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "scancel command",
     .valueName = "PATH",
     .meaning = "Slurm command that cancels jobs",
     .read = ReadField<&CInstallBase::m_scancelCmd>,
     .write = WriteField<&CInstallBase::m_scancelCmd>},
    {.id = AnswerId::Members,
     .key = "members",
     .kind = AnswerKind::List,
     .use = AnswerUse::AccountName,
     .label = "Members",
     .valueName = "USERS",
     .meaning = "service group members, such as dana,erik, or none; skips question",
     .read = ReadMembers,
     .write = WriteField<&CInstallBase::m_serviceMembers>},
    {.id = AnswerId::ServiceUser,
     .key = "service-user",
     .kind = AnswerKind::Text,
     .use = AnswerUse::AccountName,
     .label = "Service user",
     .shortOption = "-u",
     .valueName = "USER",
     .meaning = "user of the compute service",
     .detail = "The default is corvsrvc.",
     .read = ReadField<&CInstallBase::m_serviceUser>,
     .write = WriteField<&CInstallBase::m_serviceUser>},
    {.id = AnswerId::ServiceGroup,
     .key = "service-group",
     .kind = AnswerKind::Text,
     .use = AnswerUse::AccountName,
     .label = "Service group",
     .shortOption = "-g",
     .valueName = "GROUP",
     .meaning = "group of the compute service",
     .detail = "The default is corvsrvc.",
     .read = ReadField<&CInstallBase::m_serviceGroup>,
     .write = WriteField<&CInstallBase::m_serviceGroup>},
    {.id = AnswerId::ClusterNode,
     .key = "cluster-node",
     .kind = AnswerKind::Flag,
     .label = "Compute node",
     .meaning = "set up a compute node of a cluster: no questions, no queue, no service",
     .detail =
         "Every question is answered with its default, and the plan of a setup as root is not "
         "confirmed. The web pages are not unpacked. A queue option after this one overrides it.",
     .read = ReadField<&CInstallBase::m_clusterNode>,
     .write = WriteClusterNode},
    {.id = AnswerId::SubmissionScripts,
     .key = "submission-scripts",
     .kind = AnswerKind::Flag,
     .label = "Submission scripts",
     .meaning = "also write the scripts that submit jobs through Samba and SSH",
     .detail = "Existing scripts are overwritten, including edits."},
    {.id = AnswerId::Protocols,
     .key = "protocols",
     .kind = AnswerKind::List,
     .words = protocolWords,
     .label = "Protocols",
     .valueName = "PROTOCOLS",
     .meaning = "listeners of the compute service: HTTP, HTTPS, or HTTP,HTTPS",
     .detail = "The default is HTTP.",
     .read = ReadProtocols,
     .write = WriteProtocols},
    {.id = AnswerId::HttpAddress,
     .key = "http-address",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "HTTP address",
     .valueName = "ADDRESS",
     .meaning = "address of the HTTP listener",
     .detail = "The default is 0.0.0.0: all addresses.",
     .read = ReadField<&CInstallBase::m_compSrvcHttpAddr>,
     .write = WriteField<&CInstallBase::m_compSrvcHttpAddr>},
    {.id = AnswerId::HttpPort,
     .key = "http-port",
     .kind = AnswerKind::Number,
     .maximum = highestPort,
     .label = "HTTP port",
     .valueName = "PORT",
     .meaning = "port of the HTTP listener",
     .detail = "The default is 8080.",
     .read = ReadField<&CInstallBase::m_compSrvcHttpPort>,
     .write = WriteField<&CInstallBase::m_compSrvcHttpPort>},
    {.id = AnswerId::HttpsAddress,
     .key = "https-address",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "HTTPS address",
     .valueName = "ADDRESS",
     .meaning = "address of the HTTPS listener",
     .detail = "The default is 0.0.0.0: all addresses.",
     .read = ReadField<&CInstallBase::m_compSrvcHttpsAddr>,
     .write = WriteField<&CInstallBase::m_compSrvcHttpsAddr>},
    {.id = AnswerId::HttpsPort,
     .key = "https-port",
     .kind = AnswerKind::Number,
     .maximum = highestPort,
     .label = "HTTPS port",
     .valueName = "PORT",
     .meaning = "port of the HTTPS listener",
     .detail = "The default is 8443.",
     .read = ReadField<&CInstallBase::m_compSrvcHttpsPort>,
     .write = WriteField<&CInstallBase::m_compSrvcHttpsPort>},
    {.id = AnswerId::Certificate,
     .key = "certificate",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "Certificate file",
     .valueName = "PATH",
     .meaning = "certificate of the HTTPS listener",
     .detail = "The default is cert.pem.",
     .read = ReadField<&CInstallBase::m_compSrvcCert>,
     .write = WriteField<&CInstallBase::m_compSrvcCert>},
    {.id = AnswerId::Key,
     .key = "key",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "Key file",
     .valueName = "PATH",
     .meaning = "private key of the HTTPS listener",
     .detail = "The default is key.pem.",
     .read = ReadField<&CInstallBase::m_compSrvcKey>,
     .write = WriteField<&CInstallBase::m_compSrvcKey>},
    {.id = AnswerId::DiffieHellman,
     .key = "diffie-hellman",
     .kind = AnswerKind::Text,
     .use = AnswerUse::Substituted,
     .label = "Diffie-Hellman file",
     .valueName = "PATH",
     .meaning = "Diffie-Hellman parameters of the HTTPS listener",
     .detail = "The default is dh.pem.",
     .read = ReadField<&CInstallBase::m_compSrvcDh>,
     .write = WriteField<&CInstallBase::m_compSrvcDh>},
};

QString QueueLabel(const QString& word) {
    for (const hx::Scheduler& scheduler : hx::schedulers) {
        if (word.toUpper() == QLatin1String(scheduler.name))
            return QLatin1String(scheduler.label);
    }
    return word;
}

QString JoinWords(const AnswerRow& row) {
    QStringList words;
    for (const char* word : row.words)
        words.push_back(u'"' + QLatin1String(word) + u'"');
    return words.join(QStringLiteral(", "));
}

bool HasWord(const AnswerRow& row, const QString& word) {
    return std::any_of(row.words.begin(), row.words.end(),
                       [&](const char* known) { return word == QLatin1String(known); });
}

QString ReasonAgainstText(const AnswerRow& row, const QString& text) {
    if (!row.words.empty())
        return HasWord(row, text) ? QString() : QStringLiteral("it is not valid here");
    if (text.isEmpty() && row.minimum > 0 && row.use != AnswerUse::AccountName)
        return QStringLiteral("it is empty");
    if (text.toUtf8().size() > row.maximum)
        return QStringLiteral("it is longer than %1 bytes").arg(row.maximum);
    return ReasonAgainst(text, row.use);
}

}  // namespace

std::span<const AnswerRow> AnswerRows() {
    return answerRows;
}

const AnswerRow& RowOf(AnswerId id) {
    return answerRows[static_cast<size_t>(id)];
}

const AnswerRow* FindAnswerRow(const QString& key) {
    for (const AnswerRow& row : answerRows) {
        if (key == QLatin1String(row.key))
            return &row;
    }
    return nullptr;
}

QString NameOf(const AnswerRow& row) {
    QString name = QLatin1String(row.label);
    const bool isProper = name.at(1).isUpper() || row.id == AnswerId::DiffieHellman;
    return isProper ? name : name.replace(0, 1, name.at(0).toLower());
}

QStringList ListFromAnswer(const QString& answer) {
    static const QRegularExpression separator(QStringLiteral("[, ]"));
    const QStringList list = answer.split(separator, Qt::SkipEmptyParts);
    return list == QStringList(QLatin1String(noMembers)) ? QStringList() : list;
}

bool HasProtocol(const CInstallBase& run, const char* protocol) {
    return run.m_compSrvcAllow.split(u',').contains(QLatin1String(protocol));
}

bool IsUsed(const AnswerRow& row, const CInstallBase& run) {
    const hx::Scheduler* scheduler =
        run.m_queueType == CInstallBase::QueueExternal ? hx::FindScheduler(run) : nullptr;
    switch (row.id) {
        case AnswerId::QueueName:
            return scheduler != nullptr;
        case AnswerId::QsubCommand:
        case AnswerId::QdelCommand:
        case AnswerId::QsigCommand:
            return scheduler == &hx::torque;
        case AnswerId::SbatchCommand:
        case AnswerId::ScancelCommand:
            return scheduler == &hx::slurm;
        case AnswerId::Members:
        case AnswerId::ServiceUser:
        case AnswerId::ServiceGroup:
        case AnswerId::ClusterNode:
            return IsRootSetup(run);
        case AnswerId::HttpAddress:
        case AnswerId::HttpPort:
            return HasProtocol(run, protocolWords[0]);
        case AnswerId::HttpsAddress:
        case AnswerId::HttpsPort:
        case AnswerId::Certificate:
        case AnswerId::Key:
        case AnswerId::DiffieHellman:
            return HasProtocol(run, protocolWords[1]);
        default:
            return true;
    }
}

std::optional<AnswerValue> ValueFromText(const AnswerRow& row, const QString& text) {
    bool isNumber = false;
    switch (row.kind) {
        case AnswerKind::Flag:
            if (text == u"true")
                return true;
            return text == u"false" ? std::optional<AnswerValue>(false) : std::nullopt;
        case AnswerKind::Number: {
            const int number = text.toInt(&isNumber);
            return isNumber ? std::optional<AnswerValue>(number) : std::nullopt;
        }
        case AnswerKind::List:
            return ListFromAnswer(text);
        default:
            return text;
    }
}

QString TextOf(const AnswerRow& row, const AnswerValue& value) {
    QString text;
    switch (row.kind) {
        case AnswerKind::Flag:
            return std::get<bool>(value) ? QStringLiteral("yes") : QStringLiteral("no");
        case AnswerKind::Number:
            text = QString::number(std::get<int>(value));
            return row.unit[0] == '\0' ? text : text + u' ' + QLatin1String(row.unit);
        case AnswerKind::List:
            text = std::get<QStringList>(value).join(u',');
            return text.isEmpty() ? QLatin1String(noMembers) : text;
        default:
            text = std::get<QString>(value);
            if (row.id == AnswerId::Queue)
                return QueueLabel(text);
            return text.isEmpty() && row.id == AnswerId::QueueName ? QStringLiteral("(default)")
                                                                   : text;
    }
}

QString RequirementOf(const AnswerRow& row) {
    switch (row.kind) {
        case AnswerKind::Flag:
            return QStringLiteral("Use true or false.");
        case AnswerKind::Number:
            return QStringLiteral("Use a whole number from %1 to %2%3, without a unit.")
                .arg(row.minimum)
                .arg(row.maximum)
                .arg(row.unit[0] == '\0' ? QString()
                                         : QStringLiteral(" (%1)").arg(QLatin1String(row.unit)));
        case AnswerKind::Word:
            return QStringLiteral("Use one of %1.").arg(JoinWords(row));
        case AnswerKind::List:
            return row.words.empty() ? QStringLiteral("Use a list of names.")
                                     : QStringLiteral("Use a list of %1.").arg(JoinWords(row));
        default:
            return QStringLiteral("Use a text.");
    }
}

QString ReasonAgainst(const AnswerRow& row, const AnswerValue& value) {
    if (const int* number = std::get_if<int>(&value)) {
        return *number >= row.minimum && *number <= row.maximum
                   ? QString()
                   : QStringLiteral("it is not valid here");
    }
    if (const QString* text = std::get_if<QString>(&value))
        return ReasonAgainstText(row, *text);
    if (const QStringList* list = std::get_if<QStringList>(&value)) {
        if (list->isEmpty() && !row.words.empty())
            return QStringLiteral("it is empty");
        for (const QString& word : *list) {
            QString reason = ReasonAgainstText(row, word);
            if (!reason.isEmpty())
                return reason;
        }
    }
    return {};
}
