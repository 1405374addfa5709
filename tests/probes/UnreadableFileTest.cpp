// Every identity probe where its file cannot be read.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "probes/processor_identity.h"

namespace {

using hx_test::World;

struct Probe {
    const char* name;
    const char* file;
    std::function<int()> call;
};

const std::vector<Probe> probes = {
    {"procCPU", "/proc/cpuinfo", procCPU},
    {"procCPUModel", "/proc/cpuinfo", [] { return procCPUModel(1); }},
    {"procVersion", "/proc/version", procVersion},
    {"procCacheSize", "/proc/cpuinfo", procCacheSize},
    {"procCPUMhz", "/proc/cpuinfo", procCPUMhz}};

class UnreadableFile : public testing::TestWithParam<Probe> {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // What the probe prints in `world`; its result must be 0.
    static hx_test::ProcessResult ResultIsZero(const World& world) {
        const hx_test::ProcessResult child =
            hx_test::RunInChild(world, [] { EXPECT_EQ(GetParam().call(), 0); });
        EXPECT_EQ(child.status, 0) << child.out;
        return child;
    }
};

TEST_P(UnreadableFile, IsToldOnStdout) {
    const hx_test::TempDir directory;
    hx_test::WriteFile(directory / "file", "");
    std::filesystem::permissions(directory / "file", std::filesystem::perms::none);
    const auto said = ResultIsZero(
        {.identity = World::Identity::User, .binds = {{directory / "file", GetParam().file}}});
    EXPECT_EQ(said.out, std::string("Corvane/install: can't read \"") + GetParam().file + "\"\n");
    EXPECT_EQ(said.err, "");
}

TEST_P(UnreadableFile, ThatFailsToOpenAllTheSameIsToldOnStderr) {
    setenv("HX_TEST_FAIL", "fopen=24", 1);
    const auto said = ResultIsZero({.identity = World::Identity::Root});
    unsetenv("HX_TEST_FAIL");
    EXPECT_EQ(said.out, "");
    EXPECT_EQ(said.err, "Corvane/install: Too many open files\n");
}

// The memory of a process opens well and fails to be read from its start.
TEST_P(UnreadableFile, ThatFailsLaterIsNotToldAtAll) {
    const auto said = ResultIsZero(
        {.identity = World::Identity::Root, .binds = {{"/proc/self/mem", GetParam().file}}});
    EXPECT_EQ(said.out, "");
    EXPECT_EQ(said.err, "");
}

INSTANTIATE_TEST_SUITE_P(Probes, UnreadableFile, testing::ValuesIn(probes),
                         [](const auto& test) { return test.param.name; });

}  // namespace
