// Throwaway roots protect the live machine, and report failures and changes.
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

TEST(ThrowawayRoot, ChangesSystemInsideOnly) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string groups = ReadFile("/etc/group");
    const std::string mounts = ReadFile("/proc/self/mounts");
    const char* name = "/usr/bin/hx_test_throwaway";
    HX_EXPECT_SCENARIO([&] {
        EXPECT_EQ(hx_test::Run({"groupadd", "hx_test_group"}).status, 0);
        EXPECT_NE(ReadFile("/etc/group").find("hx_test_group"), std::string::npos);
        hx_test::WriteFile(name, "x");
        EXPECT_EQ(ReadFile(name), "x");
    });
    EXPECT_EQ(ReadFile("/etc/group"), groups);
    EXPECT_FALSE(std::filesystem::exists(name));
    EXPECT_EQ(ReadFile("/proc/self/mounts"), mounts);
}

TEST(ThrowawayRoot, ReportsFailedExpectation) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const auto result = RunInThrowawayRoot([] { EXPECT_EQ(1, 2) << "from the inside"; });
    EXPECT_EQ(result.status, 99);
    EXPECT_NE(result.out.find("from the inside"), std::string::npos);
}

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines)
        text += line + "\n";
    return text;
}

TEST(ThrowawayRoot, ListsChangedPathsOfInnermostRoot) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        EXPECT_EQ(Joined(hx_test::ChangedPaths()), "");
        hx_test::Run({"sh", "-c",
                      "umask 022; mkdir -p /srv/a/old /srv/b /srv/c/d; cd /srv; touch a/old/x b/y; "
                      "for n in same touched text mode owner gone kind; do echo $n > c/$n; done; "
                      "ln -s one c/link"});
        HX_EXPECT_SCENARIO([] {
            hx_test::Run({"sh", "-c",
                          "umask 022; cd /srv; rm -r a; mkdir a; echo n > a/new; rm -r b; "
                          "mkdir e; ln -s /nowhere e/l; cd c; : >> same; sleep 0.01; "
                          "echo touched > touched; echo more >> text; "
                          "chmod 600 mode; chown 12:34 owner; rm gone; rm kind; mkfifo kind; "
                          "ln -sfn two link; chmod 1777 d"});
            EXPECT_EQ(Joined(hx_test::ChangedPaths()),
                      "/srv/a replaced directory 755 0:0\n"
                      "/srv/a/new created file 644 0:0\n"
                      "/srv/a/old deleted directory 755 0:0\n"
                      "/srv/b deleted directory 755 0:0\n"
                      "/srv/c/d mode directory 1777 0:0\n"
                      "/srv/c/gone deleted file 644 0:0\n"
                      "/srv/c/kind replaced special 644 0:0\n"
                      "/srv/c/link content link 777 0:0 -> two\n"
                      "/srv/c/mode mode file 600 0:0\n"
                      "/srv/c/owner owner file 644 12:34\n"
                      "/srv/c/text content file 644 0:0\n"
                      "/srv/c/touched rewritten file 644 0:0\n"
                      "/srv/e created directory 755 0:0\n"
                      "/srv/e/l created link 777 0:0 -> /nowhere\n");
        });
    });
}

// Every process of the scenario has the pipe's writing end open: end of file means all have ended.
TEST(ThrowawayRoot, EndsItsProcessesWhenTestIsKilled) {
    HX_REQUIRE_THROWAWAY_ROOT();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    // For the files that the killed process cannot remove.
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
