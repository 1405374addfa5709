#include "answers/ValueGuard.h"

#include <QRegularExpression>

#include "installation/SetupRun.h"
#include "setuprun/Schedulers.h"

namespace {

// Values that are not answers, or not as they are in the script.
struct GuardedField {
    const char* name;
    QString CInstallBase::*field;
    AnswerUse use;
    const char* remedy;
};

constexpr const char* moveProduct = "Move the product to another directory.";

const GuardedField guardedFields[] = {
    {"install directory", &CInstallBase::m_installDir, AnswerUse::Substituted, moveProduct},
    {"program directory", &CInstallBase::m_binariesDir, AnswerUse::Substituted, moveProduct},
    {"scratch directory of the previous setup", &CInstallBase::m_prevScratchDir, AnswerUse::Quoted,
     "Correct \"Scratch\" in QueueLimits in the install directory."},
    {"protocols", &CInstallBase::m_compSrvcAllow, AnswerUse::Substituted,
     "Specify other protocols with --protocols."},
    {"scheduler", &CInstallBase::m_scheduler, AnswerUse::Substituted,
     "Specify another value for this setting."},
};

Failure CheckValue(const QString& field, const QString& value, const QString& reason,
                   const QString& remedy) {
    if (reason.isEmpty())
        return {};
    return Problem{
        ExitStatus::ValueRefused,
        QStringLiteral("invalid %1 \"").arg(field) + value + QStringLiteral("\": ") + reason,
        remedy};
}

QString RemedyFor(const AnswerRow& row) {
    const QString option = QLatin1String(row.key);
    if (row.id == AnswerId::ScratchDirectory) {
        return QStringLiteral(
            "Specify another directory with --scratch-directory, or correct \"Scratch\" in "
            "QueueLimits if it is from a previous setup.");
    }
    return QStringLiteral("Specify another value with --%1.").arg(option);
}

Failure FindInvalidAnswer(const CInstallBase& run) {
    for (const AnswerRow& row : AnswerRows()) {
        if (row.kind != AnswerKind::Text || row.id == AnswerId::QueueName)
            continue;
        const AnswerValue value = row.read(run);
        if (Failure failure = CheckValue(NameOf(row), std::get<QString>(value),
                                         ReasonAgainst(row, value), RemedyFor(row)))
            return failure;
    }
    return {};
}

// The script contains those of all schedulers.
Failure FindInvalidQueueName(const CInstallBase& run) {
    const AnswerRow& row = RowOf(AnswerId::QueueName);
    for (const hx::Scheduler& scheduler : hx::schedulers) {
        const QString& name = run.*scheduler.queue;
        if (Failure failure =
                CheckValue(QLatin1String(scheduler.queueSetting) + QStringLiteral(" name"), name,
                           ReasonAgainst(row, name), RemedyFor(row)))
            return failure;
    }
    return {};
}

// Only a setup as root names members in the script.
Failure FindInvalidMember(const CInstallBase& run) {
    if (!IsRootSetup(run))
        return {};
    for (const QString& member : run.m_serviceMembers + run.m_serviceCurrentMembers) {
        if (Failure failure =
                CheckValue(QStringLiteral("service group member"), member,
                           ReasonAgainst(member, AnswerUse::AccountName),
                           QStringLiteral("Enter a different name, or remove it from group \"%1\".")
                               .arg(run.m_serviceGroup)))
            return failure;
    }
    return {};
}

}  // namespace

bool IsAccountName(const QString& name) {
    static const QRegularExpression form(QStringLiteral("\\A[A-Za-z0-9_][A-Za-z0-9_.@+-]*\\z"));
    return form.match(name).hasMatch();
}

QString ReasonAgainst(const QString& text, AnswerUse use) {
    if (use == AnswerUse::Free)
        return {};
    if (use == AnswerUse::AccountName) {
        return IsAccountName(text)
                   ? QString()
                   : QStringLiteral(
                         "account names can contain letters, digits, and _.@+- but must start "
                         "with a letter, digit, or _");
    }
    const QString unusable =
        use == AnswerUse::Substituted ? QStringLiteral("\"$`\\|&") : QStringLiteral("\"$`\\");
    for (const char32_t character : text.toUcs4()) {
        if (QChar::category(character) == QChar::Other_Control)
            return QStringLiteral("it contains a control character");
        if (IsControl(character))
            return QStringLiteral("it contains format character U+%1")
                .arg(QString::number(character, 16).toUpper().rightJustified(4, u'0'));
        if (character == QChar::ReplacementCharacter)
            return QStringLiteral("it is not valid UTF-8");
        if (character < 0x80 && unusable.contains(QChar(character)))
            return QStringLiteral("it contains \"%1\"").arg(QChar(character));
    }
    return {};
}

Failure FindInvalidValue(const CInstallBase& run) {
    for (const GuardedField& guarded : guardedFields) {
        const QString& value = run.*guarded.field;
        if (Failure failure =
                CheckValue(QLatin1String(guarded.name), value, ReasonAgainst(value, guarded.use),
                           QLatin1String(guarded.remedy)))
            return failure;
    }
    Failure failure = FindInvalidAnswer(run);
    if (!failure)
        failure = FindInvalidQueueName(run);
    return failure ? failure : FindInvalidMember(run);
}
