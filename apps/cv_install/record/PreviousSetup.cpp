#include "record/PreviousSetup.h"

#include <grp.h>
#include <unistd.h>

#include <QFile>
#include <algorithm>
#include <map>

#include "answers/AnswersFile.h"
#include "installation/Limits.h"
#include "installation/RootPath.h"
#include "merge/ServiceAccount.h"
#include "record/RecordDirectory.h"
#include "record/SetupRecord.h"
#include "setuprun/Schedulers.h"

namespace {

// More than any setup writes.
constexpr qsizetype longestAnswers = 65536;
constexpr qsizetype longestRunScript = 65536;

using Variables = std::map<QByteArray, QString>;

struct VariableRow {
    AnswerId id;
    const char* name;
};

// What the run script exports, except the queue's settings.
constexpr VariableRow variableRows[] = {
    {AnswerId::ClusterNode, "CORV_CLUSTER_NODE"},
    {AnswerId::Protocols, "CORV_COMPSRVC_ALLOW"},
    {AnswerId::HttpAddress, "CORV_COMPSRVC_HTTP_ADDR"},
    {AnswerId::HttpPort, "CORV_COMPSRVC_HTTP_PORT"},
    {AnswerId::HttpsAddress, "CORV_COMPSRVC_HTTPS_ADDR"},
    {AnswerId::HttpsPort, "CORV_COMPSRVC_HTTPS_PORT"},
    {AnswerId::Certificate, "CORV_COMPSRVC_CERT"},
    {AnswerId::Key, "CORV_COMPSRVC_KEY"},
    {AnswerId::DiffieHellman, "CORV_COMPSRVC_DH"},
};

struct CommandRow {
    AnswerId id;
    QString CInstallBase::*path;
};

constexpr CommandRow commandRows[] = {
    {AnswerId::QsubCommand, &CInstallBase::m_qsubCmd},
    {AnswerId::QdelCommand, &CInstallBase::m_qdelCmd},
    {AnswerId::QsigCommand, &CInstallBase::m_qsigCmd},
    {AnswerId::SbatchCommand, &CInstallBase::m_sbatchCmd},
    {AnswerId::ScancelCommand, &CInstallBase::m_scancelCmd},
};

struct LimitRow {
    AnswerId id;
    int CQueueLimits::*number;  // null for a text
};

constexpr LimitRow limitRows[] = {
    {AnswerId::JobLimit, &CQueueLimits::MaxThreads},
    {AnswerId::MemoryLimit, &CQueueLimits::MemoryPerThreadMB},
    {AnswerId::ScratchDirectory, nullptr},
    {AnswerId::ScratchLimit, &CQueueLimits::DiskPerThreadGB},
};

// The values of lines such as
//   export CORV_NAME="value"
//   cvset CORV_NAME "value" "..."
Variables ParseRunScript(const QByteArray& text) {
    Variables exported;
    for (const QByteArray& line : text.split('\n')) {
        const bool isExport = line.startsWith("export CORV_");
        if (!isExport && !line.startsWith("cvset CORV_"))
            continue;
        const qsizetype begin = line.indexOf(' ') + 1;
        const qsizetype end = line.indexOf(isExport ? "=\"" : " \"", begin);
        const qsizetype quote = line.indexOf('"', end + 2);
        if (end != -1 && quote != -1)
            exported[line.mid(begin, end - begin)] =
                QString::fromUtf8(line.mid(end + 2, quote - end - 2));
    }
    return exported;
}

Variables ReadRunScript(int tree) {
    const Descriptor opened = OpenRegularFile(tree, Find(Item::RunScript).path);
    QFile file;
    if (!opened || !file.open(opened.Number(), QIODevice::ReadOnly))
        return {};
    return ParseRunScript(file.read(longestRunScript));
}

QString ValueIn(const Variables& exported, const char* name) {
    const auto found = exported.find(name);
    return found == exported.end() ? QString() : found->second;
}

// Empty if the text is not a value of this kind.
std::optional<AnswerValue> ExportedValue(const AnswerRow& row, const QString& text) {
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    switch (row.kind) {
        case AnswerKind::Flag:
            return AnswerValue(text == u"YES");
        case AnswerKind::Number:
            return isNumber ? std::optional<AnswerValue>(number) : std::nullopt;
        case AnswerKind::List:
            return AnswerValue(text.split(u',', Qt::SkipEmptyParts));
        default:
            return AnswerValue(text);
    }
}

// Adds a value that another user may have written, unless it is invalid.
void AddFromText(Answers& answers, AnswerId id, const QString& text) {
    const AnswerRow& row = RowOf(id);
    const std::optional<AnswerValue> value = ExportedValue(row, text);
    if (value && ReasonAgainst(row, *value).isEmpty())
        answers.Set(id, *value, AnswerSource::Record);
}

// True for a command that only root can replace, or in a setup as a user. A setup as root runs
// commands of the scheduler to check the queue.
bool IsTrustedCommand(const QString& path) {
    RootPath place;
    return getuid() != 0 ||
           (path.startsWith(u'/') && !ResolveRootPath(path.toStdString(), true, place));
}

AnswerId IdOfCommand(QString CInstallBase::*path) {
    return std::find_if(std::begin(commandRows), std::end(commandRows),
                        [&](const CommandRow& row) { return row.path == path; })
        ->id;
}

void AddExternalQueue(Answers& answers, const Variables& exported) {
    const QString name = ValueIn(exported, "CORV_SCHEDULER");
    for (const hx::Scheduler& scheduler : hx::schedulers) {
        if (name != QLatin1String(scheduler.name))
            continue;
        AddFromText(answers, AnswerId::Queue, name.toLower());
        const QByteArray prefix = "CORV_";
        AddFromText(answers, AnswerId::QueueName,
                    ValueIn(exported, prefix + scheduler.queueVariable));
        for (const hx::SchedulerCommand& command : scheduler.commands) {
            const QString path = ValueIn(exported, prefix + command.variable);
            if (IsTrustedCommand(path))
                AddFromText(answers, IdOfCommand(command.path), path);
        }
    }
}

void AddQueue(Answers& answers, const Variables& exported) {
    const QString type = ValueIn(exported, "CORV_QUEUE_TYPE");
    if (type == u"EXTERNAL")
        AddExternalQueue(answers, exported);
    else if (type == u"INTERNAL" || type == u"NONE")
        AddFromText(answers, AnswerId::Queue, type.toLower());
}

const char* KeyOf(const LimitRow& row) {
    return std::find_if(hx::queueLimitsLines.begin(), hx::queueLimitsLines.end(),
                        [&](const hx::QueueLimitsLine& each) { return each.number == row.number; })
        ->key;
}

// Adds the limits, unless they are those of the record.
void AddLimits(Answers& answers, const Limits& limits) {
    for (const LimitRow& row : limitRows) {
        const auto found = limits.find(QString::fromLatin1(KeyOf(row)).toLower());
        const Answer* recorded = answers.Find(row.id);
        if (found == limits.end() ||
            (recorded != nullptr && ExportedValue(RowOf(row.id), found->second) == recorded->value))
            continue;
        AddFromText(answers, row.id, found->second);
    }
}

// Leaves `previous` as it is without a record.
Failure ReadRecord(const QString& installDir, PreviousSetup& previous) {
    RecordDirectory directory(installDir);
    std::optional<QByteArray> text;
    Failure failure = directory.Open();
    if (!failure)
        failure = directory.Read(Item::RecordedAnswers, longestAnswers, text);
    if (failure || !text)
        return failure;
    const std::optional<ParsedRecord> record = ParseRecordText(*text);
    if (!record)
        return directory.Damaged(Item::RecordedAnswers);
    previous.facts = record->facts;
    previous.recordedAnswers = record->body;
    // Other versions may have other keys and limits.
    previous.answers = ParseAnswers(record->body, AnswersForm::Record).answers;
    const bool isCopy = IsOfOtherMachine(record->facts);
    previous.source = isCopy ? PreviousSetup::Source::Copy : PreviousSetup::Source::Record;
    if (!isCopy && ReadManifest(directory, previous.manifest))
        previous.manifest.reset();
    return {};
}

// The account in the run script is not used, because members could choose another one there.
void AddServiceAccount(Answers& answers) {
    std::optional<ServiceAccount> account;
    if (getuid() != 0 || ReadServiceAccount(account) || !account)
        return;
    AddFromText(answers, AnswerId::ServiceUser, QString::fromStdString(account->user));
    AddFromText(answers, AnswerId::ServiceGroup, QString::fromStdString(account->group));
}

// What setups left before there were records.
void ReadRunScriptOf(int tree, PreviousSetup& previous) {
    const Variables exported = ReadRunScript(tree);
    if (exported.empty())
        return;
    previous.source = PreviousSetup::Source::Files;
    AddQueue(previous.answers, exported);
    for (const VariableRow& row : variableRows)
        AddFromText(previous.answers, row.id, ValueIn(exported, row.name));
    AddServiceAccount(previous.answers);
}

// True if the service group exists with other members than the recorded ones. The library's
// question offers those of a group that exists.
bool HasOtherMembers(const Answers& answers, bool isAsked) {
    const Answer* name = answers.Find(AnswerId::ServiceGroup);
    const group* found = getgrnam(
        name == nullptr ? accountName : std::get<QString>(name->value).toUtf8().constData());
    if (found == nullptr || isAsked)
        return found != nullptr;
    QStringList present;
    for (char** member = found->gr_mem; *member != nullptr; ++member)
        present.append(QString::fromUtf8(*member));
    QStringList recorded = std::get<QStringList>(answers.Find(AnswerId::Members)->value);
    present.sort();
    recorded.sort();
    return present != recorded;
}

// True for an answer that the machine or its users know better than the record.
bool IsReadFromMachine(AnswerId id, const Answers& answers, bool isAsked) {
    return id == AnswerId::SubmissionScripts ||
           (id == AnswerId::Members && HasOtherMembers(answers, isAsked));
}

// A limit that is measured for each thread.
bool IsMeasuredShare(AnswerId id) {
    return id == AnswerId::MemoryLimit || id == AnswerId::ScratchLimit;
}

bool IsOfferedByLibrary(AnswerId id) {
    return IsMeasuredShare(id) || id == AnswerId::ScratchDirectory;
}

// Before there were records, only a value that is not the default counts as chosen.
bool IsDefault(AnswerId id, const Answers& answers, const CInstallBase& run) {
    const AnswerValue& value = answers.Find(id)->value;
    const Answer* threads = answers.Find(AnswerId::JobLimit);
    switch (id) {
        case AnswerId::JobLimit:
            return value == AnswerValue(run.m_coreCount);
        case AnswerId::MemoryLimit:
            return threads != nullptr &&
                   value == AnswerValue(run.m_ramMB / std::get<int>(threads->value));
        case AnswerId::ScratchLimit:  // free space changes
        case AnswerId::Queue:         // unset by default
            return false;
        default:
            return value == RowOf(id).read(run);
    }
}

// Which of these answers were chosen is not recorded.
void MarkDefaults(Answers& answers, const CInstallBase& run) {
    const Answers all = answers;
    for (const auto& [id, answer] : all.All()) {
        if (IsDefault(id, all, run))
            answers.Set(id, answer.value, AnswerSource::Default);
    }
}

// The library's questions offer the limits of QueueLimits. Without that file, those of the record.
// A limit that was not chosen is not offered.
void OfferLimits(const Answers& answers, CInstallBase& run) {
    const auto set = [&](AnswerId id, auto& field) {
        const Answer* answer = answers.Find(id);
        const bool isOffered = answer != nullptr && (answer->chosen || !IsMeasuredShare(id));
        if (isOffered)
            field = std::get<std::remove_cvref_t<decltype(field)>>(answer->value);
        else if (answer != nullptr)
            field = {};
    };
    set(AnswerId::JobLimit, run.m_prevJobLimit);
    set(AnswerId::MemoryLimit, run.m_prevMemoryLimitMB);
    // The guard refuses an invalid directory in QueueLimits.
    if (run.m_prevScratchDir.isEmpty())
        set(AnswerId::ScratchDirectory, run.m_prevScratchDir);
    set(AnswerId::ScratchLimit, run.m_prevScratchLimitGB);
}

}  // namespace

