// The process that runs a script: a QProcess with one operation more.
#include "commit/CCommitScript.h"

#include <gtest/gtest.h>

#include <QMetaObject>
#include <filesystem>

#include "harness/Child.h"
#include "harness/TempDir.h"

using hx_test::TempDir;
using hx_test::WriteFile;

namespace {

// Starts a script of this text that is nobody's to execute.
void Start(CCommitScript& process, const TempDir& directory, const std::string& text) {
    const std::string path = directory / "commit script";
    WriteFile(path, text);
    std::filesystem::permissions(path, std::filesystem::perms::owner_read);
    process.Run(QString::fromStdString(path));
}

std::string OutputOf(const std::string& text) {
    const TempDir directory;
    CCommitScript process;
    Start(process, directory, text);
    EXPECT_TRUE(process.waitForFinished());
    return process.readAllStandardOutput().toStdString();
}

TEST(CCommitScript, AddsNothingToTheMetaObjectButItsName) {
    const QMetaObject& meta = CCommitScript::staticMetaObject;
    EXPECT_STREQ(meta.className(), "CCommitScript");
    EXPECT_EQ(meta.superClass(), &QProcess::staticMetaObject);
    EXPECT_EQ(meta.methodCount(), meta.methodOffset());
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
    EXPECT_EQ(meta.enumeratorCount(), meta.enumeratorOffset());
}

TEST(CCommitScript, IsKnownByItsClassThroughABasePointer) {
    QObject parent;
    QObject* process = new CCommitScript(&parent);
    EXPECT_EQ(process->metaObject(), &CCommitScript::staticMetaObject);
    EXPECT_TRUE(process->inherits("CCommitScript"));
    EXPECT_NE(qobject_cast<CCommitScript*>(process), nullptr);
    EXPECT_EQ(process->parent(), &parent);
    EXPECT_EQ(sizeof(CCommitScript), sizeof(QProcess));
}

TEST(CCommitScript, RunsBashWithThePathAsItsOneArgument) {
    const TempDir directory;
    CCommitScript process;
    Start(process, directory, "echo \"$BASH|$0|$#\"\nexit 7\n");
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.readAllStandardOutput().toStdString(),
              "/bin/bash|" + directory / "commit script" + "|0\n");
    EXPECT_EQ(process.exitCode(), 7);
    EXPECT_EQ(process.program(), QStringLiteral("/bin/bash"));
    EXPECT_EQ(process.arguments(),
              QStringList(QString::fromStdString(directory / "commit script")));
}

TEST(CCommitScript, HandsAnEmptyPathToBashAsWell) {
    CCommitScript process;
    process.Run(QString());
    EXPECT_EQ(process.arguments(), QStringList(QString()));
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), hx_test::Run({"/bin/bash", ""}).status);
}

TEST(CCommitScript, ReturnsWhileTheScriptRuns) {
    const TempDir directory;
    CCommitScript process;
    // The script cannot end before it has read what is written below.
    Start(process, directory, "read -r line\necho \"got $line\"\n");
    EXPECT_NE(process.state(), QProcess::NotRunning);
    EXPECT_TRUE(process.openMode().testFlag(QIODeviceBase::ReadWrite));
    process.write("a word\n");
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.readAllStandardOutput(), QByteArray("got a word\n"));
}

TEST(CCommitScript, KeepsOutputAndErrorsApart) {
    const TempDir directory;
    CCommitScript process;
    Start(process, directory, "echo out\necho err >&2\n");
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.processChannelMode(), QProcess::SeparateChannels);
    EXPECT_EQ(process.readAllStandardOutput(), QByteArray("out\n"));
    EXPECT_EQ(process.readAllStandardError(), QByteArray("err\n"));
}

TEST(CCommitScript, StaysInTheWorkingDirectory) {
    EXPECT_EQ(OutputOf("pwd -P\n"), std::filesystem::current_path().string() + "\n");
}

TEST(CCommitScript, LetsTheScriptInheritTheEnvironment) {
    const auto result = hx_test::RunInChild({}, [] {
        setenv("HX_TEST_WORD", "a word of our own", 1);
        EXPECT_EQ(OutputOf("echo \"$HX_TEST_WORD\"\n"), "a word of our own\n");
    });
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST(CCommitScript, AMissingBashShowsInTheStateOnly) {
    HX_REQUIRE_NAMESPACES();
    const TempDir directory;
    WriteFile(directory / "bash", "not to be executed");
    const hx_test::World world{.identity = hx_test::World::Identity::Root,
                               .binds = {{directory / "bash", "/bin/bash"}}};
    const auto result = hx_test::RunInChild(world, [] {
        CCommitScript process;
        process.Run(QStringLiteral("/dev/null"));
        EXPECT_FALSE(process.waitForStarted());
        EXPECT_EQ(process.error(), QProcess::FailedToStart);
        EXPECT_EQ(process.state(), QProcess::NotRunning);
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
}

}  // namespace
