// Watches the memory that the functions under test allocate: counts calls, refuses them on demand,
// and checks what is freed. For programs linked with --wrap for malloc, calloc, realloc and free.
#pragma once

#include <cstddef>

namespace hx_test {

class CountingMemory {
public:
    static constexpr int never = -1;

    // Starts watching; the allocation with the number `failing`, from 0, gets no memory.
    static void Watch(int failing = never);
    static void Stop();

    // Since Watch(): calls of all kinds, and of realloc.
    static int Calls();
    static int Reallocations();
    // Freed blocks that did not contain only zeros.
    static int Unclean();

    // Blocks that were allocated under watch and still exist.
    static size_t Living();
    // Bytes of such a block, 0 for any other.
    static size_t SizeOf(void* block);
};

}  // namespace hx_test
