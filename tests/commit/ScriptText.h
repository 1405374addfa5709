// Commit scripts as text: written for a run with known fields, and expected.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "harness/Child.h"
#include "setuprun/CInstallBase.h"

namespace hx_test {

const World Root{.identity = World::Identity::Root};

// Expects that a child ended with status 0 and this text on stderr.
void ExpectSuccess(const ProcessResult& result, const std::string& err = "");

// Mounts a private /tmp in a child with Identity::Root.
void UsePrivateTmp(const char* options = "mode=1777");

using Change = std::function<void(CInstallBase&)>;

// Return a run with a different value in each field that the script reads. In the run as root, ada
// remains a member, bob and zoe leave, carol and dora join. The runs are never destroyed.
CInstallBase& NewRootRun();
CInstallBase& NewUserRun();

// Returns the script of the run that `make` returns, after `change`, on a system with this
// os-release file.
std::string ScriptOf(CInstallBase& (*make)(), const Change& change,
                     const std::string& release = "ID=debian\n");

// Replaces a text that occurs `count` times.
struct Edit {
    std::string from;
    std::string to;
    int count = 1;
};
using Edits = std::vector<Edit>;

std::string Edited(std::string text, const Edits& edits);

// Returns the expected script of NewRootRun.
std::string ExpectedRootScript();

// Returns the part of ExpectedRootScript from `first` up to the following `end`.
std::string Section(const std::string& first, const std::string& end);

// Edits that remove sections from ExpectedRootScript.
Edit NoMembers();
Edit NoWebPages();

// Return the edits that turn ExpectedRootScript into the one for a compute node without changes of
// members, and into the one of NewUserRun.
Edits ComputeNodeEdits();
Edits UserEdits();

// Compares texts. A failure shows the first difference.
testing::AssertionResult IsText(const std::string& text, const std::string& expected);

}  // namespace hx_test
