// cv_install as root in a throwaway root: for bodies of RunInThrowawayRoot.
#pragma once

#include <string>
#include <vector>

#include "harness/Process.h"

// Puts the built product to /opt/corvane26, and takes away what an earlier installation left.
// Called before the throwaway root is entered, it remembers where the product is.
void LayOutRootSetup();

// Runs cv_install there, with answers on stdin.
hx_test::ProcessResult RunRootSetup(const std::vector<std::string>& arguments,
                                    const std::string& input = {});

// The same with stdout and stderr in one.
hx_test::ProcessResult RunRootSetupMerged(const std::vector<std::string>& arguments);

// What a shell prints for `command`, without its last newline.
std::string Shell(const std::string& command);
