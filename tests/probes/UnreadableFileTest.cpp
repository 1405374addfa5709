// Probes that cannot read their /proc file.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

#include "probes/FakeMachine.h"
#include "probes/cpu_memory.h"
#include "probes/processor_identity.h"

namespace {

struct Probe {
    const char* name;
    const char* file;
    std::function<int()> call;
    int result;
};

const Probe probes[] = {{"procCPU", "/proc/cpuinfo", procCPU, 0},
                        {"procCPUModel", "/proc/cpuinfo", [] { return procCPUModel(1); }, 0},
                        {"procVersion", "/proc/version", procVersion, 0},
                        {"procCacheSize", "/proc/cpuinfo", procCacheSize, 0},
                        {"procCPUMhz", "/proc/cpuinfo", procCPUMhz, 0},
                        {"procNCPU", "/proc/cpuinfo", procNCPU, 1},
                        {"procRAM", "/proc/meminfo", procRAM, -1}};

class UnreadableFile : public testing::TestWithParam<Probe> {
protected:
    void SetUp() override {
        HX_REQUIRE_NAMESPACES();
        // Otherwise two probes do not read their file.
        m_machine.Sysconf(_SC_NPROCESSORS_CONF, 0).Sysconf(_SC_PHYS_PAGES, -1);
    }

    void ExpectOutput(const std::string& out, const std::string& err) {
        const auto child = m_machine.Run([] {
            const int result = GetParam().call();
            std::printf("%d", result);
        });
        EXPECT_EQ(child.out, out + std::to_string(GetParam().result));
        EXPECT_EQ(child.err, err);
    }

    FakeMachine m_machine;
};

TEST_P(UnreadableFile, IsReportedOnStdout) {
    m_machine.File(GetParam().file, "", 0);
    ExpectOutput(std::string("Corvane/install: can't read \"") + GetParam().file + "\"\n", "");
}

TEST_P(UnreadableFile, IsReportedOnStderrWhenOnlyOpeningFails) {
    m_machine.File(GetParam().file, "").Fail("fopen=24");
    ExpectOutput("", "Corvane/install: Too many open files\n");
}

TEST_P(UnreadableFile, IsNotReportedAfterReadError) {
    m_machine.ReadErrorIn(GetParam().file);
    ExpectOutput("", "");
}

INSTANTIATE_TEST_SUITE_P(Probes, UnreadableFile, testing::ValuesIn(probes),
                         [](const auto& test) { return test.param.name; });

}  // namespace
