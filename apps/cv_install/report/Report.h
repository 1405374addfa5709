// What a setup changes, for people and for programs.
#pragma once

#include <cstdio>
#include <string>

#include "Problem.h"
#include "installation/Difference.h"
#include "installation/StagedMachine.h"

// Compares the staged tree and the upper layers of the overlays with the live machine. `liveTree`
// is the live install directory, or -1 when it does not exist. Adds to `paths`; entries whose
// content, mode and owner end as they were are not listed.
Failure FindPathDifferences(const StagedMachine& staged, int liveTree, Differences& differences);

// Prints the values in use and the changes, grouped, on one screen for an ordinary machine, with
// old and new value where something differs.
void PrintReport(const StagedMachine& staged, const Differences& differences);

// Writes the changes as JSON: an object whose "changes" are objects with "path" or "name", "kind",
// "change", "before" and "after".
Failure WriteJson(const std::string& path, const Differences& differences);
