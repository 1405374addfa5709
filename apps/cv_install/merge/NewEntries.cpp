#include "merge/NewEntries.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "WriteAll.h"
#include "merge/Acl.h"
#include "merge/MergePaths.h"

namespace {

bool CopyContent(int from, int to) {
    std::array<char, 65536> block = {};
    for (;;) {
        const ssize_t length = read(from, block.data(), block.size());
        if (length <= 0)
            return length == 0;
        if (WriteAll(to, {block.data(), static_cast<size_t>(length)}) != 0)
            return false;
    }
}

bool SetAccess(int opened, const State& state) {
    return LimitAcl(opened, state.owner) && fchown(opened, state.owner, state.group) == 0 &&
           fchmod(opened, state.mode) == 0;
}

// Users append their jobs to QueueEntries. Its content is never copied.
bool IsCreatedEmpty(const PathDifference& difference) {
    return difference.entry != nullptr && difference.entry->item == Item::QueueEntries;
}

// Members of the service group choose what is in the install tree, so no file there is run with
// the rights of its owner.
State AccessOf(const PathDifference& difference) {
    State access = difference.after;
    if (difference.entry != nullptr && IsInTree(*difference.entry))
        access.mode &= S_IRWXU | S_IRWXG | S_IRWXO;
    return access;
}

bool CreateFile(const StagedEntry& entry, int directory, const std::string& name) {
    const Descriptor file(openat(directory, name.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        return false;
    if (!IsCreatedEmpty(*entry.difference)) {
        const Descriptor parent = OpenDirectory(entry.base, ParentOf(entry.path));
        if (!parent)
            return false;
        const Descriptor staged = OpenRegularFile(parent.Number(), BaseNameOf(entry.path));
        if (!staged || !CopyContent(staged.Number(), file.Number()))
            return false;
    }
    return SetAccess(file.Number(), AccessOf(*entry.difference)) && fsync(file.Number()) == 0;
}

bool CreateDirectory(const State& state, int directory, const std::string& name) {
    if (mkdirat(directory, name.c_str(), 0700) != 0)
        return false;
    const Descriptor opened(
        openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return opened && SetAccess(opened.Number(), state);
}

bool CreateLink(const State& state, int directory, const std::string& name) {
    return symlinkat(state.target.c_str(), directory, name.c_str()) == 0 &&
           fchownat(directory, name.c_str(), state.owner, state.group, AT_SYMLINK_NOFOLLOW) == 0;
}

bool CreateEntry(const StagedEntry& entry, int directory, const std::string& name) {
    const State& state = entry.difference->after;
    switch (state.kind) {
        case State::Kind::File:
            return CreateFile(entry, directory, name);
        case State::Kind::Directory:
            return CreateDirectory(state, directory, name);
        case State::Kind::Link:
            return CreateLink(state, directory, name);
        default:
            errno = EINVAL;
            return false;
    }
}

}  // namespace

Failure CreateEntries(std::span<const StagedEntry> entries, int directory, const std::string& name,
                      std::vector<NewEntry>& created) {
    const std::string& top = entries.front().difference->path;
    for (const StagedEntry& entry : entries) {
        const std::string& path = entry.difference->path;
        const std::string inner = name + path.substr(top.size());
        const Descriptor parent = OpenDirectory(directory, ParentOf(inner));
        if (!parent || !CreateEntry(entry, parent.Number(), BaseNameOf(inner)))
            return FailedInMerge(path, errno);
        const Descriptor opened = OpenEntry(parent.Number(), BaseNameOf(inner));
        const std::optional<State> state = opened ? ReadAttributes(opened) : std::optional<State>();
        if (!state)
            return FailedInMerge(path, errno);
        created.push_back({path, *state});
    }
    return {};
}
