// Physical memory, from the pages of the system or else from /proc/meminfo.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>

#include "probes/FakeMachine.h"
#include "probes/cpu_memory.h"

namespace {

// Expects procRAM to return `megabytes` and to print nothing.
void ExpectMemory(const FakeMachine& machine, int megabytes) {
    const auto result = machine.Run([] { std::printf("%d", procRAM()); });
    EXPECT_EQ(result.out, std::to_string(megabytes));
    EXPECT_EQ(result.err, "");
}

TEST(Memory, IsProductOfPagesAndPageSize) {
    HX_REQUIRE_NAMESPACES();
    const struct {
        long long pages;
        long long pageSize;
        int megabytes;
    } cases[] = {{4194304, 4096, 16384},
                 {1048576, 65536, 65536},
                 {511, 4096, 1},
                 {512, 4096, 2},
                 {255, 4096, 0},
                 {4294967296, 4096, 16777216},
                 // With a missing value, the file decides.
                 {0, 4096, 7},
                 {-1, 4096, 7},
                 {1000, 0, 7},
                 {1000, -1, 7},
                 {-1, -1048576, 7}};
    for (const auto& [pages, pageSize, megabytes] : cases) {
        SCOPED_TRACE(std::to_string(pages) + " pages of " + std::to_string(pageSize));
        FakeMachine machine;
        machine.MemInfo("MemTotal: 7168 kB\n");
        machine.Sysconf(_SC_PHYS_PAGES, pages).Sysconf(_SC_PAGESIZE, pageSize);
        ExpectMemory(machine, megabytes);
    }
}

TEST(Memory, ReadsMemTotalFromFile) {
    HX_REQUIRE_NAMESPACES();
    const std::pair<const char*, int> cases[] = {
        {"MemTotal: 16384000 kB\n", 16000},
        {"MemTotal:        2047 kB\n", 1},
        {"MemTotal:1 kB\nMemTotal: 2048 kB\n", 2},
        {"\nSwapTotal: 1 kB\n\n  MemTotal:\t4096 kB\nMemTotal: 9999999 kB", 4},
        {"MemFree: 1 kB\nMemTotal: 3072", 3},
        // Other words.
        {"MemTotal : 2048 kB\n", -1},
        {"MemTotals: 2048 kB\n", -1},
        {"memtotal: 2048 kB\n", -1},
        {"HighMemTotal: 2048 kB\n", -1},
        {"MemFree: 2048 kB\n", -1},
        {"", -1},
        // No number.
        {"MemTotal:\nMemTotal: 2048 kB\n", -1},
        {"MemTotal: much kB\n", -1},
        {"MemTotal:", -1}};
    for (const auto& [memInfo, megabytes] : cases) {
        SCOPED_TRACE(memInfo);
        FakeMachine machine;
        machine.MemInfo(memInfo).Sysconf(_SC_PHYS_PAGES, -1);
        ExpectMemory(machine, megabytes);
    }
}

}  // namespace
