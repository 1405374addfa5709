// The memory that the functions under test ask for: counted, refused on demand, and looked at when
// it is given back. Only for programs that are linked with --wrap for the four calls.
#pragma once

#include <cstddef>

namespace hx_test {

class CountingMemory {
public:
    static constexpr int Never = -1;

    // From now on; the call with the number `failing` gets no memory.
    static void Watch(int failing = Never);
    static void Stop();

    // Of the time since Watch().
    static int Calls();
    // Blocks that were given back with something else than zeros in them.
    static int Unclean();

    // Blocks that were ever got under watch and are still there.
    static size_t Living();
};

}  // namespace hx_test
