#include "TreeCheck.h"

#include <sys/stat.h>
#include <unistd.h>

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

// What is given away with its directory: links are not followed, but a second name is the file
// itself. Returns its path, or nothing.
QString FindSecondName(const QString& directory) {
    namespace fs = std::filesystem;
    std::error_code error;
    for (fs::recursive_directory_iterator at(directory.toStdString(), error), end;
         !error && at != end; at.increment(error)) {
        struct stat entry = {};
        if (lstat(at->path().c_str(), &entry) == 0 && !S_ISDIR(entry.st_mode) && entry.st_nlink > 1)
            return QString::fromStdString(at->path().string());
    }
    return {};
}

QString Describe(const QString& path, const char* trap) {
    return QStringLiteral(
               "\"%1\" %2, and root would write through it\n"
               "    See what it is, remove it, and run the setup again.")
        .arg(path, QLatin1String(trap));
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
        const QString below = entry.givenAway ? FindSecondName(path) : QString();
        if (!below.isEmpty())
            return Describe(below, secondName);
    }
    return {};
}

QString FindObstacleForUser(const CInstallBase& run) {
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
