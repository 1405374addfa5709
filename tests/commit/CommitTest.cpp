// Commit, which writes and starts a script. Whether the script gets to run is undefined.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "commit/ScriptText.h"
#include "harness/TempDir.h"

namespace fs = std::filesystem;
using hx_test::ReadFile;

namespace {

// A run whose script fails at its first directory, if it gets that far.
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

class Commit : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    static hx_test::ProcessResult InPrivateTmp(const std::function<void()>& body) {
        const auto result = hx_test::RunInChild(hx_test::Root, [&] {
            hx_test::UsePrivateTmp();
            body();
        });
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_EQ(result.out, "");
        return result;
    }
};

TEST_F(Commit, WritesNewScriptEachTime) {
    InPrivateTmp([] {
        CInstallBase& run = HarmlessRun();
        run.Commit();
        ASSERT_EQ(Scripts().size(), 1U);
        const std::string first = *Scripts().begin();
        run.Commit();
        EXPECT_EQ(Scripts().size(), 2U);
        EXPECT_TRUE(Scripts().contains(first));
    });
}

TEST_F(Commit, WritesTextOfWriteCommitScript) {
    InPrivateTmp([] {
        CInstallBase& run = HarmlessRun();
        run.Commit();
        ASSERT_EQ(Scripts().size(), 1U);
        const std::string text = ReadFile(*Scripts().begin());
        QString path;
        ASSERT_TRUE(run.WriteCommitScript(path, false));
        EXPECT_EQ(text, ReadFile(path.toStdString()));
    });
}

TEST_F(Commit, LeavesNoProcess) {
    InPrivateTmp([] {
        HarmlessRun().Commit();
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
    });
}

TEST_F(Commit, ReturnsWhenScriptCannotBeWritten) {
    const auto result = InPrivateTmp([] {
        CInstallBase& run = HarmlessRun();
        setenv("HX_TEST_FAIL", "mkstemp=28", 1);
        run.Commit();
        EXPECT_TRUE(fs::is_empty("/tmp"));
    });
    EXPECT_TRUE(
        result.err.starts_with("Writing Commit Script: mkstemp failed, No space left on device\n"))
        << result.err;
}

}  // namespace
