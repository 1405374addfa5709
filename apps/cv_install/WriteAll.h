// Writes to a descriptor.
#pragma once

#include <string_view>

// Writes the whole text. Returns 0, or the error number, which errno has, too. Async-signal-safe.
int WriteAll(int descriptor, std::string_view text);
