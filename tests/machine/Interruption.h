// Runs of a commit script that are killed on their way, and the state that they leave.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "setuprun/CInstallBase.h"

namespace hx_test {

struct TracedRun {
    bool killed = false;
    int status = -1;
    std::vector<std::string> commands;  // those that ended, as they stand in the script
};

// Writes the commit script of `run` and runs it under bash until it has done this many commands,
// those of its functions included. Then a SIGKILL ends its process group.
TracedRun RunUntil(CInstallBase& run, size_t commands);

// What a setup may change on a machine, by path: kind, mode, owner, and a file's content or a
// link's text.
using MachineState = std::map<std::string, std::string>;
MachineState LookAtMachine();

// The paths at which two states differ.
std::vector<std::string> Differences(const MachineState& one, const MachineState& other);

// Keeps the state that a machine is in, and brings it back.
void SaveMachine();
void RestoreMachine();

}  // namespace hx_test
