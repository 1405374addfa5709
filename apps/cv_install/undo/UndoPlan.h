// What an undo changes: the differences between the live machine and the state before a setup.
#pragma once

#include <QStringList>
#include <set>
#include <string>

#include "Problem.h"
#include "installation/StagedMachine.h"
#include "installation/TreeOwners.h"
#include "staging/Recorder.h"
#include "undo/SavedSetup.h"

// The purpose of restoring a state. A removal keeps settings and accounts that setups created, and
// a purge deletes them, settings also if they were edited. Before a setup after an unfinished one,
// only paths are restored.
enum class UndoPurpose { Undo, ForcedUndo, Remove, Purge, FurtherSetup };

inline bool IsRemoval(UndoPurpose purpose) {
    return purpose == UndoPurpose::Remove || purpose == UndoPurpose::Purge;
}

struct UndoPlan {
    Differences differences;
    QStringList kept;                 // paths and accounts that stay as they are, with the reason
    std::set<std::string> remaining;  // paths that are not restored
    bool isTreeKept = false;          // all of the install directory; it need not be accessible
};

// Compares with the live machine, whose install directory is `liveTree` or, if it does not exist,
// -1, with entries of `owners`. `content` has the content of files as it was. What others changed
// after the setup is kept, unless the undo is a forced one; jobs, what was not saved, and
// directories with other entries are always kept. A removal keeps what is below mount points in the
// install directory, and all of it with `plan.isTreeKept`, because other machines may use it.
// Otherwise `plan` is empty before. Fails if saved content is damaged.
Failure FindUndo(const SavedSetup& saved, const StagedMachine& content, int liveTree,
                 const TreeOwners& owners, const ServiceStates& services, UndoPurpose purpose,
                 UndoPlan& plan);

// Whether the install directory of root is a link or a mount point.
Failure FindTreeElsewhere(bool& isElsewhere);
