#include "undo/AccountUse.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <list>
#include <memory>
#include <optional>
#include <sstream>

#include "installation/DirectoryNames.h"
#include "installation/Mounts.h"
#include "installation/PathParts.h"
#include "merge/AccountNumber.h"

namespace {

using Clock = std::chrono::steady_clock;

// As in /proc/self/mountinfo. What is below a mount point of autofs is mounted when it is used.
constexpr const char* remoteTypes[] = {"9p",   "afs",    "autofs", "beegfs", "ceph", "cifs",
                                       "gpfs", "lustre", "nfs",    "nfs4",   "smb3", "smbfs"};

using Stream = std::unique_ptr<DIR, int (*)(DIR*)>;

Stream OpenStream(int parent, const char* name) {
    const int opened = openat(
        parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_NOATIME | O_CLOEXEC);
    DIR* stream = opened == -1 ? nullptr : fdopendir(opened);
    if (stream == nullptr && opened != -1)
        close(opened);
    return {stream, closedir};
}

bool IsDot(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// True if a line of /proc/PID/status, such as "Uid:\t0\t0\t0\t0", has the number.
bool HasNumber(const std::string& line, id_t number) {
    std::istringstream words(line.substr(line.find(':') + 1));
    for (id_t found = 0; words >> found;) {
        if (found == number)
            return true;
    }
    return false;
}

// Empty if it cannot be read. A process that ended meanwhile is not the account's.
std::optional<bool> IsProcessOf(const AccountDifference& account, const std::string& process) {
    const std::string directory = "/proc/" + process;
    std::ifstream status(directory + "/status");
    for (std::string line; std::getline(status, line);) {
        const bool isUsers = line.starts_with("Uid:");
        const bool isGroups = line.starts_with("Gid:") || line.starts_with("Groups:");
        if (account.isGroup ? isGroups && HasNumber(line, account.gid)
                            : isUsers && HasNumber(line, account.uid))
            return true;
    }
    const bool isRead = status.is_open() && !status.bad();
    return isRead || access(directory.c_str(), F_OK) != 0 ? std::optional(false) : std::nullopt;
}

void FindProcess(const AccountDifference& account, AccountUse& found) {
    constexpr const char* path = "/proc";
    const Descriptor directory(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    Names names;
    bool isPartial = !directory || !ReadNames(directory.Number(), names);
    for (const std::string& name : names) {
        id_t number = 0;
        if (!ParseNumber(name, number))
            continue;
        const std::optional<bool> isAccounts = IsProcessOf(account, name);
        if (isAccounts.value_or(false)) {
            found.use = QStringLiteral("process %1").arg(number);
            return;
        }
        isPartial = isPartial || !isAccounts;
    }
    if (isPartial)
        found.missed = QLatin1String(path);
}

void FindCrontab(const AccountDifference& account, AccountUse& found) {
    for (const char* directory : crontabDirectories) {
        const std::string path = directory + account.name;
        struct stat entry = {};
        if (account.isGroup)
            continue;
        if (lstat(path.c_str(), &entry) != 0) {
            if (errno != ENOENT && errno != ENOTDIR)
                found.missed = QLatin1String(directory);
        } else if (S_ISREG(entry.st_mode)) {
            found.use = QString::fromStdString(path);
            return;
        }
    }
}

class TreeSearch {
public:
    TreeSearch(const AccountDifference& account, Clock::time_point end)
        : m_account(account), m_end(end) {}

    // Below a directory that is open.
    void Search(const Stream& directory, const std::string& path) {
        while (m_use.isEmpty()) {
            errno = 0;
            const dirent* entry = readdir(directory.get());
            if (entry != nullptr && IsDot(entry->d_name))
                continue;
            if (entry == nullptr || Clock::now() > m_end) {
                m_isPartial = m_isPartial || entry != nullptr || errno != 0;
                return;
            }
            Check(dirfd(directory.get()), entry->d_name, path + '/' + entry->d_name);
        }
    }

    // Checks an entry of a directory, and what is below it.
    void Check(int directory, const char* name, const std::string& path) {
        constexpr size_t deepest = 200;
        struct statx found = {};
        constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
        if (statx(directory, name, flags, STATX_TYPE | STATX_UID | STATX_GID, &found) != 0) {
            m_isPartial = m_isPartial || errno != ENOENT;
            return;
        }
        if (m_depth > 0 && (found.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
            m_missedMount = true;
            return;
        }
        if (m_account.isGroup ? found.stx_gid == m_account.gid : found.stx_uid == m_account.uid) {
            m_use = QString::fromStdString(path);
            return;
        }
        if (!S_ISDIR(found.stx_mode))
            return;
        const Stream below =
            m_depth == deepest ? Stream(nullptr, closedir) : OpenStream(directory, name);
        m_isPartial = m_isPartial || m_depth == deepest || (below == nullptr && errno != ENOENT);
        ++m_depth;
        if (below)
            Search(below, path);
        --m_depth;
    }

    QString Use() const { return m_use; }
    bool IsPartial() const { return m_isPartial; }
    bool MissedMount() const { return m_missedMount; }

private:
    const AccountDifference& m_account;
    const Clock::time_point m_end;
    QString m_use;
    bool m_isPartial = false;
    bool m_missedMount = false;
    size_t m_depth = 0;
};

// Reads no file system: a server that is gone never answers.
bool IsRemote(const std::vector<Mount>& mounts, const std::string& path) {
    const Mount* found = nullptr;
    for (const Mount& mount : mounts) {
        const bool contains =
            mount.point == "/" || path == mount.point || IsBelow(path, mount.point);
        if (contains && (found == nullptr || mount.point.size() >= found->point.size()))
            found = &mount;
    }
    return found != nullptr && (found->IsFuse() || std::ranges::find(remoteTypes, found->type) !=
                                                       std::end(remoteTypes));
}

enum class Place { Local, Remote, Missing, Unreadable };

// Sets `path` to the path without links, as far as it is local.
Place FindPlace(std::string& path) {
    namespace fs = std::filesystem;
    constexpr int mostLinks = 40;
    const std::vector<Mount> mounts = ReadMounts();
    fs::path real = "/";
    std::list<fs::path> rest;
    const auto insert = [&](const fs::path& names) {
        const fs::path below = names.relative_path();
        rest.insert(rest.begin(), below.begin(), below.end());
    };
    insert(path);
    for (int links = 0; !rest.empty() && links < mostLinks;) {
        const fs::path next = (real / rest.front()).lexically_normal();
        rest.pop_front();
        if (IsRemote(mounts, next))
            return Place::Remote;
        std::error_code error;
        const fs::file_status status = fs::symlink_status(next, error);
        if (!fs::exists(status))
            return status.type() == fs::file_type::not_found ? Place::Missing : Place::Unreadable;
        if (!fs::is_symlink(status)) {
            real = next;
            continue;
        }
        const fs::path target = fs::read_symlink(next, error);
        if (error)
            return Place::Unreadable;
        if (target.is_absolute())
            real = "/";
        insert(target);
        ++links;
    }
    path = real;
    return rest.empty() ? Place::Local : Place::Missing;
}

void SearchDirectory(const AccountDifference& account, const std::string& path,
                     Clock::time_point end, AccountUse& found) {
    const QString shown = QString::fromStdString(path);
    std::string real = path;
    const Place place = FindPlace(real);
    if (place == Place::Remote) {
        found.notSearched.append(shown + QStringLiteral(" (not a local file system)"));
        if (path == sharedDirectory)
            found.missed = shown;
    }
    if (place == Place::Remote || place == Place::Missing)
        return;
    TreeSearch search(account, end);
    if (place == Place::Local)
        search.Check(AT_FDCWD, real.c_str(), real);
    found.use = search.Use();
    if (place == Place::Unreadable || search.IsPartial()) {
        found.notSearched.append(shown + QStringLiteral(" (only in part)"));
        found.missed = shown;
    } else {
        found.searched.append(shown);
    }
    if (search.MissedMount())
        found.notSearched.append(QStringLiteral("file systems that are mounted below ") + shown);
}

}  // namespace

AccountUse FindAccountUse(const AccountDifference& account,
                          const std::vector<std::string>& directories, std::chrono::seconds limit) {
    const Clock::time_point end = Clock::now() + limit;
    AccountUse found;
    FindProcess(account, found);
    if (found.use.isEmpty())
        FindCrontab(account, found);
    for (const std::string& directory : directories) {
        if (found.use.isEmpty())
            SearchDirectory(account, directory, end, found);
    }
    return found;
}
