// Runs programs for tests and captures their output.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace hx_test {

struct ProcessResult {
    int status = -1;  // exit status, or 128 plus a signal number
    std::string out;
    std::string err;
};

struct ProcessOptions {
    std::string input = {};                       // content of stdin
    std::string workingDirectory = {};            // empty: that of the test
    std::map<std::string, std::string> env = {};  // added to the test's environment
    std::vector<std::string> unset = {};          // removed from the environment
};

// Runs `command` (searched in PATH if it contains no slash) until it ends.
ProcessResult Run(const std::vector<std::string>& command, const ProcessOptions& options = {});

}  // namespace hx_test
