// The files of Q-Chem and the directory that they share.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>

#include "generated/Writing.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

constexpr Writer writers[] = {&CInstallBase::WriteQChemRC, &CInstallBase::WriteQCScratch};

class QChemConfiguration : public testing::Test {
protected:
    QChemConfiguration() { MakeDirectory(m_home / "install", 0755); }

    std::string Limits(int scratch, int memory) {
        const auto result = WithRun(m_home.path(), [&](CInstallBase& run) {
            run.m_scratchLimitGB = scratch;
            run.m_memoryLimitMB = memory;
            EXPECT_EQ(run.WriteQChemRC(), 1);
        });
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        return ReadFile(m_home / "install/qchemrc/qchemrc");
    }

    std::string Scratch(const char* directory) {
        const auto result = WithRun(m_home.path(), [&](CInstallBase& run) {
            run.m_scratchDir = QString::fromUtf8(directory);
            EXPECT_EQ(run.WriteQCScratch(), 1);
            EXPECT_EQ(run.m_scratchDir, QString::fromUtf8(directory));
        });
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        return ReadFile(m_home / "install/qchemrc/qcscratch");
    }

    std::string Directory() const { return m_home / "install/qchemrc"; }

    // As these identities, with `calls` failing: the words and the status 2.
    void ExpectFailure(Writer writer, const World& world, const std::string& error,
                       const std::string& calls = {}) {
        const auto result = WithRun(
            m_home.path(),
            [&](CInstallBase& run) {
                setenv("HX_TEST_FAIL", calls.c_str(), 1);
                (run.*writer)();
            },
            world);
        EXPECT_EQ(result.err, error);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
    }

    TempDir m_home;
};

TEST_F(QChemConfiguration, TheLimitsStandRightAlignedInEightColumns) {
    EXPECT_EQ(Limits(100, 2048), "$rem\nAO2MO_DISK      100\nMEM_TOTAL      2048\n$end\n");
    EXPECT_EQ(Limits(0, 0), "$rem\nAO2MO_DISK        0\nMEM_TOTAL         0\n$end\n");
    EXPECT_EQ(Limits(-1, -1), "$rem\nAO2MO_DISK       -1\nMEM_TOTAL        -1\n$end\n");
}

TEST_F(QChemConfiguration, ALimitOfMoreDigitsWidensItsLine) {
    EXPECT_EQ(Limits(12345678, 123456789),
              "$rem\nAO2MO_DISK 12345678\nMEM_TOTAL  123456789\n$end\n");
    EXPECT_EQ(Limits(2147483647, -2147483647 - 1),
              "$rem\nAO2MO_DISK 2147483647\nMEM_TOTAL  -2147483648\n$end\n");
}

TEST_F(QChemConfiguration, TheScratchDirectoryHasNoLineEnd) {
    EXPECT_EQ(Scratch("/tmp"), "/tmp");
    EXPECT_EQ(Scratch(""), "");
    EXPECT_EQ(Scratch("/ein Übungs 'platz' $HOME %s"), "/ein Übungs 'platz' $HOME %s");
}

TEST_F(QChemConfiguration, BackslashesAreDoubledBeforeQuotesGetTheirs) {
    EXPECT_EQ(Scratch("a\\\"b"), "a\\\\\\\"b");
    EXPECT_EQ(Scratch("\"\""), "\\\"\\\"");
    EXPECT_EQ(Scratch("\\\\a\\"), "\\\\\\\\a\\\\");
}

TEST_F(QChemConfiguration, WhicheverComesFirstMakesTheDirectory) {
    for (const Writer first : writers) {
        fs::remove_all(Directory());
        const auto result = WithRun(m_home.path(), [&](CInstallBase& run) {
            umask(077);
            EXPECT_EQ((run.*first)(), 1);
            // From here on no directory can be made.
            setenv("HX_TEST_FAIL", "mkdir=5", 1);
            for (const Writer writer : writers)
                EXPECT_EQ((run.*writer)(), 1);
        });
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(ModeOf(Directory()), 0755U);
    }
}

TEST_F(QChemConfiguration, AnExistingDirectoryKeepsItsMode) {
    MakeDirectory(Directory(), 0700);
    for (const Writer writer : writers)
        EXPECT_EQ(WithWriter(m_home.path(), writer).status, 0);
    EXPECT_EQ(ModeOf(Directory()), 0700U);
}

TEST_F(QChemConfiguration, ALinkToADirectoryIsUsed) {
    MakeDirectory(m_home / "elsewhere", 0700);
    fs::create_directory_symlink(m_home / "elsewhere", Directory());
    EXPECT_EQ(Scratch("/tmp"), "/tmp");
    EXPECT_EQ(ModeOf(m_home / "elsewhere"), 0700U);
}

TEST_F(QChemConfiguration, AFileInTheDirectorysPlaceFailsWithTheFilesPath) {
    HX_REQUIRE_NAMESPACES();
    MakeFile(Directory(), "in the way", 0644);
    const char* const files[] = {"install/qchemrc/qchemrc", "install/qchemrc/qcscratch"};
    for (size_t i = 0; i < 2; ++i) {
        for (const auto identity : {World::Identity::User, World::Identity::Root}) {
            ExpectFailure(
                writers[i], As(identity),
                ErrorText("Unable to open file \"" + std::string(files[i]) + "\" for write",
                          "Not a directory"));
        }
    }
    EXPECT_EQ(ReadFile(Directory()), "in the way");
}

TEST_F(QChemConfiguration, ADirectoryThatCannotBeMadeIsNamed) {
    HX_REQUIRE_NAMESPACES();
    const std::string text = "Unable to create \"install/qchemrc\"";
    fs::permissions(m_home / "install", fs::perms(0555));
    for (const Writer writer : writers)
        ExpectFailure(writer, As(World::Identity::User), ErrorText(text, "Permission denied"));
    fs::permissions(m_home / "install", fs::perms(0755));
    // A dangling link is nothing to the test and in the way of the making.
    fs::create_symlink(m_home / "nowhere", Directory());
    for (const Writer writer : writers)
        ExpectFailure(writer, As(World::Identity::Root), ErrorText(text, "File exists"));
    fs::remove(Directory());
    for (const Writer writer : writers) {
        const auto outer = RunInChild(As(World::Identity::Root), [&] {
            MakeReadOnly(m_home / "install");
            ExpectFailure(writer, As(World::Identity::Root),
                          ErrorText(text, "Read-only file system"));
        });
        EXPECT_EQ(outer.status, 0) << outer.out;
        ExpectFailure(writer, {}, ErrorText(text, "No space left on device"), "mkdir=28");
    }
    EXPECT_TRUE(fs::is_empty(m_home / "install"));
}

TEST_F(QChemConfiguration, ADirectoryWithoutItsModeStaysAndEndsTheRun) {
    for (const Writer writer : writers) {
        ExpectFailure(writer, {},
                      ErrorText("Unable to chmod \"install/qchemrc\"", "Operation not permitted"),
                      "chmod=1");
        EXPECT_TRUE(fs::is_empty(Directory()));
        fs::remove(Directory());
    }
}

}  // namespace
}  // namespace hx_test
