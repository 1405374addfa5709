// Runs a piece of a test as real root in a copy of the running system that can be thrown away.
#pragma once

#include <functional>
#include <string>

#include "harness/Process.h"

namespace hx_test {

// Runs `body` in a forked child that is chrooted into a copy-on-write view of this system's root
// file system, with mount and process namespaces of its own. In it users, /usr/bin and /var can be
// changed for real. Everything, processes that still run included, is gone when the call returns
// and also when the test itself is killed. Other file systems than the root's are not seen, but for
// /dev and a /proc of its own. Results as with RunInChild: status 0, or 99 with gtest's report on
// stdout when an expectation in the body failed.
ProcessResult RunInThrowawayRoot(const std::function<void()>& body);

// Why there are no throwaway roots here, for this process or for one under sudo; empty when there
// are.
std::string NoThrowawayRootReason();

// For a test run by another user than root: runs it again through sudo and reports what it said.
// False when the process is root already and the test is to go on.
bool RanThroughSudo();

}  // namespace hx_test

// Stands first in a test. Skips it where this system gives no throwaway root.
#define HX_REQUIRE_THROWAWAY_ROOT()                                    \
    do {                                                               \
        const std::string hxReason = hx_test::NoThrowawayRootReason(); \
        if (!hxReason.empty())                                         \
            GTEST_SKIP() << hxReason;                                  \
        if (hx_test::RanThroughSudo())                                 \
            return;                                                    \
    } while (false)

// Runs the body of a scenario and reports the expectations that failed in it.
#define HX_EXPECT_SCENARIO(...)                                                           \
    do {                                                                                  \
        const hx_test::ProcessResult hxResult = hx_test::RunInThrowawayRoot(__VA_ARGS__); \
        EXPECT_EQ(hxResult.status, 0) << hxResult.out << hxResult.err;                    \
    } while (false)
