// Runs parts of a test as real root in a disposable copy of the running system.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "harness/Process.h"

namespace hx_test {

// Runs `body` in a forked child that is chrooted into a copy-on-write view of this system's root
// file system, with its own mount and process namespaces. The body can change users, /usr/bin, and
// /var for real. The call discards all changes and ends all processes, also when the test itself is
// killed. Of other file systems only /dev and a new /proc are visible. Results as with RunInChild:
// status 0, or 99 with gtest's report on stdout when an expectation in the body failed.
ProcessResult RunInThrowawayRoot(const std::function<void()>& body);

// Runs the body in a throwaway root and reports its failed expectations.
void ExpectScenario(const std::function<void()>& body);

// The paths that differ from the root that the innermost RunInThrowawayRoot copied, sorted, as
// "PATH CHANGE KIND MODE UID:GID", with " -> TEXT" after those of a link. CHANGE is "created",
// "deleted" (with the values before), "replaced" (by another kind, or by a new directory), or a
// list of "content", "rewritten" (the same content), "mode", and "owner". KIND is "file",
// "directory", "link", or "special". Call it in the body.
//
// Calls nest once, so that the body can prepare a machine and see what a setup changes:
//     HX_EXPECT_SCENARIO([] {
//         Prepare();
//         HX_EXPECT_SCENARIO([] { Setup(); EXPECT_EQ(ChangedPaths(), expected); });
//     });
// That requires a system whose root is not an overlay itself.
std::vector<std::string> ChangedPaths();

// Remembers the present changes: later calls of ChangedPaths in this process list only what changed
// again. Of what had changed before, CHANGE is "deleted" or still compares with the copied root.
void MarkChanges();

// All paths that were written to since the innermost RunInThrowawayRoot, sorted, also those that
// are as they were or no longer exist. Call it in the body.
std::vector<std::string> TouchedPaths();

// Where the body finds the root that RunInThrowawayRoot copied, without its changes.
std::string CopiedRoot();

// Returns why this system has no throwaway roots, for this process or under sudo; empty if it has.
std::string NoThrowawayRootReason();

// Runs the current test again through sudo and reports its result. Returns false when the process
// is root already, so that the test continues.
bool RanThroughSudo();

}  // namespace hx_test

// The first statement of a test. Skips it where this system has no throwaway root.
#define HX_REQUIRE_THROWAWAY_ROOT()                                    \
    do {                                                               \
        const std::string hxReason = hx_test::NoThrowawayRootReason(); \
        if (!hxReason.empty())                                         \
            GTEST_SKIP() << hxReason;                                  \
        if (hx_test::RanThroughSudo())                                 \
            return;                                                    \
    } while (false)

#define HX_EXPECT_SCENARIO(...) hx_test::ExpectScenario(__VA_ARGS__)
