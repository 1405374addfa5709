// Runs programs for tests and keeps what they said.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace hx_test {

struct ProcessResult {
    int status = -1;  // exit status; 128 plus the signal when a signal ended it
    std::string out;
    std::string err;
};

struct ProcessOptions {
    std::string input = {};                       // handed to stdin, then closed
    std::string workingDirectory = {};            // empty: the test's own
    std::map<std::string, std::string> env = {};  // set on top of the test's own environment
    std::vector<std::string> unset = {};          // taken out of the environment
};

// Runs `command` (searched in PATH when it holds no slash) to its end.
ProcessResult Run(const std::vector<std::string>& command, const ProcessOptions& options = {});

}  // namespace hx_test
