// A df tool that does not end. It takes the 50 seconds for which the probe waits.
#include <signal.h>

#include <cerrno>

#include "probes/CDfProcess.h"
#include "probes/DfTool.h"

namespace hx_test {
namespace {

class SlowDf : public DfTool {};

TEST_F(SlowDf, IsKilledAfterFiftySecondsAndLeavesNoProcessBehind) {
    // The tool ends with its input, and so with this test.
    MakeDf("echo $$ > '" + m_dir / "pid" + "'; printf 'x\\n/dev/sda1 9 9 5242880 2%% /var\\n'; " +
           "exec cat");
    pid_t tool = 0;
    {
        CDfProcess df;
        df.Run("/tmp");
        EXPECT_EQ(df.TotalAvailable(), 0);
        EXPECT_GE(Seconds(), 49.5);
        EXPECT_LT(Seconds(), 58.0);
        tool = std::stoi(ReadFile(m_dir / "pid"));
        EXPECT_TRUE(df.waitForFinished(5000));
        EXPECT_EQ(df.exitStatus(), QProcess::CrashExit);
        EXPECT_EQ(df.exitCode(), SIGKILL);
    }
    EXPECT_EQ(kill(tool, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

}  // namespace
}  // namespace hx_test
