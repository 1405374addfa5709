// The file of the commit script, and its errors.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>

#include "commit/ScriptText.h"
#include "harness/Child.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"

namespace fs = std::filesystem;
using hx_test::ExpectSuccess;
using hx_test::NewRootRun;
using hx_test::NewUserRun;
using hx_test::ReadFile;
using hx_test::Root;
using hx_test::RunInChild;
using hx_test::UsePrivateTmp;

namespace {

std::vector<std::string> FilesInTmp() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator("/tmp"))
        names.push_back(entry.path());
    return names;
}

std::ptrdiff_t OpenDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

TEST(ScriptFile, IsInTmpForOwnerOnly) {
    HX_REQUIRE_NAMESPACES();
    ExpectSuccess(RunInChild(Root, [] {
        UsePrivateTmp();
        umask(0);
        QString path;
        EXPECT_TRUE(NewRootRun().WriteCommitScript(path, false));
        EXPECT_TRUE(hx_test::IsMatch(path.toStdString(), "/tmp/corvane26_commit_[A-Za-z0-9]{6}"));
        EXPECT_EQ(FilesInTmp(), std::vector{path.toStdString()});
        struct stat entry = {};
        ASSERT_EQ(stat(path.toUtf8().constData(), &entry), 0);
        EXPECT_EQ(entry.st_mode, static_cast<mode_t>(S_IFREG | 0600));
    }));
}

TEST(ScriptFile, IsNewForEachCallWithSameText) {
    HX_REQUIRE_NAMESPACES();
    ExpectSuccess(RunInChild(Root, [] {
        UsePrivateTmp();
        CInstallBase& run = NewUserRun();
        QString first = QStringLiteral("unchanged");
        QString second = first;
        const auto descriptors = OpenDescriptors();
        EXPECT_TRUE(run.WriteCommitScript(first, false));
        EXPECT_TRUE(run.WriteCommitScript(second, true));
        EXPECT_EQ(OpenDescriptors(), descriptors);
        EXPECT_NE(first, second);
        const std::string text = ReadFile(first.toStdString());
        EXPECT_TRUE(text.ends_with("\nexit 0\n"));
        EXPECT_EQ(ReadFile(second.toStdString()), text);
    }));
}

void MakeTmpReadOnly() {
    ASSERT_EQ(mount(nullptr, "/tmp", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
}

TEST(ScriptFile, ReportsFailedMkstemp) {
    HX_REQUIRE_NAMESPACES();
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] { setenv("HX_TEST_FAIL", "mkstemp=13", 1); }, "Permission denied"},
        {MakeTmpReadOnly, "Read-only file system"}};
    for (const auto& [makeFail, reason] : cases) {
        const auto result = RunInChild(Root, [&makeFail = makeFail] {
            UsePrivateTmp();
            CInstallBase& run = NewRootRun();
            QString path = QStringLiteral("unchanged");
            makeFail();
            EXPECT_FALSE(run.WriteCommitScript(path, true));
            EXPECT_EQ(path, QString());
            EXPECT_TRUE(fs::is_empty("/tmp"));
        });
        ExpectSuccess(result, "Writing Commit Script: mkstemp failed, " + reason + "\n");
    }
}

TEST(ScriptFile, ReportsFailedFdopenAndKeepsEmptyFile) {
    HX_REQUIRE_NAMESPACES();
    const auto result = RunInChild(Root, [] {
        UsePrivateTmp();
        CInstallBase& run = NewRootRun();
        QString path = QStringLiteral("unchanged");
        const auto descriptors = OpenDescriptors();
        setenv("HX_TEST_FAIL", "fdopen=12", 1);
        EXPECT_FALSE(run.WriteCommitScript(path, false));
        EXPECT_EQ(path, QString());
        EXPECT_EQ(OpenDescriptors(), descriptors);
        ASSERT_EQ(FilesInTmp().size(), 1U);
        EXPECT_TRUE(fs::is_empty(FilesInTmp().front()));
    });
    ExpectSuccess(result, "Writing Commit Script: fdopen failed\n");
}

TEST(ScriptFile, IsTruncatedOnFullDisk) {
    HX_REQUIRE_NAMESPACES();
    ExpectSuccess(RunInChild(Root, [] {
        UsePrivateTmp("mode=1777,size=4k");
        QString path;
        EXPECT_TRUE(NewRootRun().WriteCommitScript(path, false));
        const std::string text = ReadFile(path.toStdString());
        EXPECT_FALSE(text.ends_with("exit 0\n"));
        EXPECT_TRUE(text.starts_with("#!/bin/bash\n"));
    }));
}

}  // namespace
