// The install directory for a caller that needs it before the commit script runs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "commit/ScriptText.h"
#include "harness/Child.h"
#include "harness/TempDir.h"

namespace fs = std::filesystem;
using hx_test::ExpectAllWell;
using hx_test::Root;
using hx_test::RunInChild;

namespace {

// Everything below happens in a /tmp that is gone with the child.
hx_test::ProcessResult InPrivateTmp(const std::function<void(CInstallBase&)>& body) {
    return RunInChild(Root, [&] {
        hx_test::UsePrivateTmp();
        body(hx_test::NewUserRun());
    });
}

mode_t ModeOf(const char* path) {
    struct stat entry = {};
    EXPECT_EQ(stat(path, &entry), 0) << path;
    return entry.st_mode;
}

constexpr mode_t MadeHere = S_IFDIR | 0755;

TEST(CreateInstallDirectory, GivesItsDirectories0755WhateverTheUmask) {
    HX_REQUIRE_NAMESPACES();
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}, mode_t{0777}}) {
        ExpectAllWell(InPrivateTmp([&](CInstallBase& run) {
            umask(mask);
            run.m_installDir = QStringLiteral("/tmp/one/two");
            EXPECT_TRUE(run.CreateInstallDirectory());
            EXPECT_EQ(ModeOf("/tmp/one"), MadeHere);
            EXPECT_EQ(ModeOf("/tmp/one/two"), MadeHere);
            EXPECT_TRUE(fs::is_empty("/tmp/one/two"));
        }));
    }
}

TEST(CreateInstallDirectory, LeavesExistingDirectoriesAsTheyAre) {
    HX_REQUIRE_NAMESPACES();
    ExpectAllWell(InPrivateTmp([](CInstallBase& run) {
        ASSERT_EQ(mkdir("/tmp/one", 0700), 0);
        run.m_installDir = QStringLiteral("/tmp/one/two");
        EXPECT_TRUE(run.CreateInstallDirectory());
        EXPECT_EQ(ModeOf("/tmp/one"), static_cast<mode_t>(S_IFDIR | 0700));
        EXPECT_EQ(ModeOf("/tmp/one/two"), MadeHere);
        ASSERT_EQ(chmod("/tmp/one/two", 0711), 0);
        EXPECT_TRUE(run.CreateInstallDirectory());
        EXPECT_EQ(ModeOf("/tmp/one/two"), static_cast<mode_t>(S_IFDIR | 0711));
    }));
}

TEST(CreateInstallDirectory, SkipsEmptyPartsOfThePath) {
    HX_REQUIRE_NAMESPACES();
    ExpectAllWell(InPrivateTmp([](CInstallBase& run) {
        run.m_installDir = QStringLiteral("//tmp///one//two/");
        EXPECT_TRUE(run.CreateInstallDirectory());
        EXPECT_EQ(ModeOf("/tmp/one/two"), MadeHere);
    }));
}

TEST(CreateInstallDirectory, TakesARelativePathFromTheRoot) {
    HX_REQUIRE_NAMESPACES();
    ExpectAllWell(InPrivateTmp([](CInstallBase& run) {
        ASSERT_EQ(mkdir("/tmp/elsewhere", 0755), 0);
        ASSERT_EQ(chdir("/tmp/elsewhere"), 0);
        run.m_installDir = QStringLiteral("tmp/one");
        EXPECT_TRUE(run.CreateInstallDirectory());
        EXPECT_EQ(ModeOf("/tmp/one"), MadeHere);
        EXPECT_TRUE(fs::is_empty("/tmp/elsewhere"));
        ASSERT_EQ(chdir("/"), 0);
    }));
}

TEST(CreateInstallDirectory, DoesNothingForAPathWithoutParts) {
    HX_REQUIRE_NAMESPACES();
    for (const char* path : {"", "/", "///"}) {
        ExpectAllWell(InPrivateTmp([&](CInstallBase& run) {
            setenv("HX_TEST_FAIL", "chmod=1", 1);
            run.m_installDir = QString::fromUtf8(path);
            EXPECT_TRUE(run.CreateInstallDirectory());
            EXPECT_TRUE(fs::is_empty("/tmp"));
        }));
    }
}

TEST(CreateInstallDirectory, DoesNotLookAtTheAccessDecision) {
    HX_REQUIRE_NAMESPACES();
    for (const int access : {0, 1, 6}) {
        ExpectAllWell(InPrivateTmp([&](CInstallBase& run) {
            run.m_accessFlags = access;
            run.m_installDir = QStringLiteral("/tmp/one");
            EXPECT_TRUE(run.CreateInstallDirectory());
            EXPECT_EQ(ModeOf("/tmp/one"), MadeHere);
        }));
    }
}

TEST(CreateInstallDirectory, HandsNamesToTheSystemAsUtf8) {
    HX_REQUIRE_NAMESPACES();
    ExpectAllWell(InPrivateTmp([](CInstallBase& run) {
        run.m_installDir = QStringLiteral("/tmp/für alle/donnée %s");
        EXPECT_TRUE(run.CreateInstallDirectory());
        EXPECT_EQ(ModeOf("/tmp/f\xc3\xbcr alle/donn\xc3\xa9"
                         "e %s"),
                  MadeHere);
    }));
}

TEST(CreateInstallDirectory, AFileOnTheWayFailsAtThePartBehindIt) {
    HX_REQUIRE_NAMESPACES();
    const auto result = InPrivateTmp([](CInstallBase& run) {
        hx_test::WriteFile("/tmp/file", "");
        run.m_installDir = QStringLiteral("/tmp/file/one/two");
        run.CreateInstallDirectory();
    });
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "Corvane Install: Error\n    Unable to mkdir \"/tmp/file/one\"\n"
              "    Not a directory\n");
}

TEST(CreateInstallDirectory, AFileAtTheEndPassesForTheDirectory) {
    HX_REQUIRE_NAMESPACES();
    ExpectAllWell(InPrivateTmp([](CInstallBase& run) {
        hx_test::WriteFile("/tmp/file", "kept");
        run.m_installDir = QStringLiteral("/tmp/file");
        EXPECT_TRUE(run.CreateInstallDirectory());
        EXPECT_EQ(hx_test::ReadFile("/tmp/file"), "kept");
    }));
}

TEST(CreateInstallDirectory, ALinkToNowhereFailsInMkdir) {
    HX_REQUIRE_NAMESPACES();
    const auto result = InPrivateTmp([](CInstallBase& run) {
        fs::create_symlink("/tmp/nowhere", "/tmp/link");
        run.m_installDir = QStringLiteral("/tmp/link/one");
        run.CreateInstallDirectory();
    });
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "Corvane Install: Error\n    Unable to mkdir \"/tmp/link\"\n    File exists\n");
}

TEST(CreateInstallDirectory, AFailingChmodEndsTheRunWithTheDirectoryMade) {
    HX_REQUIRE_NAMESPACES();
    const hx_test::TempDir directory;
    const auto result = RunInChild(Root, [&] {
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
