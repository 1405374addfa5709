// A root where /bin and /usr/bin, /sbin and /usr/sbin are apart, with recording stand-ins for
// tools.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "harness/Process.h"

namespace hx_test {

enum class StandIn {
    Recording,   // records its path and its arguments, one a line, and ends with status 0
    Failing,     // records, says something on both streams and ends with status 3
    Slow,        // records, then waits until the file /go is there, and ends with status 5
    Unrunnable,  // exists, and may not be executed
};

// The tools of a root by their absolute path.
using Tools = std::map<std::string, StandIn>;

// Runs `body` in a child as root of that root, which nothing outside of the child sees.
ProcessResult RunInSplitRoot(const Tools& tools, const std::function<void()>& body);

// For `body`: what the tools recorded so far, line by line.
std::vector<std::string> Recorded();

}  // namespace hx_test
