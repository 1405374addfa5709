// The simpler processor count, which stops at 1 where it reads /proc/cpuinfo.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "FakeMachine.h"
#include "probes/cpu_memory.h"

namespace {

constexpr const char* CannotRead = "Corvane/install: can't read \"/proc/cpuinfo\"\n";

class ProcessorCount : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_FAKE_MACHINE(); }
};

// stdout holds what procNCPU wrote and then "=count".
hx_test::ProcessResult Count(const FakeMachine& machine) {
    return machine.Run([] {
        const int count = procNCPU();
        std::printf("=%d", count);
    });
}

// The count where sysconf gives none and /proc/cpuinfo is this.
std::string CountOfFile(const std::string& cpuInfo) {
    FakeMachine machine;
    machine.CpuInfo(cpuInfo).Sysconf(_SC_NPROCESSORS_CONF, 0);
    const auto result = Count(machine);
    EXPECT_EQ(result.err, "");
    return result.out;
}

TEST_F(ProcessorCount, IsThatOfTheConfiguredProcessors) {
    FakeMachine machine;
    machine.Processors(48).CpuInfo(Stanza(0, 0, 0, 2));
    const auto result = Count(machine);
    EXPECT_EQ(result.out, "=48");
    EXPECT_EQ(result.err, "");
}

TEST_F(ProcessorCount, TakesTheConfiguredProcessorsAs32BitsWithSign) {
    FakeMachine more;
    more.CpuInfo("").Sysconf(_SC_NPROCESSORS_CONF, 4294967301);
    EXPECT_EQ(Count(more).out, "=5");
    FakeMachine negative;
    negative.CpuInfo("").Sysconf(_SC_NPROCESSORS_CONF, 2147483648);
    EXPECT_EQ(Count(negative).out, "=0");
}

TEST_F(ProcessorCount, OfAFileWithEightProcessorsIsOne) {
    std::string text;
    for (int processor = 0; processor < 8; ++processor)
        text += Stanza(processor, 0, processor, 8);
    EXPECT_EQ(CountOfFile(text), "=1");
}

TEST_F(ProcessorCount, OfAFileWithoutProcessorsIsNone) {
    EXPECT_EQ(CountOfFile("vendor_id : x\ncpu cores : 4\n\n"), "=0");
    EXPECT_EQ(CountOfFile(""), "=0");
    EXPECT_EQ(CountOfFile("\n"), "=0");
}

TEST_F(ProcessorCount, AFailingSysconfReadsTheFileToo) {
    FakeMachine machine;
    machine.CpuInfo(Stanza(0, 0, 0, 4)).Sysconf(_SC_NPROCESSORS_CONF, -1);
    EXPECT_EQ(Count(machine).out, "=1");
}

TEST_F(ProcessorCount, TheFirstWordOfALineIsTheWholeWord) {
    EXPECT_EQ(CountOfFile("processors : 0\nprocessor: 1\nProcessor : 2\ncpu processor : 3\n"),
              "=0");
    EXPECT_EQ(CountOfFile("processor\t: 0\n"), "=1");
    EXPECT_EQ(CountOfFile("  processor : 0\n"), "=1");
    EXPECT_EQ(CountOfFile("flags : a\nprocessor"), "=1");
}

TEST_F(ProcessorCount, LinesWithoutAWordAddNothing) {
    EXPECT_EQ(CountOfFile("\n\nvendor : x\n\n \t\n"), "=0");
    EXPECT_EQ(CountOfFile("processor : 0\n\n\n"), "=1");
}

TEST_F(ProcessorCount, AnUnreadableFileIsToldOnStdout) {
    FakeMachine machine;
    machine.CpuInfo("", 0).Sysconf(_SC_NPROCESSORS_CONF, 0);
    const auto result = Count(machine);
    EXPECT_EQ(result.out, std::string(CannotRead) + "=1");
    EXPECT_EQ(result.err, "");
}

TEST_F(ProcessorCount, AFileThatFailsToOpenAfterAllIsToldOnStderr) {
    FakeMachine machine;
    machine.CpuInfo("").Sysconf(_SC_NPROCESSORS_CONF, 0).Fail("fopen=24");
    const auto result = Count(machine);
    EXPECT_EQ(result.out, "=1");
    EXPECT_EQ(result.err, "Corvane/install: Too many open files\n");
}

TEST_F(ProcessorCount, AReadErrorGivesOneWithoutWords) {
    FakeMachine machine;
    machine.ReadErrorIn("/proc/cpuinfo").Sysconf(_SC_NPROCESSORS_CONF, 0);
    const auto result = Count(machine);
    EXPECT_EQ(result.out, "=1");
    EXPECT_EQ(result.err, "");
}

}  // namespace
