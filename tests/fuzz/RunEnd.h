// Ends of the process inside of what is fuzzed.
#pragma once

#include <functional>

namespace hx_fuzz {

// Calls `body` and returns the status with which it calls exit, or -1 when it returns.
int StatusOf(const std::function<void()>& body);

}  // namespace hx_fuzz
