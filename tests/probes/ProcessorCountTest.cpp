// The number of configured processors.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "probes/FakeMachine.h"
#include "probes/cpu_memory.h"

namespace {

class ProcessorCount : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_FAKE_MACHINE(); }
};

// Prints the result and the count of hx_cpu_logical_count, and the result of procNCPU.
hx_test::ProcessResult CountProcessors(const FakeMachine& machine, int verbose = 0) {
    return machine.Run([verbose] {
        unsigned int count = 4711;
        const int result = hx_cpu_logical_count(&count, verbose);
        std::printf("%d %d, %d", result, static_cast<int>(count), procNCPU());
    });
}

TEST_F(ProcessorCount, ReturnsConfiguredProcessorsWithoutFile) {
    FakeMachine machine;
    machine.Processors(96).CpuInfo("", 0);
    const auto result = CountProcessors(machine);
    EXPECT_EQ(result.out, "0 96, 96");
    EXPECT_EQ(result.err, "");
}

TEST_F(ProcessorCount, TruncatesSysconfTo32Bits) {
    const struct {
        long long sysconf;
        const char* expected;
    } cases[] = {
        {4294967299, "0 3, 3"}, {2147483648, "0 -2147483648, 0"}, {-1, "0 -1, 0"}, {0, "0 0, 0"}};
    for (const auto& [sysconf, expected] : cases) {
        FakeMachine machine;
        machine.CpuInfo("").Sysconf(_SC_NPROCESSORS_CONF, sysconf);
        EXPECT_EQ(CountProcessors(machine).out, expected);
    }
}

TEST_F(ProcessorCount, PrintsTraceOnStderr) {
    FakeMachine machine;
    machine.Processors(96);
    EXPECT_EQ(CountProcessors(machine, 1).err, "  system reports 96 processors\n");
    FakeMachine unknown;
    unknown.CpuInfo("").Sysconf(_SC_NPROCESSORS_CONF, -1);
    EXPECT_EQ(CountProcessors(unknown, 1).err, "  system reports -1 processors\n");
}

TEST_F(ProcessorCount, IsAtMostOneFromFile) {
    const struct {
        const char* cpuInfo;
        const char* expected;
    } cases[] = {{"processor\t: 0\n\nprocessor\t: 1\n\nprocessor\t: 2\n", "1"},
                 {"processor : 0\n\n\n", "1"},
                 {"  processor : 0\n", "1"},
                 {"flags : a\nprocessor", "1"},
                 {"processors : 0\nprocessor: 1\nProcessor : 2\ncpu processor : 3\n", "0"},
                 {"vendor_id : x\ncpu cores : 4\n\n \t\n", "0"},
                 {"\n", "0"},
                 {"", "0"}};
    for (const auto& [cpuInfo, expected] : cases) {
        for (const int sysconf : {0, -1}) {
            SCOPED_TRACE(cpuInfo);
            FakeMachine machine;
            machine.CpuInfo(cpuInfo).Sysconf(_SC_NPROCESSORS_CONF, sysconf);
            const auto result = machine.Run([] { std::printf("%d", procNCPU()); });
            EXPECT_EQ(result.out, expected);
            EXPECT_EQ(result.err, "");
        }
    }
}

TEST(ProcessorCountArguments, ReturnsMinusOneSilentlyForNullPointer) {
    const auto result = hx_test::RunInChild({}, [] {
        for (const int verbose : {0, 1}) {
            EXPECT_EQ(hx_cpu_logical_count(nullptr, verbose), -1);
            EXPECT_EQ(hx_cpu_count(nullptr, verbose), -1);
        }
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
}

}  // namespace
