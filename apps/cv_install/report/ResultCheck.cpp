#include "report/ResultCheck.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "apply/RunTimeFiles.h"
#include "installation/ContentCheck.h"
#include "installation/SetupRun.h"
#include "installation/State.h"
#include "report/OwnerNames.h"

namespace {

bool IsIn(const EntryList& list, const Entry& entry) {
    return std::find(list.begin(), list.end(), &entry) != list.end();
}

Problem WrongOwner(const QString& text) {
    return {ExitStatus::Incomplete, text,
            QStringLiteral("Make sure that its file system supports owners, then run the setup "
                           "again."),
            Changes::Unknown};
}

Failure CheckOwner(const CInstallBase& run, const Entry& entry) {
    const QString path = PathIn(run, entry);
    // The install directory may be a link of root's, which chown follows.
    const int flags = entry.item == Item::InstallDirectory ? 0 : AT_SYMLINK_NOFOLLOW;
    struct stat found = {};
    if (fstatat(AT_FDCWD, path.toUtf8().constData(), &found, flags) != 0) {
        return WrongOwner(QStringLiteral("the owner of \"%1\" is unknown: %2")
                              .arg(path, QString::fromUtf8(std::strerror(errno))));
    }
    const passwd* user = getpwnam(run.m_serviceUser.toUtf8().constData());
    const group* owner = getgrnam(run.m_serviceGroup.toUtf8().constData());
    if (user != nullptr && owner != nullptr && user->pw_uid == found.st_uid &&
        owner->gr_gid == found.st_gid)
        return {};
    return WrongOwner(QStringLiteral("the owner of \"%1\" is %2, expected %3:%4")
                          .arg(path, OwnerNames().Both(found.st_uid, found.st_gid),
                               run.m_serviceUser, run.m_serviceGroup));
}

Failure CheckUnpackedPages(const CInstallBase& run, const Entry& entry, const PackedPages& packed) {
    const Descriptor tree(open(run.m_installDir.toUtf8().constData(), O_PATH | O_CLOEXEC));
    return packed.Check(run, entry, tree.Number(), Written::Now);
}

}  // namespace

EntryList FindKeptPages(const CInstallBase& run, unsigned conditions) {
    EntryList kept;
    for (const Entry& entry : Entries()) {
        if (entry.check == Check::Archive && Applies(entry, conditions) &&
            access(PathIn(run, entry).toUtf8().constData(), F_OK) == 0)
            kept.push_back(&entry);
    }
    return kept;
}

Failure CheckResult(const CInstallBase& run, unsigned conditions, const EntryList& keptPages,
                    const PackedPages& packed) {
    const bool root = (conditions & AsRoot) != 0;
    for (const Entry& entry : Entries()) {
        if (!Applies(entry, conditions))
            continue;
        Failure failure;
        if (entry.check == Check::Archive && !IsIn(keptPages, entry))
            failure = CheckUnpackedPages(run, entry, packed);
        else if (entry.check != Check::Archive && !IsRunTimeFile(entry))
            failure = CheckContent(run, entry);
        if (!failure && root && entry.owner == Owner::ServiceAccount)
            failure = CheckOwner(run, entry);
        if (failure)
            return failure;
    }
    return {};
}

void WarnOfKeptPages(const CInstallBase& run, int tree, const EntryList& keptPages,
                     const PackedPages& packed) {
    for (const Entry* entry : keptPages) {
        if (Failure failure = packed.Check(run, *entry, tree, Written::Before))
            ReportWarning(*failure);
    }
}
