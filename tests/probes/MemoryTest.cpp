// Physical memory, from the system's pages or else from /proc/meminfo.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "FakeMachine.h"
#include "probes/cpu_memory.h"

namespace {

class Memory : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
};

// stdout holds what procRAM wrote and then "=megabytes".
hx_test::ProcessResult Measure(const FakeMachine& machine) {
    return machine.Run([] {
        const int megabytes = procRAM();
        std::printf("=%d", megabytes);
    });
}

std::string OfPages(long long pages, long long pageSize) {
    FakeMachine machine;
    machine.MemInfo("MemTotal: 7168 kB\n");
    machine.Sysconf(_SC_PHYS_PAGES, pages).Sysconf(_SC_PAGESIZE, pageSize);
    return Measure(machine).out;
}

// The figure where sysconf does not tell and /proc/meminfo is this.
std::string OfFile(const std::string& memInfo) {
    FakeMachine machine;
    machine.MemInfo(memInfo).Sysconf(_SC_PHYS_PAGES, -1);
    const auto result = Measure(machine);
    EXPECT_EQ(result.err, "");
    return result.out;
}

TEST_F(Memory, IsTheProductOfPagesAndTheirSize) {
    EXPECT_EQ(OfPages(4194304, 4096), "=16384");
    EXPECT_EQ(OfPages(1048576, 65536), "=65536");
}

TEST_F(Memory, IsRoundedDown) {
    EXPECT_EQ(OfPages(511, 4096), "=1");
    EXPECT_EQ(OfPages(512, 4096), "=2");
    EXPECT_EQ(OfPages(255, 4096), "=0");
}

TEST_F(Memory, OfManyTerabytesFits) {
    EXPECT_EQ(OfPages(4294967296, 4096), "=16777216");
}

TEST_F(Memory, IsReadFromTheFileWhenEitherFigureIsMissing) {
    EXPECT_EQ(OfPages(0, 4096), "=7");
    EXPECT_EQ(OfPages(-1, 4096), "=7");
    EXPECT_EQ(OfPages(1000, 0), "=7");
    EXPECT_EQ(OfPages(1000, -1), "=7");
    EXPECT_EQ(OfPages(-1, -1048576), "=7");
}

TEST_F(Memory, OfTheFileIsGivenInMegabytesRoundedDown) {
    EXPECT_EQ(OfFile("MemTotal: 16384000 kB\n"), "=16000");
    EXPECT_EQ(OfFile("MemTotal:        2047 kB\n"), "=1");
    EXPECT_EQ(OfFile("MemTotal:1 kB\nMemTotal: 2048 kB\n"), "=2");
}

TEST_F(Memory, IsFoundOnAnyLineOfTheFile) {
    EXPECT_EQ(OfFile("\nSwapTotal: 1 kB\n\n  MemTotal:\t4096 kB\nMemTotal: 9999999 kB"), "=4");
    EXPECT_EQ(OfFile("MemFree: 1 kB\nMemTotal: 3072"), "=3");
}

TEST_F(Memory, TheFirstWordOfALineIsTheWholeWord) {
    EXPECT_EQ(OfFile("MemTotal : 2048 kB\n"), "=-1");
    EXPECT_EQ(OfFile("MemTotals: 2048 kB\n"), "=-1");
    EXPECT_EQ(OfFile("memtotal: 2048 kB\n"), "=-1");
    EXPECT_EQ(OfFile("HighMemTotal: 2048 kB\n"), "=-1");
}

TEST_F(Memory, OfAFileWithoutTheLineIsUnknown) {
    EXPECT_EQ(OfFile("MemFree: 2048 kB\n"), "=-1");
    EXPECT_EQ(OfFile(""), "=-1");
}

TEST_F(Memory, OfALineWithoutANumberIsUnknown) {
    EXPECT_EQ(OfFile("MemTotal:\nMemTotal: 2048 kB\n"), "=-1");
    EXPECT_EQ(OfFile("MemTotal: much kB\n"), "=-1");
    EXPECT_EQ(OfFile("MemTotal:"), "=-1");
}

TEST_F(Memory, AnUnreadableFileIsToldOnStdout) {
    FakeMachine machine;
    machine.MemInfo("MemTotal: 2048 kB\n", 0).Sysconf(_SC_PHYS_PAGES, -1);
    const auto result = Measure(machine);
    EXPECT_EQ(result.out, "Corvane/install: can't read \"/proc/meminfo\"\n=-1");
    EXPECT_EQ(result.err, "");
}

TEST_F(Memory, AFileThatFailsToOpenAfterAllIsToldOnStderr) {
    FakeMachine machine;
    machine.MemInfo("MemTotal: 2048 kB\n").Sysconf(_SC_PHYS_PAGES, -1).Fail("fopen=24");
    const auto result = Measure(machine);
    EXPECT_EQ(result.out, "=-1");
    EXPECT_EQ(result.err, "Corvane/install: Too many open files\n");
}

TEST_F(Memory, AReadErrorGivesMinusOneWithoutWords) {
    FakeMachine machine;
    machine.ReadErrorIn("/proc/meminfo").Sysconf(_SC_PHYS_PAGES, -1);
    const auto result = Measure(machine);
    EXPECT_EQ(result.out, "=-1");
    EXPECT_EQ(result.err, "");
}

}  // namespace
