// What an undo changes: the differences between the live machine and the state before a setup.
#pragma once

#include <QStringList>

#include "Problem.h"
#include "installation/StagedMachine.h"
#include "staging/Recorder.h"
#include "undo/SavedSetup.h"

struct UndoPlan {
    Differences differences;
    QStringList kept;  // paths and accounts that stay as they are, with the reason
};

// Compares with the live machine, whose install directory is `liveTree` or, if it does not exist,
// -1. `content` has the content of files as it was. What others changed after the setup is kept,
// unless `forces` is set; jobs, what was not saved, and directories with other entries are always
// kept. Fails if saved content is damaged.
Failure FindUndo(const SavedSetup& saved, const StagedMachine& content, int liveTree,
                 const ServiceStates& services, bool forces, UndoPlan& plan);
