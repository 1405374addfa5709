// Commit scripts that are killed before their end, and the state that they leave.
#pragma once

#include <string>
#include <vector>

#include "machine/Snapshot.h"
#include "setuprun/CInstallBase.h"

namespace hx_test {

struct TracedRun {
    bool killed = false;
    int status = -1;
    std::vector<std::string> commands;  // those that ended, as in the script
};

// Runs the commit script of `run` until this many commands have ended, including those of its
// functions. Then SIGKILL ends its process group.
TracedRun RunUntil(CInstallBase& run, size_t commands);

// What a setup can change on a machine.
Snapshot StateOfMachine();

// The paths at which two states differ.
std::vector<std::string> Differences(const Snapshot& one, const Snapshot& other);

// Save the state of the machine, and return to it.
void SaveMachine();
void RestoreMachine();

}  // namespace hx_test
