#include "merge/ChangedEntry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "merge/Acl.h"
#include "merge/PlacedEntry.h"

namespace {

bool SetMode(const Descriptor& entry, mode_t mode) {
    return chmod(("/proc/self/fd/" + std::to_string(entry.Number())).c_str(), mode) == 0;
}

bool SetOwnerAndMode(const Descriptor& entry, const State& wanted) {
    std::optional<State> now = ReadAttributes(entry);
    const bool isOwner = now && now->owner == wanted.owner && now->group == wanted.group;
    // Another owner clears set-id bits.
    if (!isOwner && fchownat(entry.Number(), "", wanted.owner, wanted.group, AT_EMPTY_PATH) != 0)
        return false;
    now = ReadAttributes(entry);
    return now && (now->mode == wanted.mode || SetMode(entry, wanted.mode));
}

const char* WhyUnchangeable(const PathDifference& difference, const State& now, bool isMountPoint,
                            const std::string& installDir, const TreeOwners& owners) {
    if (now.kind != difference.after.kind)
        return "is not what it was when the setup was planned";
    if (now.kind != State::Kind::Directory && now.links > 1)
        return "has more than one hard link";
    const bool isRow =
        difference.entry != nullptr && difference.path == PathOf(*difference.entry, installDir);
    switch (CheckTakeover(isRow ? difference.entry : nullptr, now, isMountPoint, owners)) {
        case Takeover::NotRoots:
            return "is not owned by root";
        case Takeover::OtherOwner:
            return "belongs to another user";
        case Takeover::Private:
            return "is not readable for all users";
        case Takeover::MountPoint:
            return "is a mount point";
        default:
            return nullptr;
    }
}

Failure SetRecorded(LiveEntry entry, const State& before, const State& wanted, State& changed,
                    Undo& undo) {
    const bool isChanged = SetOwnerAndMode(entry.descriptor, wanted);
    const int error = errno;
    changed = ReadAttributes(entry.descriptor).value_or(State());
    const auto kept = std::make_shared<LiveEntry>(std::move(entry));
    undo.Add([kept, before] {
        const bool isRestored = SetOwnerAndMode(kept->descriptor, before);
        if (!isRestored)
            WarnNotRestored(kept->path, errno);
        return isRestored;
    });
    if (!isChanged)
        return FailedInMerge(kept->path, error);
    return {};
}

}  // namespace

Failure ChangeEntry(const PathDifference& difference, LiveEntry entry,
                    const std::string& installDir, const TreeOwners& owners, State& changed,
                    Undo& undo) {
    const std::optional<State> now = ReadAttributes(entry.descriptor);
    if (!now)
        return FailedInMerge(entry.path, errno);
    if (const char* reason =
            WhyUnchangeable(difference, *now, entry.isMountPoint, installDir, owners))
        return RefusedInMerge(entry.path, reason);
    State wanted = difference.after;
    // Like chown, clears the set-id bits of a file that gets another owner.
    if (wanted.kind == State::Kind::File)
        wanted.mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID);
    return SetRecorded(std::move(entry), *now, wanted, changed, undo);
}

Failure RestoreAccess(const PathDifference& difference, LiveEntry entry, State& changed,
                      Undo& undo) {
    const std::optional<State> now = ReadAttributes(entry.descriptor);
    if (!now)
        return FailedInMerge(entry.path, errno);
    if (now->kind != difference.after.kind)
        return RefusedInMerge(entry.path, "is not what it was when the setup was planned");
    if (now->owner != difference.after.owner &&
        !LimitAcl(entry.descriptor.Number(), difference.after.owner))
        return FailedInMerge(entry.path, errno);
    return SetRecorded(std::move(entry), *now, difference.after, changed, undo);
}

Failure ChangeMode(LiveEntry entry, mode_t mode, State& changed, Undo& undo) {
    const std::optional<State> now = ReadAttributes(entry.descriptor);
    if (!now)
        return FailedInMerge(entry.path, errno);
    State wanted = *now;
    wanted.mode = mode;
    return SetRecorded(std::move(entry), *now, wanted, changed, undo);
}
