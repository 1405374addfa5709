#include "Plan.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "Letter.h"

namespace {

void Row(const char* what, const QString& name, const QString& outcome) {
    std::printf("  %-10s %s: %s\n", what, qUtf8Printable(name), qUtf8Printable(outcome));
}

void ShowAccount(const CInstallBase& run) {
    const bool group = getgrnam(run.m_serviceGroup.toUtf8().constData()) != nullptr;
    const bool user = getpwnam(run.m_serviceUser.toUtf8().constData()) != nullptr;
    Row("Group", run.m_serviceGroup, group ? "there, kept" : "made");
    Row("User", run.m_serviceUser,
        user                                             ? "there, kept"
        : run.m_queueType == CInstallBase::QueueExternal ? "made, with the shell /bin/bash"
                                                         : "made, without a login shell");
}

void ShowMembers(CInstallBase& run) {
    const QString joining = run.AddServiceGroupUsers();
    const QString leaving = run.RemoveServiceGroupUsers();
    Row("Members", "in", joining.isEmpty() ? "nobody" : joining);
    Row("Members", "out", leaving.isEmpty() ? "nobody" : leaving);
}

bool Exists(const QString& path) {
    struct stat entry = {};
    return lstat(path.toUtf8().constData(), &entry) == 0;
}

void ShowDirectories(const CInstallBase& run) {
    for (const char* name :
         {"", "/corvanerc", "/corvanerc/corvane26", "/corvanerc/corvane26server"}) {
        const QString path = run.m_installDir + QLatin1String(name);
        Row("Directory", path, Exists(path) ? "there, kept" : "made, mode 775");
    }
}

// What happens to the link `name` in /usr/bin.
QString LinkOutcome(const QString& link, const QString& target) {
    struct stat entry = {};
    if (lstat(link.toUtf8().constData(), &entry) != 0)
        return QStringLiteral("made");
    if (!S_ISLNK(entry.st_mode))
        return QStringLiteral("a file stands there, the setup will stop at it: move it away first");
    std::array<char, 4096> text = {};
    const ssize_t length = readlink(link.toUtf8().constData(), text.data(), text.size());
    const QString present = QString::fromUtf8(text.data(), length > 0 ? length : 0);
    return present == target ? QStringLiteral("there, kept")
                             : QStringLiteral("replaced, it points at %1 now").arg(present);
}

void ShowLinks(const CInstallBase& run) {
    for (const char* name : {"corvane26", "corvane26_snapshot"}) {
        const QString link = QStringLiteral("/usr/bin/") + QLatin1String(name);
        Row("Link", link, LinkOutcome(link, run.m_installDir + u'/' + QLatin1String(name)));
    }
}

void ShowServices(const CInstallBase& run) {
    if (run.m_clusterNode) {
        Row("Service", "corvane26_service", "none on a cluster node");
        return;
    }
    for (const char* old :
         {"/etc/init.d/corvane_service", "/etc/systemd/system/corvane20_service.service",
          "/etc/systemd/system/corvane24_service.service"}) {
        if (Exists(QLatin1String(old)))
            Row("Service", QLatin1String(old), "stopped and removed");
    }
    const bool installed = Exists(QStringLiteral("/etc/systemd/system/corvane26_service.service"));
    Row("Service", "corvane26_service",
        installed ? "restarted, its unit replaced if the text differs"
                  : "installed, enabled and started");
}

}  // namespace

void ShowPlan(CInstallBase& run, const QString& scriptPath) {
    std::printf(
        "------------------------------------------------------------\n\n"
        "This setup will change the machine:\n\n");
    ShowAccount(run);
    ShowMembers(run);
    ShowDirectories(run);
    Row("Files", run.m_installDir + QStringLiteral("/qchemrc"), "those of Q-Chem, written");
    ShowLinks(run);
    ShowServices(run);
    Row("Script", scriptPath, "what will be run, for you to read");
    std::printf("\n");
}

bool ConfirmPlan() {
    return AskForLetter("Go on? [y/N] ") == 'y';
}
