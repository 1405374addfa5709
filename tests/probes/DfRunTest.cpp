// How df is started and waited for.
#include <signal.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

#include "probes/DfTool.h"
#include "probes/ProcessWaits.h"

namespace hx_test {
namespace {

const std::string fiveGigabytes = "printf 'x\\n/dev/sda1 9 9 5242880 2%% /var\\n'";

std::vector<std::string> SplitAtNul(const std::string& text) {
    std::vector<std::string> words;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\0', start), text.size());
        words.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return words;
}

using DfRun = DfTool;

TEST_F(DfRun, PassesPathUnchanged) {
    CreateDf("cat /proc/$$/cmdline > '" + m_dir / "arguments" + "'; " + fiveGigabytes);
    for (const std::string path : {"/tmp", "/my scratch", "", "-h", "/a//b/../", "/*", "$HOME",
                                   "\"q\" 'r' \\", "/données", "/two\nlines"}) {
        EXPECT_EQ(Measure(QString::fromStdString(path)), 5);
        const std::vector<std::string> expected = {"/bin/sh", m_dir / "df", "-P", path};
        EXPECT_EQ(SplitAtNul(ReadFile(m_dir / "arguments")), expected);
    }
}

TEST_F(DfRun, PassesEnvironmentUnchanged) {
    CreateDf("cat /proc/$$/environ > '" + m_dir / "environment" + "'; " + fiveGigabytes);
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    setenv("DF_BLOCK_SIZE", "1M", 1);
    std::vector<std::string> expected;
    for (char** entry = environ; *entry != nullptr; ++entry)
        expected.emplace_back(*entry);
    EXPECT_EQ(Measure(), 5);
    unsetenv("LC_ALL");
    unsetenv("DF_BLOCK_SIZE");
    std::vector<std::string> passed = SplitAtNul(ReadFile(m_dir / "environment"));
    std::sort(expected.begin(), expected.end());
    std::sort(passed.begin(), passed.end());
    EXPECT_EQ(passed, expected);
}

TEST_F(DfRun, ReturnsBeforeToolEnds) {
    // The tool ends only after its input is closed.
    CreateDf("cat; " + fiveGigabytes);
    CDfProcess df;
    df.Run("/tmp");
    EXPECT_NE(df.state(), QProcess::NotRunning);
    EXPECT_EQ(df.openMode(), QIODeviceBase::ReadWrite);
    df.closeWriteChannel();
    EXPECT_EQ(df.TotalAvailable(), 5);
    EXPECT_EQ(df.state(), QProcess::NotRunning);
}

TEST_F(DfRun, KillsToolAfter50Seconds) {
    CreateDf("echo $$ > '" + m_dir / "pid" + "'; " + fiveGigabytes + "; exec cat");
    CDfProcess df;
    df.Run("/tmp");
    ASSERT_TRUE(df.waitForReadyRead());
    ProcessWaits().clear();
    EXPECT_EQ(df.TotalAvailable(), 0);
    EXPECT_EQ(ProcessWaits(), std::vector<int>{50000});
    EXPECT_TRUE(df.waitForFinished(5000));
    EXPECT_EQ(df.exitStatus(), QProcess::CrashExit);
    EXPECT_EQ(df.exitCode(), SIGKILL);
    EXPECT_EQ(kill(std::stoi(ReadFile(m_dir / "pid")), 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST_F(DfRun, IgnoresExitStatusAndStderr) {
    CreateDf("echo 'df: /tmp: any error' >&2; " + fiveGigabytes + "; exit 1");
    EXPECT_EQ(Measure(), 5);
    CreateDf(fiveGigabytes + "; kill -KILL $$");
    EXPECT_EQ(Measure(), 5);
    CreateDf(fiveGigabytes + " >&2");
    EXPECT_EQ(Measure(), 0);
}

TEST_F(DfRun, ReturnsZeroWithoutRunningTool) {
    CDfProcess unused;
    EXPECT_EQ(unused.TotalAvailable(), 0);
    CreateDf(fiveGigabytes);
    CDfProcess ended;
    ended.Run("/tmp");
    ASSERT_TRUE(ended.waitForFinished());
    EXPECT_EQ(ended.TotalAvailable(), 0);
}

TEST_F(DfRun, ReturnsZeroWhenToolCannotStart) {
    CreateDf("", "/nowhere/interpreter");
    EXPECT_EQ(Measure(), 0);
    std::filesystem::create_directory(m_dir / "empty");
    UsePath(m_dir / "empty");
    EXPECT_EQ(Measure(), 0);
}

// The tool rounds, and free space changes over time.
TEST_F(DfRun, MatchesStatvfsWithSystemTool) {
    for (const char* name : {"DF_BLOCK_SIZE", "BLOCK_SIZE", "BLOCKSIZE", "POSIXLY_CORRECT"})
        unsetenv(name);
    for (const char* path : {"/", "/tmp", "/dev/shm", "/proc"}) {
        SCOPED_TRACE(path);
        struct statvfs before = {};
        if (statvfs(path, &before) != 0)
            continue;
        const int measured = Measure(path);
        struct statvfs after = {};
        ASSERT_EQ(statvfs(path, &after), 0);
        const auto gigabytes = [](const struct statvfs& fs) {
            const unsigned long long bytes = 1ULL * fs.f_bavail * fs.f_frsize;
            return bytes >> 41 != 0 ? 0 : static_cast<int>(bytes >> 30);
        };
        EXPECT_GE(measured, std::min(gigabytes(before), gigabytes(after)));
        EXPECT_LE(measured, std::max(gigabytes(before), gigabytes(after)) + 1);
    }
    EXPECT_EQ(Measure(QString::fromStdString(m_dir / "none")), 0);
}

TEST(DfObject, AddsNothingToQProcess) {
    const CDfProcess df;
    const QMetaObject* meta = df.metaObject();
    EXPECT_STREQ(meta->className(), "CDfProcess");
    EXPECT_EQ(meta->superClass(), &QProcess::staticMetaObject);
    EXPECT_EQ(meta->methodCount(), QProcess::staticMetaObject.methodCount());
    EXPECT_EQ(meta->propertyCount(), QProcess::staticMetaObject.propertyCount());
    EXPECT_EQ(sizeof(CDfProcess), sizeof(QProcess));
}

TEST(DfObject, BelongsToGivenParent) {
    EXPECT_EQ(CDfProcess().parent(), nullptr);
    QObject parent;
    EXPECT_EQ((new CDfProcess(&parent))->parent(), &parent);
}

}  // namespace
}  // namespace hx_test
