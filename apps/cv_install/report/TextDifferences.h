// What a setup changes in files, for people who decide about it.
#pragma once

#include <chrono>

#include "installation/Difference.h"
#include "installation/StagedMachine.h"

// Prints a unified diff of each text file whose content changes, and size and checksum of any other
// file. A file that other users cannot read, that is larger than 64 MB, or that changed since
// `differences` were found is only named, with the reason. `liveTree` is the live install
// directory, or -1 when it does not exist. `longest` is the time for each file.
void PrintTextDifferences(const StagedMachine& staged, int liveTree, const Differences& differences,
                          std::chrono::seconds longest = std::chrono::seconds(10));
