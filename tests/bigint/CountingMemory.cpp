#include "bigint/CountingMemory.h"

#include <algorithm>
#include <map>

extern "C" {
// The linker's names for the calls and for the functions of the C library.
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);
void __wrap_free(void* block);
}

namespace hx_test {

namespace {

bool g_watching = false;
int g_failing = CountingMemory::never;
int g_calls = 0;
int g_reallocations = 0;
int g_unclean = 0;

// The blocks that were allocated under watch, with their sizes.
std::map<void*, size_t>& Blocks() {
    static std::map<void*, size_t> blocks;
    return blocks;
}

bool Refused() {
    return g_watching && g_calls++ == g_failing;
}

void* Allocated(void* block, size_t size) {
    if (g_watching && block != nullptr)
        Blocks()[block] = size;
    return block;
}

void Freed(void* block) {
    const auto found = Blocks().find(block);
    if (found == Blocks().end())
        return;
    const auto* bytes = static_cast<const unsigned char*>(block);
    if (!std::all_of(bytes, bytes + found->second, [](unsigned char b) { return b == 0; }))
        ++g_unclean;
    Blocks().erase(found);
}

}  // namespace

void CountingMemory::Watch(int failing) {
    g_failing = failing;
    g_calls = 0;
    g_reallocations = 0;
    g_unclean = 0;
    g_watching = true;
}

void CountingMemory::Stop() {
    g_watching = false;
}

int CountingMemory::Calls() {
    return g_calls;
}

int CountingMemory::Reallocations() {
    return g_reallocations;
}

int CountingMemory::Unclean() {
    return g_unclean;
}

size_t CountingMemory::Living() {
    return Blocks().size();
}

size_t CountingMemory::SizeOf(void* block) {
    const auto found = Blocks().find(block);
    return found == Blocks().end() ? 0 : found->second;
}

}  // namespace hx_test

using namespace hx_test;

void* __wrap_malloc(size_t size) {
    return Refused() ? nullptr : Allocated(__real_malloc(size), size);
}

void* __wrap_calloc(size_t count, size_t size) {
    return Refused() ? nullptr : Allocated(__real_calloc(count, size), count * size);
}

void* __wrap_realloc(void* block, size_t size) {
    ++g_reallocations;
    if (Refused())
        return nullptr;
    void* const moved = __real_realloc(block, size);
    if (moved != nullptr)
        Blocks().erase(block);
    return Allocated(moved, size);
}

void __wrap_free(void* block) {
    Freed(block);
    __real_free(block);
}
