// Setups started by a parent that leaves its children an odd state.
#include <gtest/gtest.h>

#include <csignal>

#include "apps/UserSetup.h"

namespace {

class InheritedState : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // The setup as a shell starts it, with these words behind its command.
    hx_test::ProcessResult RunInShell(const std::string& before, const std::string& behind) {
        return m_setup.RunProgram({"/bin/bash", "-c",
                                   before +
                                       " /tmp/product/cv_install --setup --user-mode --yes "
                                       "-m 777 -s 5 -d /tmp " +
                                       behind});
    }

    std::string Log() const {
        for (const auto& entry : std::filesystem::directory_iterator(m_setup.Root())) {
            if (entry.path().extension() == ".log")
                return hx_test::ReadFile(entry.path());
        }
        return "";
    }

    UserSetup m_setup;
};

TEST_F(InheritedState, IgnoredEndsOfChildrenAreNoFailure) {
    const auto result = RunInShell("exec env --ignore-signal=CHLD", "");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
}

// Otherwise the log, or the commit script itself, would take the place of stdout.
TEST_F(InheritedState, ClosedStandardStreamsSpoilNoFile) {
    const auto whole = RunInShell("", "");
    ASSERT_EQ(whole.status, 0);
    const std::string limits = m_setup.File("QueueLimits");
    const std::string scripts = hx_test::ReadFile(m_setup.CommitScripts().front());
    const std::string log = Log();
    std::filesystem::remove(m_setup.CommitScripts().front());
    for (const char* closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
        SCOPED_TRACE(closed);
        const auto result = RunInShell("", closed);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(m_setup.File("QueueLimits"), limits);
        ASSERT_EQ(m_setup.CommitScripts().size(), 1U);
        EXPECT_EQ(hx_test::ReadFile(m_setup.CommitScripts().front()), scripts);
        std::filesystem::remove(m_setup.CommitScripts().front());
    }
}

TEST_F(InheritedState, LostOutputIsToldAndTheSetupIsComplete) {
    const auto result = RunInShell("", ">/dev/full");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "cv_install: stdout cannot be written to, some lines are lost\n");
    EXPECT_TRUE(m_setup.Has("QueueLimits"));
}

// The signal that this sends must not end the setup half way.
TEST_F(InheritedState, AReaderOfStdoutThatLeavesStopsNothing) {
    const auto result = RunInShell("", "| true; exit ${PIPESTATUS[0]}");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "cv_install: stdout cannot be written to, some lines are lost\n");
    EXPECT_TRUE(m_setup.Has("QueueLimits"));
}

}  // namespace
