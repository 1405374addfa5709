// Which entries of the live tree a setup takes as its own.
#pragma once

#include "installation/Installation.h"
#include "installation/State.h"

// Whose entries a setup changes.
struct TreeOwners {
    uid_t account;          // the service account
    gid_t group;            // the service group
    uid_t recordedAccount;  // that of the previous setup, or -1
    // The tree is the private copy of `account`, a regular user, who changes it. Everything in it
    // counts as that user's: it is not protected from other users who can write there.
    bool isPrivateCopy = false;

    bool Include(uid_t user) const {
        return user == 0 || user == account || user == recordedAccount;
    }
};

// What keeps a setup from changing the owner or mode of an entry. Another user may have moved a
// private one there, or one of root's.
enum class Takeover { Allowed, NotRoots, OtherOwner, Private, MountPoint };

// `row` is the entry's row, or null below a row. `state` is a file's, directory's or
// link's.
Takeover CheckTakeover(const Entry* row, const State& state, bool isMountPoint,
                       const TreeOwners& owners);

// True for a QueueEntries that stays in place: certainly that of an earlier setup, and public. Of a
// private file that was moved there, the mode would give other users access.
bool IsQueueFileOfSetup(const State& state, const TreeOwners& owners);
