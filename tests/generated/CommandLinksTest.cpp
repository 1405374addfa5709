// The links in /usr/bin, over which a directory of the test is mounted.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ostream>

#include "generated/Writing.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

struct Link {
    const char* name;
    Writer writer;
    const char* title;
};

constexpr Link links[] = {
    {"corvane26", &CInstallBase::WriteCorvaneLink, "CORVANE"},
    {"corvane26_snapshot", &CInstallBase::WriteCorvaneSnapshotLink, "CORVANE snapshot"}};

void PrintTo(const Link& link, std::ostream* out) {
    *out << link.name;
}

class CommandLink : public testing::TestWithParam<Link> {
protected:
    CommandLink() { MakeDirectory(Directory(), 0755); }
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
    void TearDown() override { fs::permissions(Directory(), fs::perms(0755)); }

    ProcessResult Write(Identity identity = Identity::User, const std::string& failing = {},
                        const RunBody& settings = {}) const {
        const World world = {
            .identity = identity, .binds = {{Directory(), "/usr/bin"}}, .input = "\n"};
        return WithWriter(
            m_home.path(), GetParam().writer, world,
            [&](CInstallBase& run) {
                run.m_installDir = QString::fromStdString(m_installDir);
                if (settings)
                    settings(run);
            },
            failing);
    }

    std::string Directory() const { return m_home / "bin"; }
    std::string Entry() const { return m_home / ("bin/" + std::string(GetParam().name)); }
    std::string Path() const { return std::string("/usr/bin/") + GetParam().name; }
    std::string Target() const { return m_installDir + "/" + GetParam().name; }

    void ExpectLink(const std::string& state, Identity identity = Identity::User,
                    const std::string& failing = {}) const {
        const auto result = Write(identity, failing);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.out, Separator + "  " + GetParam().title + " symbolic link " + state +
                                  "...\n    \"" + Path() + "\" -> \"" + Target() + "\"\n");
        EXPECT_EQ(fs::read_symlink(Entry()), Target());
    }

    // `message` is the text before and after the path.
    void ExpectFailure(const char* before, const char* after, int error, Identity identity,
                       const std::string& failing = {}) const {
        const auto result = Write(identity, failing);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, ErrorText(before + Path() + after, std::strerror(error)));
    }

    TempDir m_home;
    std::string m_installDir = "/var/corvane";
};

constexpr Identity identities[] = {Identity::User, Identity::Root};

TEST_P(CommandLink, IsCreatedWhenMissing) {
    for (const Identity identity : identities) {
        ExpectLink("created", identity);
        fs::remove(Entry());
    }
}

