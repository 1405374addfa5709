#include "TreeCheck.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace {

struct TreeEntry {
    const char* path;        // below the install directory
    mode_t type;             // what the script makes or writes there
    bool givenAway = false;  // to the service account, with all below it
};

constexpr const char* secondName = "has a second name (a hard link) somewhere else";

constexpr TreeEntry treeEntries[] = {
    {"", S_IFDIR},
    {"/corvanerc", S_IFDIR},
    {"/corvanerc/corvane26", S_IFDIR},
    {"/corvanerc/corvane26server", S_IFDIR},
    {"/corvanerc/corvane26server/resources", S_IFDIR, true},
    {"/corvanerc/corvane26server/icons", S_IFDIR, true},
    {"/corvane26", S_IFREG},
    {"/corvane26_snapshot", S_IFREG},
    {"/corvane26_service.service", S_IFREG},
    {"/QueueEntries", S_IFREG},
    {"/QueueLimits", S_IFREG},
    {"/qchemrc", S_IFDIR},
    {"/qchemrc/qchemrc", S_IFREG},
    {"/qchemrc/qcscratch", S_IFREG},
    {"/corvane26_samba", S_IFREG},
    {"/corvane26_ssh", S_IFREG},
};

// A link in the tree that root made may have been moved there by who may write to the tree.
const char* TrapInLink(const struct stat& entry, bool inTree) {
    if (entry.st_uid != 0)
        return "is a symbolic link that root did not make";
    return inTree ? "is a symbolic link in a directory that others may write to" : nullptr;
}

// What is wrong with the entry, or nothing.
const char* TrapAt(const char* path, mode_t type, bool inTree) {
    struct stat entry = {};
    if (lstat(path, &entry) != 0)
        return nullptr;
    if (S_ISLNK(entry.st_mode))
        return TrapInLink(entry, inTree);
    // A wrong kind that does no harm is left for the script to fail on.
    if (type == S_IFREG && !S_ISREG(entry.st_mode) && !S_ISDIR(entry.st_mode))
        return "is neither a file nor a directory";
    if (type == S_IFREG && S_ISREG(entry.st_mode) && entry.st_nlink > 1)
        return secondName;
    return nullptr;
}

QString Describe(const QString& path, const char* trap) {
    return QStringLiteral(
               "\"%1\" %2, and root would write through it\n"
               "    See what it is, remove it, and run the setup again.")
        .arg(path, QLatin1String(trap));
}

QString DescribeUnreadable(const QString& path, int error) {
    return QStringLiteral(
               "cannot check \"%1\" for hard links: %2\n"
               "    Inspect it, remove it, then run the setup again.")
        .arg(path, QString::fromUtf8(std::strerror(error)));
}

// Finds a hard link below a directory whose content the script gives to the service account.
// Symbolic links are not followed there. A directory that cannot be read may contain one.
QString FindHardLinkBelow(const QString& directory) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::recursive_directory_iterator at(directory.toStdString(), error);
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
        return {};
    for (const fs::recursive_directory_iterator end; !error && at != end; at.increment(error)) {
        struct stat entry = {};
        if (lstat(at->path().c_str(), &entry) != 0)
            return DescribeUnreadable(QString::fromStdString(at->path().string()), errno);
        if (!S_ISDIR(entry.st_mode) && entry.st_nlink > 1)
            return Describe(QString::fromStdString(at->path().string()), secondName);
    }
    return error ? DescribeUnreadable(directory, error.value()) : QString();
}

// The commit script passes the text of this link to ln, which takes a leading hyphen for an option.
QString FindOptionInRepositoryLink(const QString& installDir) {
    const QString path =
        installDir + QStringLiteral("/corvanerc/corvane24server/CorvaneServerRepository");
    std::array<char, 1> text = {};
    if (readlink(path.toUtf8().constData(), text.data(), text.size()) != 1 || text[0] != '-')
        return {};
    return QStringLiteral(
               "the target of symbolic link \"%1\" begins with \"-\"\n"
               "    Inspect the link, remove it, then run the setup again.")
        .arg(path);
}

// Such as the one that a package has installed. What a setup has made there before may do.
bool CannotTakeAPrivateCopy(const QByteArray& directory) {
    return access(directory.constData(), W_OK) != 0 &&
           access((directory + "/corvane26").constData(), F_OK) != 0;
}

}  // namespace

QString FindTrapInTree(const QString& installDir) {
    for (const TreeEntry& entry : treeEntries) {
        const QString path = installDir + QLatin1String(entry.path);
        const char* trap = TrapAt(path.toUtf8().constData(), entry.type, *entry.path != '\0');
        if (trap != nullptr)
            return Describe(path, trap);
        const QString below = entry.givenAway ? FindHardLinkBelow(path) : QString();
        if (!below.isEmpty())
            return below;
    }
    return FindOptionInRepositoryLink(installDir);
}

QString FindUnsafeTemporaryDirectory() {
    struct stat entry = {};
    if (lstat("/tmp", &entry) == 0 && S_ISDIR(entry.st_mode) && entry.st_uid == 0 &&
        ((entry.st_mode & S_ISVTX) != 0 || (entry.st_mode & (S_IWGRP | S_IWOTH)) == 0))
        return {};
    return QStringLiteral(
        "unsafe directory \"/tmp\": other users can replace the commit script in it\n"
        "    Make it a directory owned by root with mode 1777, then run the setup again.");
}

QString FindUnreadableQueueLimits(const QString& installDir) {
    constexpr off_t mostBytes = 64 * 1024;
    const QString path = installDir + QStringLiteral("/QueueLimits");
    struct stat entry = {};
    if (stat(path.toUtf8().constData(), &entry) != 0 ||
        (S_ISREG(entry.st_mode) && entry.st_size <= mostBytes))
        return {};
    return QStringLiteral(
               "\"%1\" is not a regular file of at most 64 KB\n"
               "    Inspect it, remove it, then run the setup again.")
        .arg(path);
}

QString FindObstacleForUser(const CInstallBase& run) {
    QString link = FindOptionInRepositoryLink(run.m_installDir);
    if (!link.isEmpty())
        return link;
    if (CannotTakeAPrivateCopy(run.m_installDir.toUtf8())) {
        return QStringLiteral(
                   "\"%1\" may not be written to, and a private copy stands beside the program\n"
                   "    Copy that folder to a directory of your own and run its cv_install there, "
                   "or have root run the setup.")
            .arg(run.m_installDir);
    }
    for (const char* name : {"/corvane26", "/corvane26_snapshot"}) {
        const QString path = run.m_installDir + QLatin1String(name);
        struct stat entry = {};
        if (stat(path.toUtf8().constData(), &entry) == 0 && entry.st_uid != getuid()) {
            return QStringLiteral(
                       "\"%1\" belongs to another user, so this setup would stop when "
                       "it sets the file's mode\n"
                       "    Have root run the setup, or move the product to a directory "
                       "of your own for a private copy.")
                .arg(path);
        }
    }
    return {};
}
