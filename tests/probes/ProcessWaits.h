// Records how long QProcess::waitForFinished is allowed to wait, and shortens long waits.
#pragma once

#include <vector>

namespace hx_test {

// The time limits of all calls in this process so far, in milliseconds; -1 is no limit. A limit of
// more than 10 seconds is recorded, but the call returns after 1 second.
std::vector<int>& ProcessWaits();

}  // namespace hx_test
