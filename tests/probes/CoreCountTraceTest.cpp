// What hx_cpu_count says on stderr, and how it fails.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "FakeMachine.h"
#include "probes/cpu_memory.h"

namespace {

constexpr const char* CannotOpen = "  Error, can't open /proc/cpuinfo to read.\n";

class CoreCountTrace : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_FAKE_MACHINE(); }
};

TEST_F(CoreCountTrace, TellsTheProcessorsTwiceAndTheCoresOnce) {
    FakeMachine machine;
    machine.CpuInfo(Stanza(0, 0, 0, 8)).Processors(16);
    const auto result = CountCores(machine, 1);
    EXPECT_EQ(result.out, "0 8");
    EXPECT_EQ(result.err,
              "  system reports 16 processors\n"
              "  system reports 16 processors\n"
              "  found 8 cores in \"/proc/cpuinfo\"\n");
}

TEST_F(CoreCountTrace, TellsTheCoresAsTheyWereFound) {
    FakeMachine machine;
    machine.CpuInfo(Stanza(0, 0, 0, 8)).Processors(2);
    const auto result = CountCores(machine, 1);
    EXPECT_EQ(result.out, "0 2");
    EXPECT_EQ(result.err,
              "  system reports 2 processors\n"
              "  system reports 2 processors\n"
              "  found 8 cores in \"/proc/cpuinfo\"\n");
}

TEST_F(CoreCountTrace, TellsAnEmptyFileAsNoCores) {
    FakeMachine machine;
    machine.CpuInfo("").Processors(3);
    const auto result = CountCores(machine, 1);
    EXPECT_EQ(result.out, "0 3");
    EXPECT_EQ(result.err,
              "  system reports 3 processors\n"
              "  system reports 3 processors\n"
              "  found 0 cores in \"/proc/cpuinfo\"\n");
}

TEST_F(CoreCountTrace, AnyNumberButZeroSwitchesItOn) {
    FakeMachine machine;
    machine.CpuInfo("").Processors(3);
    EXPECT_NE(CountCores(machine, -1).err, "");
    EXPECT_NE(CountCores(machine, 256).err, "");
    EXPECT_EQ(CountCores(machine, 0).err, "");
}

TEST_F(CoreCountTrace, TellsAFailingSysconfAsMinusOne) {
    FakeMachine machine;
    machine.CpuInfo(Stanza(0, 0, 0, 4)).Sysconf(_SC_NPROCESSORS_CONF, -1);
    const auto result = CountCores(machine, 1);
    EXPECT_EQ(result.out, "0 -1");
    EXPECT_EQ(result.err,
              "  system reports -1 processors\n"
              "  system reports -1 processors\n"
              "  found 4 cores in \"/proc/cpuinfo\"\n");
}

TEST_F(CoreCountTrace, AFileThatCannotBeOpenedIsToldWithoutTheTraceToo) {
    FakeMachine machine;
    machine.CpuInfo(Stanza(0, 0, 0, 4), 0).Processors(4);
    const auto quiet = CountCores(machine, 0);
    EXPECT_EQ(quiet.out, "-1 0");
    EXPECT_EQ(quiet.err, CannotOpen);
    const auto traced = CountCores(machine, 1);
    EXPECT_EQ(traced.out, "-1 0");
    EXPECT_EQ(traced.err, std::string("  system reports 4 processors\n"
                                      "  system reports 4 processors\n") +
                              CannotOpen);
}

TEST_F(CoreCountTrace, AStanzaWithoutMemoryForItsRecordIsNotCounted) {
#ifdef HX_TEST_KEEP_MALLOC
    GTEST_SKIP() << "a sanitizer brings its own malloc, which cannot be failed";
#else
    FakeMachine machine;
    machine.CpuInfo(Stanza(0, 0, 0, 4) + Stanza(1, 1, 0, 4)).Processors(6);
    const auto result = machine.Run([] {
        unsigned int count = 4711;
        setenv("HX_TEST_NO_MEMORY", "16", 1);
        const int answer = hx_cpu_count(&count, 1);
        unsetenv("HX_TEST_NO_MEMORY");
        std::printf("%d %u", answer, count);
    });
    EXPECT_EQ(result.out, "0 6");
    EXPECT_EQ(result.err,
              "  system reports 6 processors\n"
              "  system reports 6 processors\n"
              "  found 0 cores in \"/proc/cpuinfo\"\n");
#endif
}

}  // namespace
