// The install directory for callers that need it before the commit script runs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "commit/ScriptText.h"
#include "harness/TempDir.h"

namespace fs = std::filesystem;
using hx_test::ExpectSuccess;

namespace {

constexpr mode_t created = S_IFDIR | 0755;

mode_t ModeOf(const char* path) {
    struct stat entry = {};
    EXPECT_EQ(stat(path, &entry), 0) << path;
    return entry.st_mode;
}

class CreateInstallDirectory : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Runs `prepare` in a private /tmp, creates the directory, and runs `check`.
    static hx_test::ProcessResult Create(const char* path, const hx_test::Change& prepare,
                                         const std::function<void()>& check) {
        return hx_test::RunInChild(hx_test::Root, [&] {
            hx_test::UsePrivateTmp();
            CInstallBase& run = hx_test::NewUserRun();
            run.m_installDir = QString::fromUtf8(path);
            prepare(run);
            EXPECT_TRUE(run.CreateInstallDirectory());
            check();
        });
    }

    static void ExpectCreated(const char* path, const std::function<void()>& prepare,
                              const std::function<void()>& check) {
        ExpectSuccess(Create(
            path, [&](CInstallBase&) { prepare(); }, check));
    }

    static void ExpectFailure(const char* path, const std::function<void()>& prepare,
                              const std::string& message) {
        const auto result = Create(
            path, [&](CInstallBase&) { prepare(); }, [] {});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.err, "Corvane Install: Error\n    Unable to " + message);
    }
};

TEST_F(CreateInstallDirectory, SetsMode0755RegardlessOfUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}, mode_t{0777}}) {
        ExpectCreated(
            "/tmp/one/two", [=] { umask(mask); },
            [] {
                EXPECT_EQ(ModeOf("/tmp/one"), created);
                EXPECT_EQ(ModeOf("/tmp/one/two"), created);
                EXPECT_TRUE(fs::is_empty("/tmp/one/two"));
            });
    }
}

TEST_F(CreateInstallDirectory, KeepsExistingDirectories) {
    ExpectCreated(
        "/tmp/one/two", [] { ASSERT_EQ(mkdir("/tmp/one", 0700), 0); },
        [] {
            EXPECT_EQ(ModeOf("/tmp/one"), static_cast<mode_t>(S_IFDIR | 0700));
            EXPECT_EQ(ModeOf("/tmp/one/two"), created);
        });
    ExpectCreated(
        "/tmp/one", [] { ASSERT_EQ(mkdir("/tmp/one", 0711), 0); },
        [] { EXPECT_EQ(ModeOf("/tmp/one"), static_cast<mode_t>(S_IFDIR | 0711)); });
}

TEST_F(CreateInstallDirectory, SkipsEmptyParts) {
    ExpectCreated(
        "//tmp///one//two/", [] {}, [] { EXPECT_EQ(ModeOf("/tmp/one/two"), created); });
}

TEST_F(CreateInstallDirectory, ResolvesRelativePathFromRoot) {
    ExpectCreated(
        "tmp/one",
        [] {
            ASSERT_EQ(mkdir("/tmp/elsewhere", 0755), 0);
            ASSERT_EQ(chdir("/tmp/elsewhere"), 0);
        },
        [] {
            EXPECT_EQ(ModeOf("/tmp/one"), created);
            EXPECT_TRUE(fs::is_empty("/tmp/elsewhere"));
            ASSERT_EQ(chdir("/"), 0);
        });
}

TEST_F(CreateInstallDirectory, CreatesNothingWithoutParts) {
    for (const char* path : {"", "/", "///"}) {
        ExpectCreated(
            path, [] { setenv("HX_TEST_FAIL", "chmod=1", 1); },
            [] { EXPECT_TRUE(fs::is_empty("/tmp")); });
    }
}

TEST_F(CreateInstallDirectory, IgnoresAccessFlags) {
    for (const int access : {0, 1, 6}) {
        ExpectSuccess(Create(
            "/tmp/one", [=](CInstallBase& run) { run.m_accessFlags = access; },
            [] { EXPECT_EQ(ModeOf("/tmp/one"), created); }));
    }
}

TEST_F(CreateInstallDirectory, EncodesNamesAsUtf8) {
    ExpectCreated(
        "/tmp/für alle/donnée %s", [] {},
        [] {
            EXPECT_EQ(ModeOf("/tmp/f\xc3\xbcr alle/donn\xc3\xa9"
                             "e %s"),
                      created);
        });
}

TEST_F(CreateInstallDirectory, AcceptsFileInPlaceOfDirectory) {
    ExpectCreated(
        "/tmp/file", [] { hx_test::WriteFile("/tmp/file", "kept"); },
        [] { EXPECT_EQ(hx_test::ReadFile("/tmp/file"), "kept"); });
}

TEST_F(CreateInstallDirectory, FailsBelowFile) {
    ExpectFailure(
        "/tmp/file/one/two", [] { hx_test::WriteFile("/tmp/file", ""); },
        "mkdir \"/tmp/file/one\"\n    Not a directory\n");
}

TEST_F(CreateInstallDirectory, FailsOnDanglingLink) {
    ExpectFailure(
        "/tmp/link/one", [] { fs::create_symlink("/tmp/nowhere", "/tmp/link"); },
        "mkdir \"/tmp/link\"\n    File exists\n");
}

TEST_F(CreateInstallDirectory, FailsWhenChmodFails) {
    const hx_test::TempDir directory;
    const auto result = hx_test::RunInChild(hx_test::Root, [&] {
        CInstallBase& run = hx_test::NewUserRun();
        run.m_installDir = QString::fromStdString(directory / "one/two");
        setenv("HX_TEST_FAIL", "chmod=30", 1);
        run.CreateInstallDirectory();
    });
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "Corvane Install: Error\n    Unable to chmod \"" + directory / "one" +
                              "\"\n    Read-only file system\n");
    EXPECT_TRUE(fs::is_directory(directory / "one"));
    EXPECT_FALSE(fs::exists(directory / "one/two"));
}

}  // namespace
