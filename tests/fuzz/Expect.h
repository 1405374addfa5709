// Conditions for all inputs. A failure aborts, which libFuzzer reports as a crash with the stack,
// even if stderr is closed.
#pragma once

#include <cstdio>
#include <cstdlib>

#define HX_EXPECT(condition)                                                         \
    do {                                                                             \
        if (!(condition)) {                                                          \
            std::fprintf(stderr, "%s:%d: not %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                            \
        }                                                                            \
    } while (false)
