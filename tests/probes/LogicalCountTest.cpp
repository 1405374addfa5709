// The number of configured processors.
#include <gtest/gtest.h>

#include <cstdio>

#include "FakeMachine.h"
#include "probes/cpu_memory.h"

namespace {

class LogicalCount : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_FAKE_MACHINE(); }
};

hx_test::ProcessResult CountLogical(const FakeMachine& machine, int verbose) {
    return machine.Run([verbose] {
        unsigned int count = 4711;
        const int result = hx_cpu_logical_count(&count, verbose);
        std::printf("%d %d", result, static_cast<int>(count));
    });
}

TEST_F(LogicalCount, IsThatOfTheConfiguredProcessors) {
    FakeMachine machine;
    machine.Processors(96);
    const auto result = CountLogical(machine, 0);
    EXPECT_EQ(result.out, "0 96");
    EXPECT_EQ(result.err, "");
}

TEST_F(LogicalCount, IsTracedOnStderr) {
    FakeMachine machine;
    machine.Processors(96);
    const auto result = CountLogical(machine, 1);
    EXPECT_EQ(result.out, "0 96");
    EXPECT_EQ(result.err, "  system reports 96 processors\n");
}

TEST_F(LogicalCount, StoresMinusOneWhenTheSystemCannotTell) {
    FakeMachine machine;
    machine.Sysconf(_SC_NPROCESSORS_CONF, -1);
    const auto result = CountLogical(machine, 1);
    EXPECT_EQ(result.out, "0 -1");
    EXPECT_EQ(result.err, "  system reports -1 processors\n");
}

TEST_F(LogicalCount, IsCutTo32Bits) {
    FakeMachine machine;
    machine.Sysconf(_SC_NPROCESSORS_CONF, 4294967299);
    EXPECT_EQ(CountLogical(machine, 0).out, "0 3");
}

TEST_F(LogicalCount, DoesNotReadTheProcessorFile) {
    FakeMachine machine;
    machine.Processors(12).CpuInfo("", 0);
    const auto result = CountLogical(machine, 0);
    EXPECT_EQ(result.out, "0 12");
    EXPECT_EQ(result.err, "");
}

TEST(LogicalCountOfNothing, ANullPointerGivesMinusOneAndNoWords) {
    const auto result = hx_test::RunInChild({}, [] {
        EXPECT_EQ(hx_cpu_logical_count(nullptr, 0), -1);
        EXPECT_EQ(hx_cpu_logical_count(nullptr, 1), -1);
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
}

}  // namespace
