// The process that runs a script.
#include "commit/CCommitScript.h"

#include <gtest/gtest.h>

#include <QMetaObject>
#include <filesystem>

#include "harness/Child.h"
#include "harness/TempDir.h"

using hx_test::TempDir;
using hx_test::WriteFile;

namespace {

// Starts a script with this text and without execute permission.
void Start(CCommitScript& process, const TempDir& directory, const std::string& text) {
    const std::string path = directory / "commit script";
    WriteFile(path, text);
    std::filesystem::permissions(path, std::filesystem::perms::owner_read);
    process.Run(QString::fromStdString(path));
}

TEST(CCommitScript, AddsOnlyNameToMetaObject) {
    const QMetaObject& meta = CCommitScript::staticMetaObject;
    EXPECT_STREQ(meta.className(), "CCommitScript");
    EXPECT_EQ(meta.superClass(), &QProcess::staticMetaObject);
    EXPECT_EQ(meta.methodCount(), meta.methodOffset());
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
    EXPECT_EQ(meta.enumeratorCount(), meta.enumeratorOffset());
}

TEST(CCommitScript, HasClassNameThroughBasePointer) {
    QObject parent;
    QObject* process = new CCommitScript(&parent);
    EXPECT_EQ(process->metaObject(), &CCommitScript::staticMetaObject);
    EXPECT_TRUE(process->inherits("CCommitScript"));
    EXPECT_NE(qobject_cast<CCommitScript*>(process), nullptr);
    EXPECT_EQ(process->parent(), &parent);
    EXPECT_EQ(sizeof(CCommitScript), sizeof(QProcess));
}

TEST(CCommitScript, RunsBashWithPathAsOnlyArgument) {
    const auto result = hx_test::RunInChild({}, [] {
        const TempDir directory;
        const std::string path = directory / "commit script";
        setenv("HX_TEST_WORD", "inherited word", 1);
        CCommitScript process;
        Start(process, directory,
              "echo \"$BASH|$0|$#|$HX_TEST_WORD\"\npwd -P\necho err >&2\nexit 7\n");
        ASSERT_TRUE(process.waitForFinished());
        EXPECT_EQ(process.processChannelMode(), QProcess::SeparateChannels);
        EXPECT_EQ(process.readAllStandardOutput().toStdString(),
                  "/bin/bash|" + path + "|0|inherited word\n" +
                      std::filesystem::current_path().string() + "\n");
        EXPECT_EQ(process.readAllStandardError(), QByteArray("err\n"));
        EXPECT_EQ(process.exitCode(), 7);
        EXPECT_EQ(process.program(), QStringLiteral("/bin/bash"));
        EXPECT_EQ(process.arguments(), QStringList(QString::fromStdString(path)));
    });
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST(CCommitScript, PassesEmptyPathToBash) {
    CCommitScript process;
    process.Run(QString());
    EXPECT_EQ(process.arguments(), QStringList(QString()));
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), hx_test::Run({"/bin/bash", ""}).status);
}

TEST(CCommitScript, ReturnsWhileScriptRuns) {
    const TempDir directory;
    CCommitScript process;
    // The script waits for the line that is written below.
    Start(process, directory, "read -r line\necho \"got $line\"\n");
    EXPECT_NE(process.state(), QProcess::NotRunning);
    EXPECT_TRUE(process.openMode().testFlag(QIODeviceBase::ReadWrite));
    process.write("a word\n");
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.readAllStandardOutput(), QByteArray("got a word\n"));
}

TEST(CCommitScript, ReportsMissingBashInStateOnly) {
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
