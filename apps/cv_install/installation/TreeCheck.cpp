#include "installation/TreeCheck.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "installation/RootPath.h"
#include "installation/SetupRun.h"

namespace {

Problem TreeProblem(const QString& text, const QString& remedy) {
    return {ExitStatus::TreeRefused, text, remedy};
}

Problem UnsafePath(const std::string& path, const char* reason) {
    return TreeProblem(
        QStringLiteral("unsafe path: \"%1\" %2")
            .arg(QString::fromStdString(path), QLatin1String(reason)),
        QStringLiteral("Root would write through it. ") + QLatin1String(inspectAndRemove));
}

constexpr const char* hasHardLinks = "has more than one hard link";
constexpr const char* linkOfOther = "is a symbolic link not owned by root";

// Says what is unsafe about the entry itself, or null. A link in the tree that root made may have
// been moved there by a user who can write to the tree.
const char* UnsafeKind(const std::string& path, const Entry& entry) {
    struct stat found = {};
    if (lstat(path.c_str(), &found) != 0)
        return nullptr;
    if (S_ISLNK(found.st_mode)) {
        if (found.st_uid != 0)
            return linkOfOther;
        return *entry.path != '\0'
                   ? "is a symbolic link in a directory that other users can write to"
                   : nullptr;
    }
    // A directory in place of a file makes the script fail without harm.
    if (entry.kind == Kind::File && !S_ISREG(found.st_mode) && !S_ISDIR(found.st_mode))
        return "is not a regular file or directory";
    return entry.kind == Kind::File && S_ISREG(found.st_mode) && found.st_nlink > 1 ? hasHardLinks
                                                                                    : nullptr;
}

Problem UncheckedPath(const std::string& path, int error) {
    return TreeProblem(
        QStringLiteral("cannot check \"%1\" for hard links: %2")
            .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(error))),
        QStringLiteral("Make sure that root can read it, then run the setup again."));
}

// Finds a hard link below a directory whose content the script gives to the service account. chown
// does not follow symbolic links there. A directory that cannot be read may contain a hard link.
Failure FindHardLinkBelow(const std::string& directory) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::recursive_directory_iterator at(directory, error);
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
        return {};
    for (const fs::recursive_directory_iterator end; !error && at != end; at.increment(error)) {
        struct stat found = {};
        if (lstat(at->path().c_str(), &found) != 0) {
            if (errno == ENOENT)
                continue;
            return UncheckedPath(at->path().string(), errno);
        }
        if (!S_ISDIR(found.st_mode) && found.st_nlink > 1)
            return UnsafePath(at->path().string(), hasHardLinks);
    }
    if (error)
        return UncheckedPath(directory, error.value());
    return {};
}

// The commit script passes the target of this link to ln, which takes a leading hyphen for an
// option.
Failure FindOptionInRepositoryLink(const QString& installDir) {
    const QString path = installDir + u'/' + QLatin1String(earlierRepository);
    std::array<char, 1> text = {};
    if (readlink(path.toUtf8().constData(), text.data(), text.size()) != 1 || text[0] != '-')
        return {};
    return TreeProblem(
        QStringLiteral("the target of symbolic link \"%1\" begins with \"-\"").arg(path),
        QLatin1String(inspectAndRemove));
}

Failure FindUnsafeEntry(const std::string& installDir) {
    for (const Entry& entry : Entries()) {
        // The repository's link is only read.
        if (!IsInTree(entry) || entry.kind == Kind::Link)
            continue;
        const std::string path = PathOf(entry, installDir);
        if (const char* reason = UnsafeKind(path, entry))
            return UnsafePath(path, reason);
        if (!entry.ownsAllBelow)
            continue;
        if (Failure below = FindHardLinkBelow(path))
            return below;
    }
    return {};
}

bool IsWritableDirectory(const char* path) {
    struct stat found = {};
    return stat(path, &found) == 0 && S_ISDIR(found.st_mode) && access(path, W_OK) == 0;
}

