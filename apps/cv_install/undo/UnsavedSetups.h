// What setups created that did not save the state before them.
#pragma once

#include "Problem.h"
#include "undo/SavedSetup.h"

// Finds what the manifest lists or, without one, what the installation table has, as one setup
// before which nothing was there. Without a manifest, what other versions use as well may be theirs
// and is not found; without files outside of the install directory, nothing is found, because other
// users can write there. `liveTree` is as for FindUndo. Fails with RecordUnusable if the manifest
// is damaged, and if something cannot be read.
Failure FindUnsavedSetups(const QString& installDir, int liveTree, SavedSetup& saved);
