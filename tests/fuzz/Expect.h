// What must hold for every input. A failure ends the process, which libFuzzer reports as a crash
// with the stack; stderr itself may be closed by then.
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
