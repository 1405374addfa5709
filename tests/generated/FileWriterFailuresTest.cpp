// What every file writer says when a step fails, how it ends, and what is left then.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include "generated/EveryWriter.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

class FileWriterFailure : public testing::TestWithParam<EveryWriter> {
protected:
    void SetUp() override {
        HX_REQUIRE_NAMESPACES();
        MakeDirectory(m_home / "install", 0755);
        MakeDirectory(m_home / "install/qchemrc", 0755);
    }

    std::string File() const { return m_home / GetParam().Path(); }
    std::string Directory() const { return fs::path(File()).parent_path().string(); }

    void ExpectFailure(const World& world, const std::string& error, int status) {
        ExpectFailureOf(WithWriter(m_home.path(), GetParam().writer, world), error, status);
    }
    static void ExpectFailureOf(const ProcessResult& result, const std::string& error, int status) {
        EXPECT_EQ(result.status, status) << result.out;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, error);
    }

    // The same, with these calls failing from the writer's start.
    void ExpectFailureWith(const std::string& calls, const World& world, const std::string& error,
                           int status) {
        const auto result = WithRun(
            m_home.path(),
            [&](CInstallBase& run) {
                setenv("HX_TEST_FAIL", calls.c_str(), 1);
                (run.*GetParam().writer)();
            },
            world);
        ExpectFailureOf(result, error, status);
    }

    // The same as an ordinary user and as root, with the directory on a read-only mount.
    void ExpectFailureWhenReadOnly(const std::string& error, int status) {
        for (const auto identity : {World::Identity::User, World::Identity::Root}) {
            const auto outer = RunInChild(As(World::Identity::Root), [&] {
                MakeReadOnly(m_home / "install");
                ExpectFailure(As(identity), error, status);
            });
            EXPECT_EQ(outer.status, 0) << outer.out << outer.err;
        }
    }

    const World m_user = As(World::Identity::User);
    const World m_root = As(World::Identity::Root);
    TempDir m_home;
};

TEST_P(FileWriterFailure, AnUnwritableFileInAnUnwritableDirectoryStays) {
    MakeFile(File(), "old", 0444);
    fs::permissions(Directory(), fs::perms(0555));
    ExpectFailure(m_user, ErrorText(GetParam().UnlinkText(), "Permission denied"), 2);
    fs::permissions(Directory(), fs::perms(0755));
    EXPECT_EQ(ReadFile(File()), "old");
    EXPECT_EQ(ModeOf(File()), 0444U);
}

TEST_P(FileWriterFailure, AnUnwritableDirectoryInTheFilesPlaceCannotBeRemoved) {
    MakeDirectory(File(), 0555);
    ExpectFailure(m_user, ErrorText(GetParam().UnlinkText(), "Is a directory"), 2);
    EXPECT_TRUE(fs::is_directory(File()));
}

TEST_P(FileWriterFailure, AnExistingFileOnAReadOnlyMountCannotBeRemoved) {
    MakeFile(File(), "old", 0644);
    ExpectFailureWhenReadOnly(ErrorText(GetParam().UnlinkText(), "Read-only file system"), 2);
    EXPECT_EQ(ReadFile(File()), "old");
}

TEST_P(FileWriterFailure, ABusyFileCannotBeRemoved) {
    MakeFile(File(), "old", 0444);
    ExpectFailureWith("unlink=16", m_user,
                      ErrorText(GetParam().UnlinkText(), "Device or resource busy"), 2);
    EXPECT_EQ(ReadFile(File()), "old");
}

TEST_P(FileWriterFailure, AnUnwritableDirectoryTakesNoNewFile) {
    fs::permissions(Directory(), fs::perms(0555));
    ExpectFailure(m_user, GetParam().OpenError("Permission denied"), GetParam().OpenStatus(EACCES));
    fs::permissions(Directory(), fs::perms(0755));
    EXPECT_FALSE(fs::exists(File()));
}