Failure CheckTemporaryDirectory() {
    struct stat found = {};
    if (lstat("/tmp", &found) == 0 && S_ISDIR(found.st_mode) && found.st_uid == 0 &&
        ((found.st_mode & S_ISVTX) != 0 || (found.st_mode & (S_IWGRP | S_IWOTH)) == 0))
        return {};
    return Problem{
        ExitStatus::ScriptNotWritten,
        QStringLiteral("unsafe directory \"/tmp\": other users can replace the commit script"),
        QStringLiteral("Make it a directory owned by root with mode 1777, then run the setup "
                       "again.")};
}

Failure CheckQueueLimits(const QString& installDir) {
    const std::string path = PathOf(Find(Item::QueueLimits), installDir.toStdString());
    struct stat found = {};
    if (stat(path.c_str(), &found) != 0 ||
        (S_ISREG(found.st_mode) && found.st_size <= largestLimits))
        return {};
    return TreeProblem(QStringLiteral("\"%1\" is not a regular file of at most 64 KB")
                           .arg(QString::fromStdString(path)),
                       QLatin1String(inspectAndRemove));
}

// A directory where an earlier setup created a run script can be set up again.
bool CannotTakePrivateCopy(const QString& directory) {
    const std::string path = directory.toStdString();
    return access(path.c_str(), W_OK) != 0 &&
           access(PathOf(Find(Item::RunScript), path).c_str(), F_OK) != 0;
}

Problem Unopened(const std::string& path, const Unresolved& unresolved) {
    switch (unresolved.reason) {
        case Unresolved::Reason::OthersCanWrite:
            return TreeProblem(
                QStringLiteral("unsafe directory \"%1\": others can replace the install directory")
                    .arg(QString::fromStdString(unresolved.directory)),
                QStringLiteral("Make it a directory that only root can write to, then run the "
                               "setup again."));
        case Unresolved::Reason::LinkOfOther:
            return UnsafePath(path, linkOfOther);
        default:
            return UncheckedPath(path, unresolved.error);
    }
}

Problem RiskInPlace(const QString& reason) {
    return TreeProblem(
        QStringLiteral("cannot change the machine step by step: %1").arg(reason),
        QStringLiteral("Others could interfere. Run the setup where private mounts are possible, "
                       "or stop the service and remove the members, then run it again."));
}

bool HasProcesses(uid_t user) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        struct stat found = {};
        if (std::isdigit(static_cast<unsigned char>(entry.path().filename().c_str()[0])) != 0 &&
            stat(entry.path().c_str(), &found) == 0 && found.st_uid == user)
            return true;
    }
    return false;
}

// The first entry of the tree that others than root and the account own or can write to. Empty
// without one. QueueEntries is writable for everyone, and nothing follows a link in the tree.
std::string FindWritableByOthers(const std::string& installDir, uid_t account) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::recursive_directory_iterator at(installDir, error);
    const std::string jobs = PathOf(Find(Item::QueueEntries), installDir);
    for (const fs::recursive_directory_iterator end; !error && at != end; at.increment(error)) {
        struct stat found = {};
        std::string path = at->path().string();
        if (lstat(path.c_str(), &found) != 0 || S_ISLNK(found.st_mode))
            continue;
        const bool isForeign = found.st_uid != 0 && found.st_uid != account;
        if (isForeign || ((found.st_mode & S_IWOTH) != 0 && path != jobs))
            return path;
    }
    return error && error != std::errc::no_such_file_or_directory ? installDir : std::string();
}

}  // namespace

Failure FindInstallDirectory(const char* argv0, QString& installDir) {
    if (getuid() == 0 || IsWritableDirectory(sharedDirectory)) {
        installDir = QString::fromUtf8(sharedDirectory);
        return {};
    }
    std::array<char, 2048> directory = {};
    if (CInstallBase::CurrentDirectory(argv0, directory.data(),
                                       static_cast<int>(directory.size())) == -1) {
        return Problem{ExitStatus::NoWorkingDirectory,
                       QStringLiteral("cannot determine the working directory: %1")
                           .arg(QString::fromUtf8(std::strerror(errno))),
                       QStringLiteral("Change to a directory that exists, then run the setup "
                                      "again.")};
    }
    installDir = QString::fromUtf8(directory.data());
    return {};
}

Failure CheckBeforeStart(const QString& installDir) {
    Failure failure;
    if (getuid() == 0)
        failure = FindUnsafePath(installDir, Changes::None);
    if (!failure)
        failure = CheckQueueLimits(installDir);
    if (!failure && getuid() == 0)
        failure = CheckTemporaryDirectory();
    return failure;
}

