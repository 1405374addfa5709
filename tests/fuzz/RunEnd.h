// Catches calls of exit() in fuzzed code.
#pragma once

#include <functional>

namespace hx_fuzz {

// Calls `body` and returns the status that it passes to exit(), or -1 if it returns.
int StatusOf(const std::function<void()>& body);

}  // namespace hx_fuzz
