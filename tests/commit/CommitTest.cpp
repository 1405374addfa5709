// Commit: a script is written and started; what becomes of it is left to the system.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "commit/ScriptText.h"
#include "harness/Child.h"
#include "harness/TempDir.h"

namespace fs = std::filesystem;
using hx_test::ReadFile;
using hx_test::Root;
using hx_test::RunInChild;
using hx_test::UsePrivateTmp;

namespace {

// A user run whose script, should it get that far, finds its install directory's parent missing.
CInstallBase& HarmlessRun() {
    CInstallBase& run = hx_test::NewUserRun();
    run.m_installDir = QStringLiteral("/tmp/missing/corvane");
    return run;
}

std::set<std::string> Scripts() {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator("/tmp")) {
        EXPECT_TRUE(entry.path().string().starts_with("/tmp/corvane26_commit_")) << entry.path();
        names.insert(entry.path());
    }
    return names;
}

// Whether the script got to run, and what Qt says of one that was cut short, is not looked at.
TEST(Commit, WritesAnotherScriptEachTimeAndRemovesNone) {
    HX_REQUIRE_NAMESPACES();
    const auto result = RunInChild(Root, [] {
        UsePrivateTmp();
        CInstallBase& run = HarmlessRun();
        run.Commit();
        const auto first = Scripts();
        EXPECT_EQ(first.size(), 1U);
        run.Commit();
        const auto both = Scripts();
        EXPECT_EQ(both.size(), 2U);
        EXPECT_TRUE(std::includes(both.begin(), both.end(), first.begin(), first.end()));
    });
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST(Commit, WritesTheTextOfWriteCommitScript) {
    HX_REQUIRE_NAMESPACES();
    const auto result = RunInChild(Root, [] {
        UsePrivateTmp();
        CInstallBase& run = HarmlessRun();
        run.Commit();
        ASSERT_EQ(Scripts().size(), 1U);
        const std::string text = ReadFile(*Scripts().begin());
        QString path;
        ASSERT_TRUE(run.WriteCommitScript(path, false));
        EXPECT_EQ(text, ReadFile(path.toStdString()));
    });
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST(Commit, LeavesNoProcessBehind) {
    HX_REQUIRE_NAMESPACES();
    const auto result = RunInChild(Root, [] {
        UsePrivateTmp();
        HarmlessRun().Commit();
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
    });
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST(Commit, ReturnsWhenTheScriptCannotBeWritten) {
    HX_REQUIRE_NAMESPACES();
    const auto result = RunInChild(Root, [] {
        UsePrivateTmp();
        CInstallBase& run = HarmlessRun();
        setenv("HX_TEST_FAIL", "mkstemp=28", 1);
        run.Commit();
        EXPECT_TRUE(fs::is_empty("/tmp"));
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_TRUE(
        result.err.starts_with("Writing Commit Script: mkstemp failed, No space left on device\n"))
        << result.err;
}

TEST(Commit, TellsNothingOnStdout) {
    HX_REQUIRE_NAMESPACES();
    const auto result = RunInChild(Root, [] {
        UsePrivateTmp();
        HarmlessRun().Commit();
    });
    EXPECT_EQ(result.out, "");
}

}  // namespace