Failure FindUnsafePath(const QString& installDir, Changes changes) {
    Failure failure = FindUnsafeEntry(installDir.toStdString());
    if (!failure)
        failure = FindOptionInRepositoryLink(installDir);
    if (failure)
        failure->changes = changes;
    return failure;
}

Failure FindObstacleForUser(const CInstallBase& run) {
    if (Failure failure = FindOptionInRepositoryLink(run.m_installDir))
        return failure;
    if (CannotTakePrivateCopy(run.m_installDir)) {
        return TreeProblem(
            QStringLiteral("cannot write to directory \"%1\"").arg(run.m_installDir),
            QStringLiteral("Copy it to a location that you own and run cv_install there, or run "
                           "the setup as root."));
    }
    for (const Item script : {Item::RunScript, Item::SnapshotScript}) {
        const QString path = PathIn(run, Find(script));
        struct stat found = {};
        if (stat(path.toUtf8().constData(), &found) == 0 && found.st_uid != getuid()) {
            return TreeProblem(
                QStringLiteral("cannot change the mode of \"%1\": owned by another user").arg(path),
                QStringLiteral("Run the setup as root."));
        }
    }
    return {};
}

Failure OpenInstallDirectory(const QString& installDir, Descriptor& tree) {
    if (getuid() == 0)
        return OpenInstallDirectory(tree);
    tree = Descriptor(open(installDir.toUtf8().constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (tree || errno == ENOENT)
        return {};
    return Problem{ExitStatus::SystemCallFailed,
                   QStringLiteral("cannot read directory \"%1\": %2")
                       .arg(installDir, QString::fromUtf8(std::strerror(errno))),
                   QStringLiteral("Make sure that you can read it, then run the command again.")};
}

Failure OpenInstallDirectory(Descriptor& tree) {
    const std::string path = PathOf(Find(Item::InstallDirectory), sharedDirectory);
    RootPath resolved;
    if (const auto unresolved = ResolveRootPath(path, true, resolved))
        return Unopened(path, *unresolved);
    tree = OpenEntry(resolved.parent.Number(), resolved.name, O_DIRECTORY);
    const int error = tree ? 0 : errno;
    struct stat link = {};
    if (error == 0 || (error == ENOENT && lstat(path.c_str(), &link) != 0))
        return {};
    return error == EREMOTE ? UnsafePath(path, "is on a FUSE file system")
                            : UncheckedPath(path, error);
}

Failure CheckPlaces(const QString& binariesDir, const QString& installDir) {
    namespace fs = std::filesystem;
    std::error_code error;
    const std::string product = fs::weakly_canonical(binariesDir.toStdString(), error).string();
    const std::string working = fs::current_path(error).string();
    const std::string tree = installDir.toStdString() + '/';
    for (const std::string& path : {product, working}) {
        if ((path + '/').starts_with(tree)) {
            return TreeProblem(
                QStringLiteral("cannot set up from \"%1\": it is in the install directory")
                    .arg(QString::fromStdString(path)),
                QStringLiteral("Move the product to another directory, such as /opt, and run the "
                               "setup from there."));
        }
    }
    return {};
}

Failure FindRiskInPlace(const CInstallBase& run) {
    const passwd* user = getpwnam(run.m_serviceUser.toUtf8().constData());
    const uid_t account = user != nullptr ? user->pw_uid : 0;
    const group* members = getgrnam(run.m_serviceGroup.toUtf8().constData());
    const QString groupName = run.m_serviceGroup;
    if (members != nullptr && members->gr_mem[0] != nullptr)
        return RiskInPlace(QStringLiteral("group %1 has members").arg(groupName));
    if (account != 0 && HasProcesses(account))
        return RiskInPlace(QStringLiteral("user %1 has processes").arg(run.m_serviceUser));
    const std::string found = FindWritableByOthers(run.m_installDir.toStdString(), account);
    if (!found.empty()) {
        return RiskInPlace(
            QStringLiteral("others own or can write to \"%1\"").arg(QString::fromStdString(found)));
    }
    return {};
}
