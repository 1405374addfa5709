// Leak checks of programs that the tests start.
#pragma once

#include <cstdlib>
#include <string>

// While the object exists, the setups that the test starts are checked for leaks.
class CheckedLeaks {
public:
    CheckedLeaks() { ++count; }
    ~CheckedLeaks() { --count; }
    CheckedLeaks(const CheckedLeaks&) = delete;
    CheckedLeaks& operator=(const CheckedLeaks&) = delete;

    // scripts/soak checks all setups. The check takes as long as a setup, because the symbolizer
    // has to find the intended leaks.
    static bool Wanted() { return count > 0 || std::getenv("HX_TEST_LEAKS") != nullptr; }

private:
    static inline int count = 0;
};

// LSAN_OPTIONS for a program that is built with a leak checker, with the leaks that the file
// `suppressions` lists. The checker's fast unwinder fails in Qt and makes the symbolizer print
// errors.
inline std::string LeakOptions(const std::string& suppressions) {
    if (!CheckedLeaks::Wanted())
        return "detect_leaks=0";
    return "print_suppressions=0:fast_unwind_on_malloc=0:suppressions=" + suppressions;
}

// Empty without a leak checker.
extern "C" __attribute__((weak)) void __lsan_disable();
extern "C" __attribute__((weak)) void __lsan_enable();

// Runs of the library in the process of the tests leave its records, which live until the process
// ends. While the object exists, they are no leaks of the children that later tests fork.
class IgnoredLeaks {
public:
    IgnoredLeaks() {
        if (__lsan_disable != nullptr)
            __lsan_disable();
    }
    ~IgnoredLeaks() {
        if (__lsan_enable != nullptr)
            __lsan_enable();
    }
    IgnoredLeaks(const IgnoredLeaks&) = delete;
    IgnoredLeaks& operator=(const IgnoredLeaks&) = delete;
};
