#include "staging/TreeCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "installation/Installation.h"
#include "installation/TreeCheck.h"
#include "merge/Acl.h"
#include "staging/UserView.h"
#include "staging/ViewMounts.h"

namespace {

namespace fs = std::filesystem;

Problem Refused(const std::string& path, const char* reason, const char* remedy) {
    return {ExitStatus::TreeRefused,
            QStringLiteral("\"%1\" %2").arg(QString::fromStdString(path), QLatin1String(reason)),
            QLatin1String(remedy)};
}

Problem CannotInspect(const std::string& path) {
    return {ExitStatus::TreeRefused,
            QStringLiteral("cannot inspect \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(errno))),
            QLatin1String(inspectAndRemove)};
}

// Copies the limits of the last setup, which the library reads.
Failure StageLimits(const Descriptor& directory, const std::string& path, int staged) {
    const Descriptor file = OpenRegularFile(directory.Number(), Find(Item::QueueLimits).path);
    struct stat found = {};
    if (!file || fstat(file.Number(), &found) != 0)
        return CannotInspect(path);
    if ((found.st_mode & S_IROTH) == 0) {
        return Refused(path, "is not readable for everyone",
                       "If it contains the limits for jobs, set its mode to 664, otherwise remove "
                       "it; then run the setup again.");
    }
    std::array<char, largestLimits + 1> text = {};
    const ssize_t length = read(file.Number(), text.data(), text.size());
    if (length < 0 || length > largestLimits)
        return Refused(path, "is not a regular file of at most 64 KB", inspectAndRemove);
    if (write(staged, text.data(), static_cast<size_t>(length)) != length)
        return StagingFailed(path);
    return {};
}

std::string StagedPath(const std::string& relative) {
    return viewTree + '/' + relative;
}

class Filling {
public:
    Filling(const Descriptor& live, StagedMachine& staged)
        : m_live(live), m_staged(staged), m_installDir(staged.installDir.toStdString()) {}

    Failure StageEntry(const Entry& entry) const {
        const std::string path = PathOf(entry, m_installDir);
        const std::string name = NameOf(entry.path);
        const Descriptor directory = OpenParent(entry.path);
        struct stat found = {};
        if (!directory ||
            fstatat(directory.Number(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT ? Failure() : CannotInspect(path);
        if (entry.kind == Kind::Directory)
            return StageDirectory(entry, path, found);
        // The script replaces anything else, and the merge moves it aside.
        if (entry.kind == Kind::File && S_ISREG(found.st_mode))
            return StageFile(entry, directory, path, found);
        if (entry.item == Item::QueueLimits)
            return Refused(path, "is not a regular file of at most 64 KB", inspectAndRemove);
        return {};
    }

    // The script asks whether it is a directory, and otherwise copies the text of a link.
    Failure StageEarlierRepository() const {
        const std::string relative = earlierRepository;
        const std::string path = m_installDir + '/' + relative;
        const std::string staged = StagedPath(relative);
        const Descriptor directory = OpenParent(relative);
        const std::string name = NameOf(relative);
        struct stat found = {};
        if (!directory || fstatat(directory.Number(), name.c_str(), &found, 0) != 0)
            found.st_mode = 0;
        std::array<char, 4096> target = {};
        const ssize_t length = directory ? readlinkat(directory.Number(), name.c_str(),
                                                      target.data(), target.size() - 1)
                                         : -1;
        if (length > 0 && target[0] == '-')
            return Refused(path, "is a symbolic link whose target begins with \"-\"",
                           inspectAndRemove);
        if (!S_ISDIR(found.st_mode) && length <= 0)
            return {};
        std::error_code error;
        fs::create_directories(fs::path(staged).parent_path(), error);
        const bool made = S_ISDIR(found.st_mode) ? mkdir(staged.c_str(), 0755) == 0
                                                 : symlink(target.data(), staged.c_str()) == 0;
        return made ? Failure() : StagingFailed(path);
    }

private:
    static std::string NameOf(const std::string& relative) {
        const std::string name = fs::path(relative).filename().string();
        return name.empty() ? "." : name;
    }

    Descriptor OpenParent(const std::string& relative) const {
        return OpenDirectory(m_live.Number(), fs::path(relative).parent_path().string());
    }

    Failure StageDirectory(const Entry& entry, const std::string& path,
                           const struct stat& found) const {
        if (!S_ISDIR(found.st_mode))
            return Refused(path, "is not a directory", inspectAndRemove);
        if (m_isRoot && entry.owner == Owner::Root && found.st_uid != 0)
            return Refused(path, "is not owned by root", inspectAndRemove);
        const std::string staged = StagedPath(entry.path);
        const mode_t mode = m_isRoot ? found.st_mode & 07777 : ModeForUser(entry, found);
        if ((mkdir(staged.c_str(), mode) == 0 || errno == EEXIST) &&
            chmod(staged.c_str(), mode) == 0 &&
            (m_isRoot ||
             CopyDefaultAcl(OpenDirectory(m_live.Number(), entry.path).Number(), staged)))
            return Note(staged, path);
        return StagingFailed(path);
    }

    // The user owns the copy, so the owner's bits become what the user may do in the directory.
    mode_t ModeForUser(const Entry& entry, const struct stat& found) const {
        mode_t mode = found.st_mode & 07777;
        if (found.st_uid == getuid())
            return mode;
        const Descriptor directory = OpenDirectory(m_live.Number(), entry.path);
        const std::string opened = PathOfOpened(directory);
        mode &= ~mode_t{S_IRWXU};
        for (const auto& [right, bit] :
             {std::pair{R_OK, mode_t{S_IRUSR}}, {W_OK, S_IWUSR}, {X_OK, S_IXUSR}}) {
            if (access(opened.c_str(), right) == 0)
                mode |= bit;
        }
        return mode;
    }

    Failure StageFile(const Entry& entry, const Descriptor& directory, const std::string& path,
                      const struct stat& found) const {
        const std::string staged = StagedPath(entry.path);
        const Descriptor file(open(staged.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!file || fchmod(file.Number(), found.st_mode & 07777) != 0)
            return StagingFailed(path);
        // A user's setup has read them before.
        if (m_isRoot && entry.item == Item::QueueLimits) {
            if (Failure failure = StageLimits(directory, path, file.Number()))
                return failure;
        }
        return Note(staged, path);
    }

    Failure Note(const std::string& staged, const std::string& path) const {
        struct stat found = {};
        if (stat(staged.c_str(), &found) != 0)
            return StagingFailed(path);
        m_staged.copies.push_back(found.st_ino);
        return {};
    }

    const Descriptor& m_live;
    StagedMachine& m_staged;
    const std::string m_installDir;
    const bool m_isRoot = getuid() == 0;
};

// Why a copy does not show what a user's setup does with an entry; null if it does.
const char* ReasonAgainstCopy(const Entry& entry, const State& found) {
    const bool isDirectory = entry.kind == Kind::Directory;
    if (found.kind == State::Kind::Missing)
        return nullptr;
    if (found.kind == State::Kind::Link)
        return "is a symbolic link";
    if (isDirectory)
        return found.kind == State::Kind::Directory ? nullptr : "is not a directory";
    if (found.kind != State::Kind::File)
        return "is not a regular file";
    if (entry.later == Later::KeepsContent && found.mode == entry.userMode)
        return nullptr;
    if (found.owner != getuid())
        return "is owned by another user";
    return found.links > 1 ? "has more than one hard link" : nullptr;
}

}  // namespace

Failure CopyTree(const Descriptor& liveTree, StagedMachine& staged) {
    const unsigned others = getuid() == 0 ? AsUser : AsRoot;
    const Filling filling(liveTree, staged);
    for (const Entry& entry : Entries()) {
        if (!IsInTree(entry) || !Applies(entry, entry.conditions & ~others))
            continue;
        if (Failure failure = filling.StageEntry(entry))
            return failure;
    }
    return filling.StageEarlierRepository();
}

Failure FindUnstagedEntry(const Descriptor& liveTree, const QString& installDir,
                          unsigned conditions) {
    for (const Entry& entry : Entries()) {
        if (!IsInTree(entry) || !Applies(entry, conditions) || entry.kind == Kind::Link)
            continue;
        // Reports nothing about what cannot be read: the setup's own checks do.
        const std::optional<State> found =
            ReadStateAt(liveTree.Number(), entry.path, Reading::Nothing);
        const char* reason = found ? ReasonAgainstCopy(entry, *found) : nullptr;
        if (reason == nullptr)
            continue;
        return UserView::Impossible(
            QStringLiteral("\"%1\" %2")
                .arg(QString::fromStdString(PathOf(entry, installDir.toStdString())),
                     QLatin1String(reason)),
            QStringLiteral("Move it away, or run the setup without --dry-run and --if-needed."));
    }
    return {};
}