TEST_P(FileWriterFailure, ADirectoryInTheFilesPlaceCannotBeOpened) {
    MakeDirectory(File(), 0755);
    for (const World& world : {m_user, m_root})
        ExpectFailure(world, GetParam().OpenError("Is a directory"), GetParam().OpenStatus(EISDIR));
    EXPECT_TRUE(fs::is_directory(File()));
}

TEST_P(FileWriterFailure, AReadOnlyMountTakesNoNewFile) {
    ExpectFailureWhenReadOnly(GetParam().OpenError("Read-only file system"),
                              GetParam().OpenStatus(EROFS));
    EXPECT_FALSE(fs::exists(File()));
}

TEST_P(FileWriterFailure, ADanglingLinkIntoNowhereCannotBeOpened) {
    fs::create_symlink(m_home / "missing/target", File());
    for (const World& world : {m_user, m_root}) {
        ExpectFailure(world, GetParam().OpenError("No such file or directory"),
                      GetParam().OpenStatus(ENOENT));
    }
    EXPECT_TRUE(fs::is_symlink(File()));
}

TEST_P(FileWriterFailure, WithoutAFreeDescriptorTheOldFileStays) {
    MakeFile(File(), "old", 0600);
    for (const World& world : {World(), m_user, m_root}) {
        ExpectFailureWith("fopen=24", world, GetParam().OpenError("Too many open files"),
                          GetParam().OpenStatus(EMFILE));
    }
    EXPECT_EQ(ReadFile(File()), "old");
    EXPECT_EQ(ModeOf(File()), 0600U);
}

// Removed first, and then not made again: there is no way back.
TEST_P(FileWriterFailure, AnUnwritableFileIsGoneWhenTheNewOneCannotBeOpened) {
    MakeFile(File(), "old", 0444);
    ExpectFailureWith("fopen=28", m_user, GetParam().OpenError("No space left on device"),
                      GetParam().OpenStatus(ENOSPC));
    EXPECT_FALSE(fs::exists(File()));
}

TEST_P(FileWriterFailure, TheModeOfAnotherUsersFileCannotBeSet) {
    MakeFile(File(), "old", 0666);
    if (!GiveAway(File()))
        GTEST_SKIP() << "only root can give a file to another user";
    // Inside its namespace root has no power over an account that it does not know.
    for (const World& world : {m_user, m_root}) {
        WriteFile(File(), "old");
        ExpectFailure(world, ErrorText(GetParam().ChmodText(), "Operation not permitted"), 2);
        EXPECT_NE(ReadFile(File()), "old");
        EXPECT_EQ(ModeOf(File()), 0666U);
    }
}

TEST_P(FileWriterFailure, WithoutAModeTheWrittenFileStays) {
    for (const World& world : {World(), m_user, m_root}) {
        MakeFile(File(), "old", 0600);
        ExpectFailureWith("chmod=5", world, ErrorText(GetParam().ChmodText(), "Input/output error"),
                          2);
        EXPECT_NE(ReadFile(File()), "old");
        EXPECT_EQ(ModeOf(File()), 0600U);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, FileWriterFailure, testing::ValuesIn(kEveryWriter),
                         [](const auto& writer) { return writer.param.name; });

// The Q-Chem writers make their directory first, and fail there.
TEST(MissingInstallDirectory, EndsEveryWriterButThoseOfQChemAtTheOpening) {
    for (const EveryWriter& writer : kEveryWriter) {
        const TempDir home;
        const auto result = WithWriter(home.path(), writer.writer);
        const bool makesDirectory = writer.family == Family::QChem;
        EXPECT_EQ(result.err, makesDirectory ? ErrorText("Unable to create \"install/qchemrc\"",
                                                         "No such file or directory")
                                             : writer.OpenError("No such file or directory"));
        EXPECT_EQ(result.status, 2) << writer.name;
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(fs::is_empty(home.path()));
    }
}

}  // namespace
}  // namespace hx_test
