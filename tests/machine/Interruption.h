// Commit scripts that are killed before their end, and the state that they leave.
#pragma once

#include <map>
#include <string>
#include <vector>

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

// What a setup can change on a machine, by path: kind, mode, owner, and content or link text.
using MachineState = std::map<std::string, std::string>;
MachineState StateOfMachine();

// The paths at which two states differ.
std::vector<std::string> Differences(const MachineState& one, const MachineState& other);

// Save the state of the machine, and return to it.
void SaveMachine();
void RestoreMachine();

}  // namespace hx_test
