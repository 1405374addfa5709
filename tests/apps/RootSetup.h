// cv_install as root in a throwaway root: for bodies of RunInThrowawayRoot.
#pragma once

#include <string>
#include <vector>

#include "harness/Process.h"

// The last line of a failed setup's messages.
inline const std::string logOfRoot = "    Log: /var/log/corvane26_setup.log\n";

// Copies the built product to /opt/corvane26 and removes an earlier installation.
void LayOutRootSetup();

// Keeps a command from mounting anything. cv_install then changes the machine in place.
inline const std::string withoutMounts = "setpriv --bounding-set=-sys_admin ";

enum class RootMode { Staged, InPlace };

// Runs cv_install with answers on stdin.
hx_test::ProcessResult RunRootSetup(const std::vector<std::string>& arguments,
                                    const std::string& input = {},
                                    RootMode mode = RootMode::Staged);

// Returns the output of a shell command without its last newline.
std::string Shell(const std::string& command);
