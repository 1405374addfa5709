// One setup at a time in one install tree.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "apps/JsonSchema.h"
#include "apps/RootSetup.h"
#include "apps/UserSetup.h"
#include "harness/Expect.h"
#include "harness/Pattern.h"
#include "harness/Terminal.h"
#include "machine/ThrowawayRoot.h"

namespace {

using hx_test::ExpectHolds;
using hx_test::Terminal;

class SetupLock : public testing::Test {
protected:
    void SetUp() override {
        HX_REQUIRE_NAMESPACES();
        // Bash runs this before the commit script's first line.
        hx_test::WriteFile(m_setup.Root() + "/before",
                           "echo held; until [ -e /tmp/go ]; do sleep 0.05; done\n");
    }

    // A setup that waits in its commit script.
    Terminal Hold() {
        return Terminal(Terminal::Mode::Person, [this] {
            m_setup.Become(m_setup.Command({"BASH_ENV=/tmp/before"}, m_yes));
        });
    }

    void Release() { hx_test::WriteFile(m_setup.Root() + "/go", ""); }

    UserSetup m_setup;
    const std::vector<std::string> m_yes = {"--setup", "--user-mode", "--yes"};
};

TEST_F(SetupLock, RefusesSecondSetup) {
    Terminal holder = Hold();
    ASSERT_TRUE(holder.WaitFor("held"));
    const auto second = m_setup.Run(m_yes);
    EXPECT_EQ(second.status, 64);
    EXPECT_EQ(second.out, "");
    EXPECT_TRUE(hx_test::IsMatch(
        second.err,
        "cv_install: another setup is running: process [0-9]+ of user [^ ]+, since "
        "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\n"
        "    Run the setup again when it has ended, or with --wait SECONDS\\.\n"
        "    No changes were made\\.\n"))
        << second.err;
    const auto third = m_setup.Run({"--setup", "--user-mode", "--yes", "--json", "-"});
    ExpectReport(third.out, R"({"status": 64, "changes": [], "answers": null, "log": null})");
    EXPECT_EQ(m_setup.Run({"--version"}).status, 0);
    Release();
    EXPECT_EQ(holder.Finish(), 0);
}

TEST_F(SetupLock, WaitsForOtherSetupWithWait) {
    Terminal holder = Hold();
    ASSERT_TRUE(holder.WaitFor("held"));
    EXPECT_EQ(m_setup.Run({"--setup", "--user-mode", "--yes", "--wait", "1"}).status, 64);
    Terminal second(Terminal::Mode::Person, [this] {
        m_setup.Become(m_setup.Command({"--setup", "--user-mode", "--yes", "--wait", "20"}));
    });
    ASSERT_TRUE(second.WaitFor("warning: another setup is running"));
    Release();
    EXPECT_EQ(holder.Finish(), 0);
    EXPECT_EQ(second.Finish(), 0);
    ExpectHolds(second.Output(), "fails after 20 seconds.\r\n");
    ExpectHolds(second.Output(), "completed successfully!");
}

TEST_F(SetupLock, IsReleasedWhenKilledSetupsScriptHasEnded) {
    Terminal holder = Hold();
    ASSERT_TRUE(holder.WaitFor("held"));
    kill(holder.Pid(), SIGKILL);
    EXPECT_EQ(holder.Finish(), 128 + SIGKILL);
    const auto next = m_setup.Run({"--setup", "--user-mode", "--yes", "--wait", "10"});
    EXPECT_EQ(next.status, 0) << next.err;
}

// As on some network file systems, the first call fails: the one that locks a directory.
TEST_F(SetupLock, IsFileWhereDirectoriesCannotBeLocked) {
    std::vector<std::string> arguments = m_yes;
    arguments.emplace_back("--dry-run");
    const auto dry = m_setup.RunProgram(m_setup.Command({"HX_TEST_FAIL=flock:1=9"}, arguments));
    EXPECT_EQ(dry.status, 0) << dry.err;
    EXPECT_FALSE(m_setup.Has(".corvane26_setup.lock"));
    const auto result = m_setup.RunProgram(m_setup.Command({"HX_TEST_FAIL=flock:1=9"}, m_yes));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(std::filesystem::status(m_setup.Outside(".corvane26_setup.lock")).permissions(),
              std::filesystem::perms(0600));
}

TEST(RootSetupLock, IsFileOfRootOnly) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell("mkdir -p /run");
        ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
        EXPECT_EQ(Shell("stat -c '%a %U' /run/corvane26_setup.lock"), "600 root");
        EXPECT_EQ(Shell("flock /run/corvane26_setup.lock sh -c '/opt/corvane26/cv_install --setup "
                        "--yes 2>&1; echo $?'"),
                  "cv_install: another setup is running\n"
                  "    Run the setup again when it has ended, or with --wait SECONDS.\n"
                  "    No changes were made.\n64");
    });
}

}  // namespace
