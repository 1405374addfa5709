#include "installation/TreeOwners.h"

#include <sys/stat.h>

Takeover CheckTakeover(const Entry* row, const State& state, bool isMountPoint,
                       const TreeOwners& owners) {
    if (owners.isPrivateCopy)
        return Takeover::Allowed;
    if (row != nullptr && row->owner == Owner::Root && state.owner != 0)
        return Takeover::NotRoots;
    if (!owners.Include(state.owner))
        return Takeover::OtherOwner;
    const mode_t forAll = state.kind == State::Kind::Directory ? S_IROTH | S_IXOTH : S_IROTH;
    if (state.kind != State::Kind::Link && (state.mode & forAll) != forAll)
        return Takeover::Private;
    // Only root can mount something over the install directory.
    const bool isTop = row != nullptr && row->item == Item::InstallDirectory;
    return isMountPoint && !isTop ? Takeover::MountPoint : Takeover::Allowed;
}

bool IsQueueFileOfSetup(const State& state, const TreeOwners& owners) {
    const bool isPublic = owners.isPrivateCopy || (state.mode & S_IROTH) != 0;
    return state.kind == State::Kind::File && state.links == 1 && isPublic && state.owner != 0 &&
           owners.Include(state.owner);
}
