// What all file writers do alike when nothing fails.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "generated/EveryWriter.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

struct stat StatusOf(const std::string& path) {
    struct stat entry = {};
    EXPECT_EQ(lstat(path.c_str(), &entry), 0) << path;
    return entry;
}

class FileWriter : public testing::TestWithParam<EveryWriter> {
protected:
    void SetUp() override {
        MakeDirectory(m_home / "install", 0755);
        MakeDirectory(m_home / "install/qchemrc", 0755);
    }

    std::string File() const { return m_home / GetParam().Path(); }

    ProcessResult Write(const World& world = {}) {
        ProcessResult result = WithWriter(m_home.path(), GetParam().writer, world);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(result.err, "");
        return result;
    }

    // What a first run writes.
    std::string Content() {
        const TempDir other;
        MakeDirectory(other / "install", 0755);
        EXPECT_EQ(WithWriter(other.path(), GetParam().writer).status, 0);
        return ReadFile(other / GetParam().Path());
    }

    TempDir m_home;
};

TEST_P(FileWriter, TheModeIsThatOfTheTableWhateverTheUmask) {
    for (const mode_t mask : {0U, 077U, 0777U}) {
        fs::remove(File());
        const auto result = WithRun(m_home.path(), [&](CInstallBase& run) {
            umask(mask);
            EXPECT_EQ((run.*GetParam().writer)(), 1);
        });
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(ModeOf(File()), GetParam().mode) << mask;
    }
}

TEST_P(FileWriter, AnExistingFileGetsTheModeOfTheTable) {
    for (const mode_t mode : {0600U, 0777U, 04755U}) {
        MakeFile(File(), "", mode);
        Write();
        EXPECT_EQ(ModeOf(File()), GetParam().mode);
    }
}

TEST_P(FileWriter, AFileThatMayBeWrittenIsTruncatedInPlace) {
    MakeFile(File(), std::string(50000, 'x'), 0600);
    fs::create_hard_link(File(), m_home / "other");
    const ino_t inode = StatusOf(File()).st_ino;
    Write();
    EXPECT_EQ(StatusOf(File()).st_ino, inode);
    EXPECT_EQ(ReadFile(m_home / "other"), Content());
}

TEST_P(FileWriter, AFileThatMayNotBeWrittenIsReplacedByANewOne) {
    HX_REQUIRE_NAMESPACES();
    MakeFile(File(), "old", 0444);
    fs::create_hard_link(File(), m_home / "other");
    Write(As(World::Identity::User));
    EXPECT_NE(StatusOf(File()).st_ino, StatusOf(m_home / "other").st_ino);
    EXPECT_EQ(ReadFile(m_home / "other"), "old");
    EXPECT_EQ(ReadFile(File()), Content());
    EXPECT_EQ(ModeOf(File()), GetParam().mode);
}

TEST_P(FileWriter, RootWritesOverAFileThatNobodyMayWrite) {
    HX_REQUIRE_NAMESPACES();
    MakeFile(File(), "old", 0444);
    const ino_t inode = StatusOf(File()).st_ino;
    Write(As(World::Identity::Root));
    EXPECT_EQ(StatusOf(File()).st_ino, inode);
    EXPECT_EQ(ReadFile(File()), Content());
}

TEST_P(FileWriter, AnUnwritableFileOfAnotherUserBecomesTheCurrentUsers) {
    HX_REQUIRE_NAMESPACES();
    MakeFile(File(), "old", 0644);
    if (!GiveAway(File()))
        GTEST_SKIP() << "only root can give a file to another user";
    Write(As(World::Identity::User));
    EXPECT_EQ(StatusOf(File()).st_uid, geteuid());
    EXPECT_EQ(ReadFile(File()), Content());
}

TEST_P(FileWriter, AnotherUsersFileThatRootMayWriteKeepsItsOwner) {
    MakeFile(File(), "old", 0644);
    if (!GiveAway(File()))
        GTEST_SKIP() << "only root can give a file to another user";
    const uid_t owner = StatusOf(File()).st_uid;
    Write();
    EXPECT_EQ(StatusOf(File()).st_uid, owner);
    EXPECT_EQ(ReadFile(File()), Content());
    EXPECT_EQ(ModeOf(File()), GetParam().mode);
}

TEST_P(FileWriter, ALinkIsFollowed) {
    MakeFile(m_home / "target", "old", 0600);
    fs::create_symlink(m_home / "target", File());
    Write();
    EXPECT_TRUE(fs::is_symlink(File()));
    EXPECT_EQ(ReadFile(m_home / "target"), Content());
    EXPECT_EQ(ModeOf(m_home / "target"), GetParam().mode);
}

TEST_P(FileWriter, ALinkToAFileThatMayNotBeWrittenIsRemoved) {
    HX_REQUIRE_NAMESPACES();
    MakeFile(m_home / "target", "old", 0444);
    fs::create_symlink(m_home / "target", File());
    Write(As(World::Identity::User));
    EXPECT_FALSE(fs::is_symlink(File()));
    EXPECT_EQ(ReadFile(File()), Content());
    EXPECT_EQ(ReadFile(m_home / "target"), "old");
}

TEST_P(FileWriter, WhatADanglingLinkNamesIsCreated) {
    fs::create_symlink(m_home / "target", File());
    Write();
    EXPECT_TRUE(fs::is_symlink(File()));
    EXPECT_EQ(ReadFile(m_home / "target"), Content());
}

TEST_P(FileWriter, AFullDiscGivesAShortFileAndAReportOfSuccess) {
    HX_REQUIRE_NAMESPACES();
    const std::string install = m_home / "install";
    ProcessResult written;
    // The file system vanishes with the child, so the child itself looks at what is left.
    const auto asUser = [&](World::Identity identity) {
        return RunInChild(As(World::Identity::Root), [&] {
            MountTmpfs(install, "32k");
            fs::create_directory(install + "/qchemrc");
            std::string filler(1 << 20, 'x');
            WriteFile(install + "/filler", filler);
            ASSERT_LT(fs::file_size(install + "/filler"), filler.size());
            WithWriter(m_home.path(), GetParam().writer, As(identity));
            const ProcessResult result = WithWriter(m_home.path(), GetParam().writer, As(identity));
            EXPECT_EQ(result.status, 0) << result.out << result.err;
            EXPECT_EQ(result.err, "");
            if (GetParam().family == Family::Script) {
                EXPECT_NE(result.out.find(" updated"), std::string::npos);
            }
            EXPECT_EQ(ReadFile(File()), "");
            EXPECT_EQ(ModeOf(File()), GetParam().mode);
        });
    };
    for (const auto identity : {World::Identity::User, World::Identity::Root}) {
        written = asUser(identity);
        EXPECT_EQ(written.status, 0) << written.out << written.err;
    }
}

INSTANTIATE_TEST_SUITE_P(Of, FileWriter, testing::ValuesIn(kEveryWriter),
                         [](const auto& writer) { return writer.param.name; });

}  // namespace
}  // namespace hx_test
