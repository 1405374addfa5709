// What a setup changes, for people and for programs.
#pragma once

#include <sys/types.h>

#include <string>

#include "Problem.h"
#include "installation/Difference.h"
#include "installation/StagedMachine.h"

// Compares the staged tree and the upper layers of the overlays with the live machine, and adds
// what differs to `paths`. `liveTree` is the live install directory, or -1 when it does not exist.
// `recordedAccount` is the service account of the previous setup, or -1: QueueEntries that belong
// to it stay in place. A path that the merge must not replace is a failure.
Failure FindPathDifferences(const StagedMachine& staged, int liveTree, uid_t recordedAccount,
                            Differences& differences);

// Prints the values in use and the changes, grouped, on one screen for an ordinary machine, with
// old and new value where something differs.
void PrintReport(const StagedMachine& staged, const Differences& differences);
