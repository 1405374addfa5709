// Leak checks of programs that the tests start.
#pragma once

#include <string>

// LSAN_OPTIONS for a program that is built with a leak checker, with the leaks that the file
// `suppressions` lists. The checker's fast unwinder fails in Qt and makes the symbolizer print
// errors.
inline std::string LeakOptions(const std::string& suppressions) {
    return "print_suppressions=0:fast_unwind_on_malloc=0:suppressions=" + suppressions;
}
