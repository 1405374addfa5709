// Failures that a program with sanitizers does not survive or prevents.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "harness/Child.h"
#include "probes/FakeMachine.h"
#include "probes/cpu_memory.h"
#include "setuprun/CInstallBase.h"
#include "support/storeFile.h"

namespace {

TEST(CoreCount, SkipsStanzaWithoutMemory) {
    HX_REQUIRE_FAKE_MACHINE();
    FakeMachine machine;
    machine
        .CpuInfo(
            "processor\t: 0\nmodel name\t: any\nphysical id\t: 0\ncore id\t\t: 0\ncpu cores\t: "
            "4\n\n"
            "processor\t: 1\nmodel name\t: any\nphysical id\t: 1\ncore id\t\t: 1\ncpu cores\t: "
            "4\n\n")
        .Processors(6);
    const auto result = machine.Run([] {
        unsigned int count = 4711;
        setenv("HX_TEST_NO_MEMORY", "16", 1);
        const int answer = hx_cpu_count(&count, 1);
        unsetenv("HX_TEST_NO_MEMORY");
        std::printf("%d %u", answer, count);
    });
    EXPECT_EQ(result.out, "0 6");
    EXPECT_EQ(result.err,
              "  system reports 6 processors\n  system reports 6 processors\n"
              "  found 0 cores in \"/proc/cpuinfo\"\n");
}

TEST(StoreFile, ReturnsNullWhenMemoryRunsOut) {
    // A line without an end exhausts the address space.
    const auto result = hx_test::RunInChild({}, [] {
        const rlimit limit = {512u << 20, 512u << 20};
        ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
        FILE* file = std::fopen("/dev/zero", "r");
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(storeFile(file, 40, 40, 80), nullptr);
        std::fclose(file);
    });
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(MemoryLimit, CrashesWithoutJobLimit) {
#if !defined(__x86_64__)
    GTEST_SKIP() << "the division does not end the process by a signal here";
#endif
    HX_REQUIRE_NAMESPACES();
    const hx_test::World world{.identity = hx_test::World::Identity::User};
    const auto result = hx_test::RunInChild(world, [] {
        char name[] = "/nowhere/cv_install";
        char* argv[] = {name, nullptr};
        CInstallBase run(true, 1, argv);
        run.m_jobLimit = 0;
        run.PromptMemoryLimit();
    });
    EXPECT_EQ(result.status, 128 + SIGFPE);
}

}  // namespace
