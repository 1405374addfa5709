// Setups whose parent process leaves them unusual signals, streams, or descriptors.
#include <gtest/gtest.h>

#include <csignal>

#include "apps/UserSetup.h"
#include "faults/Messages.h"

namespace {

class InheritedState : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Runs the setup in a shell, with words before and after its command.
    hx_test::ProcessResult RunInShell(const std::string& before, const std::string& after) {
        return m_setup.RunProgram({"/bin/bash", "-c",
                                   before +
                                       " /tmp/product/cv_install --setup --user-mode --yes "
                                       "-m 777 -s 5 -d /tmp " +
                                       after});
    }

    UserSetup m_setup;
};

TEST_F(InheritedState, AllowsIgnoredChildSignal) {
    const auto result = RunInShell("exec env --ignore-signal=CHLD", "");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
}

// Otherwise the log or the commit script would get the descriptor of stdout.
TEST_F(InheritedState, KeepsFilesIntactWithClosedStreams) {
    const auto whole = RunInShell("", "");
    ASSERT_EQ(whole.status, 0);
    const std::string limits = m_setup.File("QueueLimits");
    const std::string script = m_setup.File("corvane26");
    for (const char* closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
        SCOPED_TRACE(closed);
        const auto result = RunInShell("", closed);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(m_setup.File("QueueLimits"), limits);
        EXPECT_EQ(m_setup.File("corvane26"), script);
    }
}

TEST_F(InheritedState, ReportsLostOutput) {
    const auto result = RunInShell("", ">/dev/full");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, LostOutput("No space left on device"));
    EXPECT_TRUE(m_setup.Has("QueueLimits"));
}

// SIGPIPE must not end the setup.
TEST_F(InheritedState, CompletesWhenReaderOfOutputEnds) {
    const auto result = RunInShell("", "| true; exit ${PIPESTATUS[0]}");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, LostOutput("Broken pipe"));
    EXPECT_TRUE(m_setup.Has("QueueLimits"));
}

// SIGXFSZ must not end the setup. The first file that is too large is the state for an undo.
TEST_F(InheritedState, ReportsFileSizeLimit) {
    for (const std::string blocks : {"0", "1"}) {
        SCOPED_TRACE(blocks);
        // Its output goes to a file without the limit.
        const auto result =
            RunInShell("(ulimit -f " + blocks + ";", ") 2>&1 | cat; exit ${PIPESTATUS[0]}");
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.out.find("/private/states/1/state\" for --undo: File too large\n"),
                  std::string::npos)
            << result.out << result.err;
        EXPECT_NE(result.out.find(".log\": File too large\n"), std::string::npos) << result.out;
        EXPECT_FALSE(m_setup.Has("qchemrc"));
    }
}

}  // namespace
