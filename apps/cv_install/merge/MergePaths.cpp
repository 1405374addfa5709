#include "merge/MergePaths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>

#include "installation/Installation.h"
#include "installation/Mounts.h"

namespace {

constexpr const char* notRootsAlone = "is not a directory that only root can write to";

// True when the installation table gives the directory to root.
bool MustBeRoots(const std::string& path) {
    const auto rows = Entries();
    return std::any_of(rows.begin(), rows.end(), [&](const Entry& entry) {
        return IsInTree(entry) && entry.kind == Kind::Directory && entry.owner == Owner::Root &&
               path == entry.path;
    });
}

bool IsOpenTo(const State& directory, gid_t group) {
    constexpr mode_t forAll = S_IROTH | S_IXOTH;
    constexpr mode_t forGroup = S_IRGRP | S_IXGRP;
    return (directory.mode & forAll) == forAll ||
           (directory.group == group && (directory.mode & forGroup) == forGroup);
}

const char* WhyRefused(const State& state, const std::string& path, const TreeOwners& owners) {
    if (owners.isPrivateCopy)
        return nullptr;
    if (MustBeRoots(path) && !IsRootsAlone(state))
        return notRootsAlone;
    if (!owners.Include(state.owner))
        return "belongs to another user";
    return IsOpenTo(state, owners.group) ? nullptr : "is not readable for all users";
}

Problem Unopened(const std::string& path, int error) {
    if (error == EREMOTE)
        return RefusedInMerge(path, "is on a FUSE file system");
    if (error == ENOENT || error == ENOTDIR || error == ELOOP)
        return RefusedInMerge(path, "is not a directory");
    return FailedInMerge(path, error);
}

}  // namespace

Problem RefusedInMerge(const std::string& path, const char* reason) {
    return {ExitStatus::TreeRefused,
            QStringLiteral("unsafe path: \"%1\" %2")
                .arg(QString::fromStdString(path), QLatin1String(reason)),
            QStringLiteral("Inspect it, correct it or move it away, then run the setup again.")};
}

Problem FailedInMerge(const std::string& path, int error) {
    // The setup's timer interrupts system calls that wait.
    const char* cause = error == EINTR ? "timed out" : std::strerror(error);
    const QString remedy =
        error == EMFILE
            ? QStringLiteral("Raise the hard limit of open files, then run the setup again.")
            : QStringLiteral(
                  "Make sure that its file system is writable and not full, then run "
                  "the setup again.");
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot place \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(cause)),
            remedy};
}

Failure OpenRootParent(const std::string& path, bool followsLast, RootPath& opened) {
    const std::optional<Unresolved> unresolved = ResolveRootPath(path, followsLast, opened);
    if (!unresolved)
        return {};
    switch (unresolved->reason) {
        case Unresolved::Reason::OthersCanWrite:
            return RefusedInMerge(path, "is below a directory that others than root can write to");
        case Unresolved::Reason::LinkOfOther:
            return RefusedInMerge(path, "is a symbolic link not owned by root");
        default:
            return Unopened(path, unresolved->error);
    }
}

Failure OpenUserParent(const std::string& path, RootPath& opened) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    if (error)
        return Unopened(path, error.value());
    opened.name = real.filename();
    opened.parent = Descriptor(open(real.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    return opened.parent ? Failure() : Unopened(path, errno);
}

Failure OpenTreeDirectory(int tree, const std::string& installDir, const std::string& path,
                          const TreeOwners& owners, Descriptor& directory) {
    directory = OpenEntry(tree, "", O_DIRECTORY);
    std::string opened;
    for (;;) {
        std::string shown = installDir;
        if (!opened.empty())
            shown.append("/").append(opened);
        const std::optional<State> state =
            directory ? ReadAttributes(directory) : std::optional<State>();
        if (!state)
            return Unopened(shown, errno);
        if (const char* reason = WhyRefused(*state, opened, owners))
            return RefusedInMerge(shown, reason);
        if (opened == path)
            return {};
        const size_t begin = opened.empty() ? 0 : opened.size() + 1;
        const std::string name = path.substr(begin, path.find('/', begin) - begin);
        opened = path.substr(0, begin + name.size());
        directory = OpenEntry(directory.Number(), name, O_DIRECTORY);
    }
}

Failure FindFuseBelow(const Descriptor& directory) {
    std::array<char, PATH_MAX> path = {};
    const std::string link = "/proc/self/fd/" + std::to_string(directory.Number());
    if (readlink(link.c_str(), path.data(), path.size() - 1) < 0)
        return FailedInMerge(link, errno);
    const std::string top = path.data();
    for (const Mount& mount : ReadMounts()) {
        if (mount.IsFuse() && (mount.point == top || mount.point.starts_with(top + '/')))
            return RefusedInMerge(mount.point, "is on a FUSE file system");
    }
    return {};
}
