// Ends one process of a setup at a chosen system call.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "apps/SetupMachine.h"

namespace hx_test {

// The setup, the process in which it is staged, the commit script, and what unpacks web pages.
enum class SetupProcess { Parent, Child, Script, Unpacking };
constexpr size_t setupProcesses = 4;

// Calls that can change the machine or another process, counted from the start of the process.
using CallCounts = std::array<size_t, setupProcesses>;

struct Strike {
    SetupProcess process = SetupProcess::Parent;
    size_t call = 0;  // the signal comes before it; 0: never
    int signal = 0;
    std::function<void()> action = {};  // called instead of a signal
};

struct TracedResult {
    int status = -1;  // exit status, or 128 plus a signal number
    std::string output;
    std::string struckCall;  // "PROCESS NUMBER NAME"; empty if it was not reached
    CallCounts calls = {};
    size_t callsBeforeMerge = 0;  // of Parent
};

// Runs the command until it and all its descendants have ended.
TracedResult RunTraced(const std::vector<std::string>& command, const Strike& strike = {});

// Runs a setup with nothing that disturbs it on a machine of its own.
TracedResult TraceUndisturbed(const std::function<void()>& prepare,
                              const std::vector<std::string>& command);

// Calls `strike` with the numbers of every `distance`-th call until it returns an empty text, which
// means that the call was not reached. Returns how often one was.
size_t StrikeEachCall(size_t distance, const std::function<std::string(size_t call)>& strike);

}  // namespace hx_test
