// The throwaway root keeps its word: real in the inside, without a trace on the outside.
#include "machine/ThrowawayRoot.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "harness/TempDir.h"

namespace {

using hx_test::ReadFile;
using hx_test::RunInThrowawayRoot;

TEST(ThrowawayRoot, ChangesTheUserDatabaseInsideOnly) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string groups = ReadFile("/etc/group");
    HX_EXPECT_SCENARIO([] {
        EXPECT_EQ(hx_test::Run({"groupadd", "hx_test_group"}).status, 0);
        EXPECT_NE(ReadFile("/etc/group").find("hx_test_group"), std::string::npos);
    });
    EXPECT_EQ(ReadFile("/etc/group"), groups);
}

TEST(ThrowawayRoot, WritesBesideProgramsInsideOnly) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const char* name = "/usr/bin/hx_test_throwaway";
    HX_EXPECT_SCENARIO([&] {
        hx_test::WriteFile(name, "x");
        EXPECT_EQ(ReadFile(name), "x");
    });
    EXPECT_FALSE(std::filesystem::exists(name));
}

TEST(ThrowawayRoot, LeavesNoMountBehind) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string mounts = ReadFile("/proc/self/mounts");
    HX_EXPECT_SCENARIO([] { EXPECT_TRUE(std::filesystem::exists("/proc/1/mounts")); });
    EXPECT_EQ(ReadFile("/proc/self/mounts"), mounts);
}

TEST(ThrowawayRoot, ReportsAnExpectationThatFailedInside) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const auto result = RunInThrowawayRoot([] { EXPECT_EQ(1, 2) << "told by the inside"; });
    EXPECT_EQ(result.status, 99);
    EXPECT_NE(result.out.find("told by the inside"), std::string::npos);
}

// Every process of the scenario holds the pipe's writing end, so its end of file tells that they
// are all gone.
TEST(ThrowawayRoot, EndsAllItsProcessesWhenTheTestIsKilled) {
    HX_REQUIRE_THROWAWAY_ROOT();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    // Takes the files that the killed process cannot remove.
    const hx_test::TempDir directory;
    const pid_t killed = fork();
    if (killed == 0) {
        setenv("TMPDIR", directory.path().c_str(), 1);
        RunInThrowawayRoot([&] {
            const auto started = std::string("echo started >&") + std::to_string(ends[1]);
            hx_test::Run({"bash", "-c", started + "; sleep 1000 & wait"});
        });
        _exit(0);
    }
    close(ends[1]);
    char word[8] = {};
    EXPECT_EQ(read(ends[0], word, sizeof word), 8);
    kill(killed, SIGKILL);
    waitpid(killed, nullptr, 0);
    pollfd end = {ends[0], POLLIN, 0};
    EXPECT_EQ(poll(&end, 1, 20000), 1);
    EXPECT_EQ(read(ends[0], word, sizeof word), 0);
    close(ends[0]);
}

}  // namespace
