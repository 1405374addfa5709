// Runs a piece of a test in a forked child, with the identity and the mounts that it asks for.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "harness/Process.h"

namespace hx_test {

struct World {
    // Without an identity the child keeps the test's own and cannot mount. As Root its uid is 0, as
    // User it is 1000 and has no capabilities. Both live in a user and a mount namespace of their
    // own; Root is root of that namespace only, which cannot change owners.
    enum class Identity { Unchanged, Root, User };
    Identity identity = Identity::Unchanged;

    // (what, over): the file or directory `what` is bound over the existing path `over`.
    std::vector<std::pair<std::string, std::string>> binds = {};

    // Handed to stdin, then closed.
    std::string input = {};
};

// True when this system lets us make the namespaces that Root and User need.
bool NamespacesAvailable();

// Takes the calling process into the world, but for its input; for a child that is already forked,
// such as the one behind a terminal. False, with errno set, when that is not to be had.
bool EnterWorld(const World& world);

// Runs `body` in the child and returns what it wrote. A body that returns ends with status 0, or
// with 99 and gtest's report on stdout when an expectation in it failed. The child ends with
// exit(), so that leak checkers look at it.
ProcessResult RunInChild(const World& world, const std::function<void()>& body);

// Calls `body` and reports an exception that leaves it as a failed expectation. A forked child must
// not let one through: the test program would go on in it.
void CallAndReport(const std::function<void()>& body);

}  // namespace hx_test

// Skips the test where the namespaces that it needs are not to be had.
#define HX_REQUIRE_NAMESPACES()                                     \
    do {                                                            \
        if (!hx_test::NamespacesAvailable())                        \
            GTEST_SKIP() << "user and mount namespaces are needed"; \
    } while (false)
