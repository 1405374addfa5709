// Commit scripts as text: those of a run whose every field is known, and the expected ones.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>

#include "harness/Child.h"
#include "setuprun/CInstallBase.h"

namespace hx_test {

const World Root{.identity = World::Identity::Root};

// That a child has ended without a failure, with this text on stderr.
void ExpectAllWell(const ProcessResult& result, const std::string& err = "");

// Gives this process a /tmp of its own, in a RunInChild with Identity::Root: what is written there
// is gone with the process.
void UsePrivateTmp(const char* options = "mode=1777");

constexpr const char* DebianRelease = "ID=debian\n";
constexpr const char* RpmRelease = "ID=fedora\n";
constexpr const char* OtherRelease = "ID=slackware\n";

// A setup run with another value in each field that the script reads, in a root run and in a user
// run. In the root run ada stays a member, bob and zoe leave, carol and dora join. Lives until the
// process ends.
CInstallBase& NewRootRun();
CInstallBase& NewUserRun();

// What WriteCommitScript writes for the run that `make` makes on a system with this release.
std::string ScriptOf(const std::function<CInstallBase&()>& make,
                     const std::string& release = DebianRelease);

// The same for a root run in which `change` has set fields.
std::string RootScript(const std::function<void(CInstallBase&)>& change,
                       const std::string& release = DebianRelease);

// The file of this name in the folder of expected files.
std::string Expected(const std::string& name);

// Whether the script is the expected one; a failure shows the lines around the first difference.
testing::AssertionResult IsText(const std::string& script, const std::string& expected);

// `text` with `from`, which stands in it exactly once, replaced.
std::string Replaced(const std::string& text, std::string_view from, std::string_view to);

}  // namespace hx_test
