// Changes the owner or mode of live entries that stay in place, through descriptors.
#pragma once

#include "installation/Difference.h"
#include "merge/MergePaths.h"
#include "merge/Undo.h"

// A live entry, opened with O_PATH.
struct LiveEntry {
    Descriptor descriptor;
    std::string path;
    bool isMountPoint = false;
};

// Gives the entry the owner and mode of the difference. Refuses it unless it is a directory, or a
// file or link with one hard link, of root or the service account, that all users can read already.
// A directory that the installation table gives to root must be root's. Sets `changed` to the
// result.
Failure ChangeEntry(const PathDifference& difference, LiveEntry entry,
                    const std::string& installDir, const TreeOwners& owners, State& changed,
                    Undo& undo);

// The same without further checks, for a repair. Another owner's access control list is limited
// first.
Failure RestoreAccess(const PathDifference& difference, LiveEntry entry, State& changed,
                      Undo& undo);

// Sets the mode of an entry without further checks.
Failure ChangeMode(LiveEntry entry, mode_t mode, State& changed, Undo& undo);
