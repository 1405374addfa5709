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

// Prints labels and values of the answers in use.
void PrintValues(const std::vector<std::pair<QString, QString>>& values);

// Prints the values in use, then one line for each change, in groups and with old and new value,
// then their number. With --verbose, also what the setup keeps.
void PrintReport(const StagedMachine& staged, const Differences& differences);
