// How the df tool is started and waited for.
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "probes/CDfProcess.h"
#include "probes/DfTool.h"

namespace hx_test {
namespace {

const std::string FiveGigabytes = "printf 'x\\n/dev/sda1 9 9 5242880 2%% /var\\n'";

std::vector<std::string> Words(const std::string& text) {
    std::vector<std::string> words;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\0', start), text.size());
        words.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return words;
}

std::vector<std::string> OwnEnvironment() {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry)
        entries.emplace_back(*entry);
    return entries;
}

class DfRun : public DfTool {
protected:
    int Measure(const QString& path) {
        CDfProcess df;
        df.Run(path);
        return df.TotalAvailable();
    }
};

TEST_F(DfRun, PassesThePathUnchangedAndNothingElse) {
    MakeDf("cat /proc/$$/cmdline > '" + m_dir / "arguments" + "'; " + FiveGigabytes);
    for (const std::string path : {"/tmp", "/my scratch", "", "-h", "/a//b/../", "/*", "$HOME",
                                   "\"q\" 'r' \\", "/données", "/two\nlines"}) {
        EXPECT_EQ(Measure(QString::fromStdString(path)), 5);
        const std::vector<std::string> expected = {"/bin/sh", m_dir / "df", "-P", path};
        EXPECT_EQ(Words(ReadFile(m_dir / "arguments")), expected);
    }
}

TEST_F(DfRun, PassesTheEnvironmentUnchanged) {
    MakeDf("cat /proc/$$/environ > '" + m_dir / "environment" + "'; " + FiveGigabytes);
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    setenv("DF_BLOCK_SIZE", "1M", 1);
    std::vector<std::string> expected = OwnEnvironment();
    EXPECT_EQ(Measure("/tmp"), 5);
    unsetenv("LC_ALL");
    unsetenv("DF_BLOCK_SIZE");
    std::vector<std::string> passed = Words(ReadFile(m_dir / "environment"));
    std::sort(expected.begin(), expected.end());
    std::sort(passed.begin(), passed.end());
    EXPECT_EQ(passed, expected);
}

TEST_F(DfRun, ReturnsAtOnceAndTheResultIsWaitedFor) {
    // The tool goes on only when its input ends, so that Run cannot have waited for it.
    MakeDf("cat; " + FiveGigabytes);
    CDfProcess df;
    df.Run("/tmp");
    EXPECT_NE(df.state(), QProcess::NotRunning);
    EXPECT_EQ(df.openMode(), QIODeviceBase::ReadWrite);
    df.closeWriteChannel();
    EXPECT_EQ(df.TotalAvailable(), 5);
    EXPECT_EQ(df.state(), QProcess::NotRunning);
}

TEST_F(DfRun, WaitsForALateReport) {
    MakeDf("sleep 1; " + FiveGigabytes);
    EXPECT_EQ(Measure("/tmp"), 5);
    EXPECT_GE(Seconds(), 1.0);
}

TEST_F(DfRun, AToolThatFinishedBeforeGivesNothing) {
    MakeDf(FiveGigabytes);
    CDfProcess df;
    df.Run("/tmp");
    ASSERT_TRUE(df.waitForFinished());
    EXPECT_EQ(df.TotalAvailable(), 0);
}

TEST_F(DfRun, WithoutRunThereIsNothing) {
    CDfProcess df;
    EXPECT_EQ(df.TotalAvailable(), 0);
    EXPECT_LT(Seconds(), 10.0);
}

TEST_F(DfRun, AMissingToolGivesNothingAtOnce) {
    std::filesystem::create_directory(m_dir / "empty");
    UsePath(m_dir / "empty");
    EXPECT_EQ(Measure("/tmp"), 0);
    EXPECT_LT(Seconds(), 10.0);
}

TEST_F(DfRun, AToolThatCannotBeStartedGivesNothing) {
    WriteFile(m_dir / "df", "#!/nowhere/interpreter\n");
    std::filesystem::permissions(m_dir / "df", std::filesystem::perms(0755));
    UsePath(m_dir.path());
    EXPECT_EQ(Measure("/tmp"), 0);
    EXPECT_LT(Seconds(), 10.0);
}

// The tool may round, and the disc may change while it is measured.
TEST_F(DfRun, TheSystemsToolAgreesWithTheSystemCall) {
    unsetenv("DF_BLOCK_SIZE");
    unsetenv("BLOCK_SIZE");
    unsetenv("BLOCKSIZE");
    unsetenv("POSIXLY_CORRECT");
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
}

TEST_F(DfRun, TheSystemsToolFindsNothingForAMissingPath) {
    EXPECT_EQ(Measure(QString::fromStdString(m_dir / "none")), 0);
}

TEST(DfObject, IsAQProcessOfItsOwnNameWithoutAdditions) {
    const CDfProcess df;
    const QMetaObject* meta = df.metaObject();
    EXPECT_STREQ(meta->className(), "CDfProcess");
    EXPECT_EQ(meta->superClass(), &QProcess::staticMetaObject);
    EXPECT_EQ(meta->methodCount(), QProcess::staticMetaObject.methodCount());
    EXPECT_EQ(meta->propertyCount(), QProcess::staticMetaObject.propertyCount());
    EXPECT_EQ(sizeof(CDfProcess), sizeof(QProcess));
    EXPECT_NE(qobject_cast<const CDfProcess*>(static_cast<const QObject*>(&df)), nullptr);
}

TEST(DfObject, HasNoParentUnlessOneIsGiven) {
    EXPECT_EQ(CDfProcess().parent(), nullptr);
    auto parent = std::make_unique<QObject>();
    bool destroyed = false;
    auto* child = new CDfProcess(parent.get());
    QObject::connect(child, &QObject::destroyed, [&] { destroyed = true; });
    EXPECT_EQ(child->parent(), parent.get());
    parent.reset();
    EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace hx_test
