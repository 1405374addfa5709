// Runs part of a test in a forked child with an identity and bind mounts of its own.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "harness/Process.h"

namespace hx_test {

struct World {
    // Unchanged: the identity of the test; cannot mount. Root: uid 0 of a new user and mount
    // namespace, which cannot change owners. User: uid 1000 of such a namespace, no capabilities.
    enum class Identity { Unchanged, Root, User };
    Identity identity = Identity::Unchanged;

    // (what, over): binds the file or directory `what` over the existing path `over`.
    std::vector<std::pair<std::string, std::string>> binds = {};

    // The content of stdin.
    std::string input = {};
};

// Returns whether this system allows the namespaces of Root and User.
bool NamespacesAvailable();

// Gives the calling process, a forked child, the identity and the mounts of `world`. Returns false
// with errno set on failure.
bool EnterWorld(const World& world);

// Runs `body` in a child and returns its output. When `body` returns, the status is 0, or 99 with
// GoogleTest's report on stdout after a failed expectation. The child calls exit(), so that leak
// checkers run.
ProcessResult RunInChild(const World& world, const std::function<void()>& body);

// Calls `body` and reports an exception as a failed expectation. An exception that leaves a forked
// child's body would continue the test program in the child.
void CallAndReport(const std::function<void()>& body);

}  // namespace hx_test

// Skips the test where namespaces are not available.
#define HX_REQUIRE_NAMESPACES()                                            \
    do {                                                                   \
        if (!hx_test::NamespacesAvailable())                               \
            GTEST_SKIP() << "user and mount namespaces are not available"; \
    } while (false)
