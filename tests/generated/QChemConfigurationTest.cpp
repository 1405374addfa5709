// The Q-Chem files and the directory that they share.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "generated/Writing.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

constexpr std::pair<Writer, const char*> files[] = {{&CInstallBase::WriteQChemRC, "qchemrc"},
                                                    {&CInstallBase::WriteQCScratch, "qcscratch"}};

class QChemConfiguration : public testing::Test {
protected:
    QChemConfiguration() { MakeDirectory(m_home / "install", 0755); }

    ProcessResult Write(Writer writer, const RunBody& settings = {}) const {
        ProcessResult result = WithWriter(m_home.path(), writer, {}, settings);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        return result;
    }

    std::string Directory() const { return m_home / "install/qchemrc"; }

    // Fails with the system's text of `error` after the message.
    void ExpectFailure(Writer writer, Identity identity, const std::string& message, int error,
                       const std::string& failing = {}) const {
        const auto result = WithWriter(m_home.path(), writer, As(identity), {}, failing);
        EXPECT_EQ(result.err, ErrorText(message, std::strerror(error)));
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
    }

    TempDir m_home;
};

TEST_F(QChemConfiguration, WritesAndReportsLimits) {
    struct Limits {
        int scratchGB;
        int memoryMB;
        const char* text;
    };
    const Limits limits[] = {{100, 2048, "AO2MO_DISK      100\nMEM_TOTAL      2048\n"},
                             {0, -1, "AO2MO_DISK        0\nMEM_TOTAL        -1\n"},
                             {12345678, 123456789, "AO2MO_DISK 12345678\nMEM_TOTAL  123456789\n"},
                             {INT_MAX, INT_MIN, "AO2MO_DISK 2147483647\nMEM_TOTAL  -2147483648\n"}};
    for (const Limits& limit : limits) {
        const auto result = Write(&CInstallBase::WriteQChemRC, [&](CInstallBase& run) {
            run.m_scratchLimitGB = limit.scratchGB;
            run.m_memoryLimitMB = limit.memoryMB;
        });
        EXPECT_EQ(result.out,
                  Separator + "  Scratch limit per job: " + std::to_string(limit.scratchGB) +
                      " GB\n" + Separator +
                      "  Memory limit per job: " + std::to_string(limit.memoryMB) + " MB\n");
        EXPECT_EQ(ReadFile(m_home / "install/qchemrc/qchemrc"),
                  std::string("$rem\n") + limit.text + "$end\n");
    }
}

TEST_F(QChemConfiguration, EscapesAndReportsScratchDirectory) {
    const std::pair<const char*, const char*> directories[] = {
        {"/tmp", "/tmp"},
        {"", ""},
        {"/ein Übungs 'platz' $HOME %s", "/ein Übungs 'platz' $HOME %s"},
        {R"(a\"b)", R"(a\\\"b)"},
        {R"("")", R"(\"\")"},
        {R"(\\a\)", R"(\\\\a\\)"}};
    for (const auto& [directory, text] : directories) {
        const auto result = Write(
            &CInstallBase::WriteQCScratch,
            [name = directory](CInstallBase& run) { run.m_scratchDir = QString::fromUtf8(name); });
        EXPECT_EQ(result.out, Separator + "  Scratch storage directory: " + directory + "\n");
        EXPECT_EQ(ReadFile(m_home / "install/qchemrc/qcscratch"), text);
    }
}

TEST_F(QChemConfiguration, FirstWriterCreatesDirectory) {
    for (const auto& first : files) {
        fs::remove_all(Directory());
        Write(first.first, [](CInstallBase&) { umask(077); });
        EXPECT_EQ(ModeOf(Directory()), 0755U);
        for (const auto& [writer, file] : files)
            EXPECT_EQ(WithWriter(m_home.path(), writer, {}, {}, "mkdir=5").status, 0);
    }
}

TEST_F(QChemConfiguration, KeepsExistingDirectory) {
    MakeDirectory(m_home / "elsewhere", 0700);
    fs::create_directory_symlink(m_home / "elsewhere", Directory());
    for (const auto& [writer, file] : files) {
        Write(writer);
        EXPECT_TRUE(fs::exists(m_home / (std::string("elsewhere/") + file)));
    }
    EXPECT_EQ(ModeOf(m_home / "elsewhere"), 0700U);
}

TEST_F(QChemConfiguration, FailsWhenFileIsInTheWay) {
    HX_REQUIRE_NAMESPACES();
    MakeFile(Directory(), "in the way", 0644);
    for (const auto& [writer, file] : files) {
        for (const auto identity : {Identity::User, Identity::Root}) {
            ExpectFailure(
                writer, identity,
                "Unable to open file \"install/qchemrc/" + std::string(file) + "\" for write",
                ENOTDIR);
        }
    }
    EXPECT_EQ(ReadFile(Directory()), "in the way");
}

TEST_F(QChemConfiguration, FailsWithoutDirectory) {
    HX_REQUIRE_NAMESPACES();
    const std::string message = "Unable to create \"install/qchemrc\"";
    for (const auto& [writer, file] : files) {
        fs::permissions(m_home / "install", fs::perms(0555));
        ExpectFailure(writer, Identity::User, message, EACCES);
        fs::permissions(m_home / "install", fs::perms(0755));
        // A dangling link does not count as existing.
        fs::create_symlink(m_home / "nowhere", Directory());
        ExpectFailure(writer, Identity::Root, message, EEXIST);
        fs::remove(Directory());
        WithReadOnly(m_home / "install", [&, writer = writer] {
            ExpectFailure(writer, Identity::Root, message, EROFS);
        });
        ExpectFailure(writer, Identity::Unchanged, message, ENOSPC, "mkdir=28");
        EXPECT_TRUE(fs::is_empty(m_home / "install"));
        ExpectFailure(writer, Identity::Unchanged, "Unable to chmod \"install/qchemrc\"", EPERM,
                      "chmod=1");
        EXPECT_TRUE(fs::is_empty(Directory()));
        fs::remove(Directory());
    }
}

}  // namespace
}  // namespace hx_test