TEST_P(CommandLink, IsNotTouchedWhenCorrect) {
    fs::create_symlink(Target(), Entry());
    struct stat before = {};
    struct stat after = {};
    lstat(Entry().c_str(), &before);
    // An attempt to change the link would fail.
    fs::permissions(Directory(), fs::perms(0555));
    for (const Identity identity : identities)
        ExpectLink("exists and is correct", identity);
    lstat(Entry().c_str(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_P(CommandLink, IsReplacedWhenTextDiffersOrIsUnreadable) {
    fs::create_symlink(Target(), Entry());
    ExpectLink("updated", Identity::User, "readlink=5");
    fs::remove(Entry());
    const std::string name = GetParam().name;
    for (const std::string& text : {Target() + "/", Target() + "x", "/var//corvane/" + name,
                                    std::string("/opt/other"), name}) {
        fs::create_symlink(text, Entry());
        ExpectLink("updated");
        fs::remove(Entry());
    }
}

TEST_P(CommandLink, ReplacesFile) {
    for (const Identity identity : identities) {
        MakeFile(Entry(), "a program", 0444);
        ExpectLink("updated", identity);
        fs::remove(Entry());
        ASSERT_EQ(mkfifo(Entry().c_str(), 0600), 0);
        ExpectLink("updated", identity);
        fs::remove(Entry());
    }
}

TEST_P(CommandLink, KeepsSpecialCharacters) {
    m_installDir = "/opt/100% %s/ein \"Büro\"";
    ExpectLink("created");
    ExpectLink("exists and is correct");
}

TEST_P(CommandLink, IsCorrectWithTextOf1024Bytes) {
    m_installDir = "/" + std::string(1023 - 1 - std::strlen(GetParam().name), 'd');
    ASSERT_EQ(Target().size(), 1024U);
    fs::create_symlink(Target(), Entry());
    ExpectLink("exists and is correct");
}

TEST_P(CommandLink, IsReplacedWhenLongTextBeginsWithTarget) {
    m_installDir = "/" + std::string(1023 - 1 - std::strlen(GetParam().name), 'd');
    for (const char* rest : {"x", "/", "/and/much/more"}) {
        fs::create_symlink(Target() + rest, Entry());
        ExpectLink("updated");
        fs::remove(Entry());
    }
}

TEST_P(CommandLink, IsAlwaysReplacedWithTextOf1025Bytes) {
    m_installDir = "/" + std::string(1024 - 1 - std::strlen(GetParam().name), 'd');
    ExpectLink("created");
    ExpectLink("updated");
    ExpectLink("updated");
}

TEST_P(CommandLink, PausesWithoutReport) {
    const auto result = Write(Identity::User, {}, [](CInstallBase& run) {
        run.m_allowNonRoot = false;
        run.m_interactive = true;
    });
    EXPECT_EQ(result.out, Separator + Pause);
}

TEST_P(CommandLink, FailsWhenEntryIsInaccessible) {
    fs::create_symlink(Target(), Entry());
    fs::permissions(Directory(), fs::perms(0600));
    ExpectFailure("Unable to lstat \"", "\"", EACCES, Identity::User);
    fs::permissions(Directory(), fs::perms(0755));
    EXPECT_EQ(fs::read_symlink(Entry()), Target());
    ExpectFailure("Unable to lstat \"", "\"", EIO, Identity::Root, "lstat=5");
}

TEST_P(CommandLink, FailsWhenDirectoryIsInTheWay) {
    fs::create_directory(Entry());
    for (const Identity identity : identities) {
        ExpectFailure("Unable to remove \"", "\"", EISDIR, identity);
        EXPECT_TRUE(fs::is_directory(Entry()));
    }
}

TEST_P(CommandLink, FailsInUnwritableDirectory) {
    fs::permissions(Directory(), fs::perms(0555));
    ExpectFailure("Unable to create \"", " link\"", EACCES, Identity::User);
    EXPECT_TRUE(fs::is_empty(Directory()));
    fs::permissions(Directory(), fs::perms(0755));
    fs::create_symlink("/opt/other", Entry());
    fs::permissions(Directory(), fs::perms(0555));
    ExpectFailure("Unable to remove \"", "\"", EACCES, Identity::User);
    EXPECT_EQ(fs::read_symlink(Entry()), "/opt/other");
}

TEST_P(CommandLink, FailsOnReadOnlyMount) {
    WithReadOnly(Directory(),
                 [&] { ExpectFailure("Unable to create \"", " link\"", EROFS, Identity::Root); });
    fs::create_symlink("/opt/other", Entry());
    WithReadOnly(Directory(),
                 [&] { ExpectFailure("Unable to remove \"", "\"", EROFS, Identity::Root); });
}

TEST_P(CommandLink, DoesNotRestoreOldEntryAfterFailure) {
    MakeFile(Entry(), "a program", 0755);
    ExpectFailure("Unable to remove \"", "\"", EPERM, Identity::Root, "unlink=1");
    EXPECT_EQ(ReadFile(Entry()), "a program");
    ExpectFailure("Unable to create \"", " link\"", ENOSPC, Identity::Root, "symlink=28");
    EXPECT_TRUE(fs::is_empty(Directory()));
}

INSTANTIATE_TEST_SUITE_P(Of, CommandLink, testing::ValuesIn(links),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace hx_test
