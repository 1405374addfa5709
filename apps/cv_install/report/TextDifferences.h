// What a setup changes in files, for people who decide about it.
#pragma once

#include <chrono>

#include "installation/Difference.h"
#include "installation/StagedMachine.h"

// Prints a unified diff of each text file of at most 1 MB whose content changes, and size and
// checksum of any other file. In a setup as root, a file that other users cannot read is only
// named, as is one that cannot be read, is larger than 64 MB, or changed since `differences` were
// found. `liveTree` is the live install directory, or -1 when it does not exist. `longest` is the
// time for each file.
void PrintTextDifferences(const StagedMachine& staged, int liveTree, const Differences& differences,
                          std::chrono::seconds longest = std::chrono::seconds(10));
