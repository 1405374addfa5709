// Copies of the rows of the install tree in staging.
#pragma once

#include "Problem.h"
#include "installation/StagedMachine.h"

// Fills `viewTree` with what the library and the script look at in the install directory:
// QueueLimits, and empty files and directories for what exists. Refuses entries that cannot be set
// up. A user owns the copies, whatever the owner of the original is. Notes them in `staged.copies`.
Failure CopyTree(const Descriptor& liveTree, StagedMachine& staged);

// A regular user's dry run. Finds an entry of a setup that meets `conditions` whose change it
// cannot show, because the setup would write through it to something else, or may be refused.
Failure FindUnstagedEntry(const Descriptor& liveTree, const QString& installDir,
                          unsigned conditions);
