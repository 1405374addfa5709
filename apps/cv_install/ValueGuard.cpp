#include "ValueGuard.h"

#include <QRegularExpression>
#include <algorithm>

namespace {

// How a value stands in the script decides what it must not hold.
enum class Use {
    Quoted,       // between double quotes
    Substituted,  // and then in the replacement of a sed expression
    AccountName   // bare, as one word
};

struct GuardedField {
    const char* name;
    QString CInstallBase::*field;
    Use use;
    const char* remedy;
};

constexpr const char* MoveProduct = "Move the product to another directory.";
constexpr const char* ChooseScratch =
    "Choose another with --scratch-directory, and correct the Scratch line of the install "
    "directory's QueueLimits file if it comes from there.";
constexpr const char* ChooseCommand = "Choose the path of a command without such characters.";
constexpr const char* ChooseSetting = "Choose another value for this setting.";

const GuardedField guardedFields[] = {
    {"install directory", &CInstallBase::m_installDir, Use::Substituted, MoveProduct},
    {"program directory", &CInstallBase::m_binariesDir, Use::Substituted, MoveProduct},
    {"service group", &CInstallBase::m_serviceGroup, Use::AccountName,
     "Choose another with --service-group."},
    {"service user", &CInstallBase::m_serviceUser, Use::AccountName,
     "Choose another with --service-user."},
    {"scratch directory", &CInstallBase::m_scratchDir, Use::Quoted, ChooseScratch},
    {"scratch directory of the last installation", &CInstallBase::m_prevScratchDir, Use::Quoted,
     "Correct the Scratch line of the install directory's QueueLimits file."},
    {"scheduler", &CInstallBase::m_scheduler, Use::Substituted, ChooseSetting},
    {"queue name", &CInstallBase::m_queueName, Use::Substituted,
     "Choose another with --external-queue."},
    {"partition name", &CInstallBase::m_partitionName, Use::Substituted,
     "Choose another with --external-partiton."},
    {"qsub command", &CInstallBase::m_qsubCmd, Use::Substituted, ChooseCommand},
    {"qdel command", &CInstallBase::m_qdelCmd, Use::Substituted, ChooseCommand},
    {"qsig command", &CInstallBase::m_qsigCmd, Use::Substituted, ChooseCommand},
    {"sbatch command", &CInstallBase::m_sbatchCmd, Use::Substituted, ChooseCommand},
    {"scancel command", &CInstallBase::m_scancelCmd, Use::Substituted, ChooseCommand},
    {"compute service listeners", &CInstallBase::m_compSrvcAllow, Use::Substituted, ChooseSetting},
    {"HTTP address", &CInstallBase::m_compSrvcHttpAddr, Use::Substituted, ChooseSetting},
    {"HTTPS address", &CInstallBase::m_compSrvcHttpsAddr, Use::Substituted, ChooseSetting},
    {"certificate file", &CInstallBase::m_compSrvcCert, Use::Substituted, ChooseSetting},
    {"key file", &CInstallBase::m_compSrvcKey, Use::Substituted, ChooseSetting},
    {"Diffie-Hellman file", &CInstallBase::m_compSrvcDh, Use::Substituted, ChooseSetting},
};

// Those of 8 bits too, which a terminal may take for the escape sequences of 7 bits.
bool IsControl(QChar character) {
    return character.category() == QChar::Other_Control;
}

// What makes `value` unusable, or nothing.
QString ReasonAgainst(const QString& value, Use use) {
    if (use == Use::AccountName) {
        static const QRegularExpression name(QStringLiteral("\\A[A-Za-z0-9_][A-Za-z0-9_.@+-]*\\z"));
        return name.match(value).hasMatch()
                   ? QString()
                   : QStringLiteral(
                         "an account name consists of letters, digits, \"_\", \".\", "
                         "\"@\", \"+\" and \"-\", and does not begin with a sign");
    }
    const QString unusable =
        use == Use::Substituted ? QStringLiteral("\"$`\\|&") : QStringLiteral("\"$`\\");
    for (const QChar character : value) {
        if (IsControl(character))
            return QStringLiteral("it holds a line break or another control character");
        if (character == QChar::ReplacementCharacter)
            return QStringLiteral("it holds bytes that are not UTF-8");
        if (unusable.contains(character))
            return QStringLiteral("it holds the character %1").arg(character);
    }
    return {};
}

// Only a root run names members in the script.
std::optional<Refusal> FindRefusedMember(const CInstallBase& run) {
    if (run.m_accessFlags != CInstallBase::RootAccess)
        return std::nullopt;
    for (const QString& member : run.m_serviceMembers + run.m_serviceCurrentMembers) {
        const QString reason = ReasonAgainst(member, Use::AccountName);
        if (!reason.isEmpty()) {
            return Refusal{QStringLiteral("service group member"), member, reason,
                           QStringLiteral("Name another member, or take the name out of the group "
                                          "\"%1\" in the group database.")
                               .arg(run.m_serviceGroup)};
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<Refusal> FindRefusedValue(const CInstallBase& run) {
    for (const GuardedField& guarded : guardedFields) {
        const QString& value = run.*guarded.field;
        const QString reason = ReasonAgainst(value, guarded.use);
        if (!reason.isEmpty()) {
            return Refusal{QString::fromUtf8(guarded.name), value, reason,
                           QString::fromUtf8(guarded.remedy)};
        }
    }
    return FindRefusedMember(run);
}

QString Describe(const Refusal& refusal) {
    QString shown = refusal.value;
    for (QChar& character : shown) {
        if (IsControl(character))
            character = u'?';
    }
    return QStringLiteral("the %1 \"").arg(refusal.field) + shown +
           QStringLiteral("\" cannot be used: ") + refusal.reason + QStringLiteral("\n    ") +
           refusal.remedy;
}
