#include "report/Plan.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "answers/Conversation.h"
#include "answers/StartRun.h"
#include "installation/SetupRun.h"
#include "report/Report.h"

namespace {

void Row(const char* what, const QString& name, const QString& outcome) {
    std::printf("  %-10s %s: %s\n", what, qUtf8Printable(name), qUtf8Printable(outcome));
}

QString Keep() {
    return QStringLiteral("keep (exists)");
}

void ShowGroup(const CInstallBase& run) {
    const bool exists = getgrnam(run.m_serviceGroup.toUtf8().constData()) != nullptr;
    Row("Group", run.m_serviceGroup, exists ? Keep() : QStringLiteral("create"));
}

void ShowUser(const CInstallBase& run) {
    if (getpwnam(run.m_serviceUser.toUtf8().constData()) != nullptr)
        Row("User", run.m_serviceUser, Keep());
    else if (run.m_queueType == CInstallBase::QueueExternal)
        Row("User", run.m_serviceUser,
            QStringLiteral("create with shell ") + QLatin1String(accountShellForExternalQueue));
    else
        Row("User", run.m_serviceUser, QStringLiteral("create without a login shell"));
}

void ShowMembers(const char* outcome, const QStringList& names) {
    Row("Members", QLatin1String(outcome),
        names.isEmpty() ? QStringLiteral("none") : names.join(u' '));
}

bool Exists(const QString& path) {
    struct stat entry = {};
    return lstat(path.toUtf8().constData(), &entry) == 0;
}

QString LinkOutcome(const QString& link, const QString& target) {
    struct stat entry = {};
    if (lstat(link.toUtf8().constData(), &entry) != 0)
        return QStringLiteral("create");
    std::array<char, 4096> text = {};
    const ssize_t length = readlink(link.toUtf8().constData(), text.data(), text.size());
    const QString present = QString::fromUtf8(text.data(), length > 0 ? length : 0);
    return present == target ? Keep() : QStringLiteral("replace (points to %1)").arg(present);
}

// Everything that the setup creates on its own; files are left out, as are the contents of the
// directories of pages, and the service's own files, which have one row for all.
void ShowEntry(const CInstallBase& run, const Entry& entry) {
    const QString path = PathIn(run, entry);
    if (entry.kind == Kind::Directory && entry.check != Check::Archive) {
        Row("Directory", path,
            Exists(path) ? Keep() : QStringLiteral("create (mode %1)").arg(entry.rootMode, 0, 8));
    } else if (entry.kind == Kind::Link && !IsInTree(entry) && entry.reference[0] != '/') {
        Row("Link", path,
            LinkOutcome(path, run.m_installDir + u'/' + QLatin1String(entry.reference)));
    } else if (entry.kind == Kind::EarlierService && Exists(path)) {
        Row("Service", path, QStringLiteral("stop and remove"));
    }
}

void ShowService(unsigned conditions) {
    const Entry& unit = Find(Item::Unit);
    const char* outcome = "install, enable, and start";
    if (!Applies(unit, conditions))
        outcome = "not installed on a compute node";
    else if (Exists(QLatin1String(unit.path)))
        outcome = "restart; replace unit file if it differs";
    Row("Service", QLatin1String(serviceUnit), QLatin1String(outcome));
}

}  // namespace

void ShowPlan(const CInstallBase& run, const Answers& previous, unsigned conditions,
              const MemberChanges& members, const QString& scriptPath) {
    // Shows those that exist.
    conditions |= WithEarlierServices;
    CInstallBase::InstallSeparator();
    std::printf("\n");
    PrintValues(ValuesOf(run, previous));
    std::printf("The setup will make these changes:\n\n");
    ShowGroup(run);
    ShowUser(run);
    ShowMembers("added", members.joining);
    ShowMembers("removed", members.leaving);
    for (const Entry& entry : Entries()) {
        if (Applies(entry, conditions))
            ShowEntry(run, entry);
    }
    ShowService(conditions);
    Row("Files", run.m_installDir, QStringLiteral("write the run scripts and settings"));
    if (!scriptPath.isEmpty())
        Row("Script", scriptPath, QStringLiteral("commit script; review it before you continue"));
    std::printf("\n");
}

bool ConfirmPlan(const std::function<void()>& details) {
    return AskYesNo(details ? "Continue? [y/N/d] " : "Continue? [y/N] ", false, details);
}

Problem PlanDeclined() {
    return {ExitStatus::Declined, QStringLiteral("setup canceled: plan not confirmed"), {}};
}
