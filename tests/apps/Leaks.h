// Leak checks of programs that the tests start.
#pragma once

#include <string>

// LSAN_OPTIONS for a program that shall look for leaks, where it is built with a leak checker, but
// for those that the file `suppressions` names. Not with the checker's fast way through the stack,
// which loses itself in Qt and has the symbolizer complain on stderr.
inline std::string LeakOptions(const std::string& suppressions) {
    return "print_suppressions=0:fast_unwind_on_malloc=0:suppressions=" + suppressions;
}
