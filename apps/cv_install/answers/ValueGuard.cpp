#include "answers/ValueGuard.h"

#include <QRegularExpression>

#include "installation/SetupRun.h"
#include "setuprun/Schedulers.h"

namespace {

using Use = AnswerUse;

struct GuardedField {
    const char* name;
    QString CInstallBase::*field;
    Use use;
    const char* remedy;
};

constexpr const char* moveProduct = "Move the product to another directory.";
constexpr const char* chooseScratch =
    "Specify another directory with --scratch-directory, or correct \"Scratch\" in QueueLimits if "
    "it is from a previous setup.";
constexpr const char* chooseSetting = "Specify another value for this setting.";

const GuardedField guardedFields[] = {
    {"install directory", &CInstallBase::m_installDir, Use::Substituted, moveProduct},
    {"program directory", &CInstallBase::m_binariesDir, Use::Substituted, moveProduct},
    {"service group", &CInstallBase::m_serviceGroup, Use::AccountName,
     "Specify a different group with --service-group."},
    {"service user", &CInstallBase::m_serviceUser, Use::AccountName,
     "Specify a different user with --service-user."},
    {"scratch directory", &CInstallBase::m_scratchDir, Use::Quoted, chooseScratch},
    {"scratch directory of the previous setup", &CInstallBase::m_prevScratchDir, Use::Quoted,
     "Correct \"Scratch\" in QueueLimits in the install directory."},
    {"scheduler", &CInstallBase::m_scheduler, Use::Substituted, chooseSetting},
    {"compute service listeners", &CInstallBase::m_compSrvcAllow, Use::Substituted, chooseSetting},
    {"HTTP address", &CInstallBase::m_compSrvcHttpAddr, Use::Substituted, chooseSetting},
    {"HTTPS address", &CInstallBase::m_compSrvcHttpsAddr, Use::Substituted, chooseSetting},
    {"certificate file", &CInstallBase::m_compSrvcCert, Use::Substituted, chooseSetting},
    {"key file", &CInstallBase::m_compSrvcKey, Use::Substituted, chooseSetting},
    {"Diffie-Hellman file", &CInstallBase::m_compSrvcDh, Use::Substituted, chooseSetting},
};

Problem InvalidValue(const QString& field, const QString& value, const QString& reason,
                     const QString& remedy) {
    return {ExitStatus::ValueRefused,
            QStringLiteral("invalid %1 \"").arg(field) + value + QStringLiteral("\": ") + reason,
            remedy};
}

Failure CheckValue(const QString& field, const QString& value, Use use, const QString& remedy) {
    const QString reason = ReasonAgainst(value, use);
    if (reason.isEmpty())
        return {};
    return InvalidValue(field, value, reason, remedy);
}

Failure FindInvalidQueueSetting(const CInstallBase& run) {
    for (const hx::Scheduler& scheduler : hx::schedulers) {
        const QString kind = QLatin1String(scheduler.queueSetting);
        Failure failure =
            CheckValue(kind + QStringLiteral(" name"), run.*scheduler.queue, Use::Substituted,
                       QStringLiteral("Specify a different %1.").arg(kind));
        for (const hx::SchedulerCommand& command : scheduler.commands) {
            if (!failure)
                failure = CheckValue(QLatin1String(command.name) + QStringLiteral(" command"),
                                     run.*command.path, Use::Substituted,
                                     QStringLiteral("Specify the path of a command without such "
                                                    "characters."));
        }
        if (failure)
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
                CheckValue(QStringLiteral("service group member"), member, Use::AccountName,
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
    if (use == AnswerUse::AccountName) {
        return IsAccountName(text)
                   ? QString()
                   : QStringLiteral(
                         "account names can contain letters, digits, and _.@+- but must start "
                         "with a letter, digit, or _");
    }
    if (use == AnswerUse::Free)
        return {};
    const QString unusable =
        use == AnswerUse::Substituted ? QStringLiteral("\"$`\\|&") : QStringLiteral("\"$`\\");
    for (const QChar character : text) {
        if (IsControl(character))
            return QStringLiteral("it contains a control character");
        if (character == QChar::ReplacementCharacter)
            return QStringLiteral("it is not valid UTF-8");
        if (unusable.contains(character))
            return QStringLiteral("it contains \"%1\"").arg(character);
    }
    return {};
}

Failure FindInvalidValue(const CInstallBase& run) {
    for (const GuardedField& guarded : guardedFields) {
        if (Failure failure = CheckValue(QLatin1String(guarded.name), run.*guarded.field,
                                         guarded.use, QLatin1String(guarded.remedy)))
            return failure;
    }
    Failure failure = FindInvalidQueueSetting(run);
    return failure ? failure : FindInvalidMember(run);
}