Failure ReadPreviousSetup(const CInstallBase& run, int tree, PreviousSetup& previous) {
    Failure damaged = ReadRecord(run.m_installDir, previous);
    if (tree != -1) {
        if (previous.source == PreviousSetup::Source::None)
            ReadRunScriptOf(tree, previous);
        if (const std::optional<Limits> limits = ReadLimits(tree)) {
            AddLimits(previous.answers, *limits);
            if (previous.source == PreviousSetup::Source::None)
                previous.source = PreviousSetup::Source::Files;
        }
    }
    if (previous.source == PreviousSetup::Source::Files)
        MarkDefaults(previous.answers, run);
    if (previous.source == PreviousSetup::Source::Copy) {
        ReportWarning(
            {ExitStatus::Complete,
             QStringLiteral("the record is from another machine, \"%1\"").arg(previous.facts.host),
             QStringLiteral("Only its answers are used.")});
    }
    if (!damaged)
        return {};
    if (previous.source == PreviousSetup::Source::None && !run.m_interactive)
        return damaged;
    ReportWarning({damaged->status, damaged->text,
                   QStringLiteral("The setup continues with what it finds in the run script and "
                                  "QueueLimits.")});
    return {};
}

Answers AnswersToRepeat(const PreviousSetup& previous, CInstallBase& run) {
    Answers taken;
    if (previous.source == PreviousSetup::Source::None)
        return taken;
    OfferLimits(previous.answers, run);
    for (const auto& [id, answer] : previous.answers.All()) {
        if (!answer.chosen || IsReadFromMachine(id, previous.answers, run.m_interactive) ||
            (run.m_interactive && IsOfferedByLibrary(id)))
            continue;
        taken.Set(id, answer.value, AnswerSource::Record);
    }
    return taken;
}

bool IsRecorded(const Answers& answers, const PreviousSetup& previous) {
    return previous.source == PreviousSetup::Source::Record &&
           previous.facts.version == QStringLiteral(HX_VERSION) &&
           previous.recordedAnswers == WriteAnswers(answers, AnswersForm::Record);
}

std::vector<std::pair<const char*, QString>> LimitsOf(const Answers& answers) {
    std::vector<std::pair<const char*, QString>> limits;
    for (const LimitRow& row : limitRows) {
        const Answer* answer = answers.Find(row.id);
        if (answer == nullptr)
            continue;
        const int* number = std::get_if<int>(&answer->value);
        limits.emplace_back(KeyOf(row), number == nullptr ? std::get<QString>(answer->value)
                                                          : QString::number(*number));
    }
    return limits;
}
