// The links in /usr/bin, which a directory of the test's own stands for.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
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

constexpr Link kLinks[] = {
    {"corvane26", &CInstallBase::WriteCorvaneLink, "CORVANE"},
    {"corvane26_snapshot", &CInstallBase::WriteCorvaneSnapshotLink, "CORVANE snapshot"}};

void PrintTo(const Link& link, std::ostream* out) {
    *out << link.name;
}

class CommandLink : public testing::TestWithParam<Link> {
protected:
    CommandLink() { MakeDirectory(m_home / "bin", 0755); }
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
    void TearDown() override { fs::permissions(m_home / "bin", fs::perms(0755)); }

    World Bound(World::Identity identity) const {
        return {.identity = identity, .binds = {{m_home / "bin", "/usr/bin"}}};
    }
    std::vector<World> BothWorlds() const {
        return {Bound(World::Identity::User), Bound(World::Identity::Root)};
    }

    ProcessResult Keep(const World& world, const std::string& calls = {}) const {
        return WithRun(
            m_home.path(),
            [&](CInstallBase& run) {
                run.m_installDir = QString::fromStdString(m_installDir);
                setenv("HX_TEST_FAIL", calls.c_str(), 1);
                EXPECT_EQ((run.*GetParam().writer)(), 1);
            },
            world);
    }

    std::string Entry() const { return m_home / ("bin/" + std::string(GetParam().name)); }
    std::string Path() const { return std::string("/usr/bin/") + GetParam().name; }
    std::string Target() const { return m_installDir + "/" + GetParam().name; }

    void ExpectLink(const ProcessResult& result, const std::string& state) const {
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.out, kSeparator + "\n  " + GetParam().title + " symbolic link " + state +
                                  "...\n    \"" + Path() + "\" -> \"" + Target() + "\"\n");
        EXPECT_EQ(fs::read_symlink(Entry()), Target());
    }
    void ExpectFailure(const ProcessResult& result, const std::string& message,
                       const std::string& reason) const {
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, ErrorText(message, reason));
    }

    TempDir m_home;
    std::string m_installDir = "/var/corvane";
};

TEST_P(CommandLink, IsCreatedWhereNothingStands) {
    for (const World& world : BothWorlds()) {
        ExpectLink(Keep(world), "created");
        fs::remove(Entry());
    }
}

TEST_P(CommandLink, IsLeftAloneWhenItIsCorrect) {
    fs::create_symlink(Target(), Entry());
    struct stat before = {};
    struct stat after = {};
    lstat(Entry().c_str(), &before);
    // Without the right to write, an attempt to change it would fail.
    fs::permissions(m_home / "bin", fs::perms(0555));
    for (const World& world : BothWorlds())
        ExpectLink(Keep(world), "exists and is correct");
    lstat(Entry().c_str(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_P(CommandLink, IsReplacedWhenItsTextDiffers) {
    for (const std::string& text :
         {Target() + "/", Target() + "x", "/var//corvane/" + std::string(GetParam().name),
          std::string("/opt/other"), std::string(GetParam().name)}) {
        fs::create_symlink(text, Entry());
        ExpectLink(Keep(Bound(World::Identity::User)), "updated");
        fs::remove(Entry());
    }
}

TEST_P(CommandLink, AFileInItsPlaceIsReplaced) {
    for (const World& world : BothWorlds()) {
        MakeFile(Entry(), "a program", 0444);
        ExpectLink(Keep(world), "updated");
        fs::remove(Entry());
        ASSERT_EQ(mkfifo(Entry().c_str(), 0600), 0);
        ExpectLink(Keep(world), "updated");
        fs::remove(Entry());
    }
}

TEST_P(CommandLink, NamesAreTakenAsTheyAre) {
    m_installDir = "/opt/100% %s/ein \"Büro\"";
    ExpectLink(Keep(Bound(World::Identity::User)), "created");
    ExpectLink(Keep(Bound(World::Identity::User)), "exists and is correct");
}

TEST_P(CommandLink, ATextBeyondTheLimitIsTakenForAnotherOne) {
    const size_t suffix = Target().size() - m_installDir.size();
    m_installDir = "/" + std::string(1023 - suffix, 'd');
    ASSERT_EQ(Target().size(), 1024U);
    fs::create_symlink(Target(), Entry());
    ExpectLink(Keep(Bound(World::Identity::User)), "exists and is correct");
    fs::remove(Entry());
    m_installDir += "d";
    fs::create_symlink(Target(), Entry());
    ExpectLink(Keep(Bound(World::Identity::User)), "updated");
    ExpectLink(Keep(Bound(World::Identity::User)), "updated");
}

TEST_P(CommandLink, ALinkThatCannotBeReadIsReplaced) {
    fs::create_symlink(Target(), Entry());
    ExpectLink(Keep(Bound(World::Identity::User), "readlink=5"), "updated");
}

TEST_P(CommandLink, ASilentRunOnlySeparatesAndPauses) {
    World world = Bound(World::Identity::User);
    world.input = "\n";
    const auto result = WithRun(
        m_home.path(),
        [&](CInstallBase& run) {
            run.m_allowNonRoot = false;
            run.m_interactive = true;
            EXPECT_EQ((run.*GetParam().writer)(), 1);
        },
        world);
    EXPECT_EQ(result.out, kSeparator + "\n[Press \"Enter\" key to continue]");
}

TEST_P(CommandLink, ADirectoryThatMayNotBeSearchedEndsTheRun) {
    fs::create_symlink(Target(), Entry());
    fs::permissions(m_home / "bin", fs::perms(0600));
    const auto result = Keep(Bound(World::Identity::User));
    fs::permissions(m_home / "bin", fs::perms(0755));
    ExpectFailure(result, "Unable to lstat \"" + Path() + "\"", "Permission denied");
    EXPECT_EQ(fs::read_symlink(Entry()), Target());
}

TEST_P(CommandLink, AnEntryThatCannotBeLookedAtEndsTheRun) {
    ExpectFailure(Keep(Bound(World::Identity::Root), "lstat=5"),
                  "Unable to lstat \"" + Path() + "\"", "Input/output error");
}

TEST_P(CommandLink, ADirectoryInItsPlaceEndsTheRun) {
    fs::create_directory(Entry());
    for (const World& world : BothWorlds()) {
        ExpectFailure(Keep(world), "Unable to remove \"" + Path() + "\"", "Is a directory");
        EXPECT_TRUE(fs::is_directory(Entry()));
    }
}

TEST_P(CommandLink, WithoutTheRightToWriteTheWrongLinkStays) {
    fs::create_symlink("/opt/other", Entry());
    fs::permissions(m_home / "bin", fs::perms(0555));
    ExpectFailure(Keep(Bound(World::Identity::User)), "Unable to remove \"" + Path() + "\"",
                  "Permission denied");
    EXPECT_EQ(fs::read_symlink(Entry()), "/opt/other");
}

TEST_P(CommandLink, WithoutTheRightToWriteNoLinkIsMade) {
    fs::permissions(m_home / "bin", fs::perms(0555));
    ExpectFailure(Keep(Bound(World::Identity::User)), "Unable to create \"" + Path() + " link\"",
                  "Permission denied");
    EXPECT_TRUE(fs::is_empty(m_home / "bin"));
}

TEST_P(CommandLink, AReadOnlyMountStopsRootToo) {
    const auto inside = [&] {
        return RunInChild(As(World::Identity::Root), [&] {
            MakeReadOnly(m_home / "bin");
            const bool present = fs::is_symlink(Entry());
            ExpectFailure(Keep(Bound(World::Identity::Root)),
                          present ? "Unable to remove \"" + Path() + "\""
                                  : "Unable to create \"" + Path() + " link\"",
                          "Read-only file system");
        });
    };
    auto result = inside();
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    fs::create_symlink("/opt/other", Entry());
    result = inside();
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST_P(CommandLink, TheOldEntryIsGoneWhenTheNewLinkFails) {
    MakeFile(Entry(), "a program", 0755);
    ExpectFailure(Keep(Bound(World::Identity::Root), "symlink=28"),
                  "Unable to create \"" + Path() + " link\"", "No space left on device");
    EXPECT_TRUE(fs::is_empty(m_home / "bin"));
}

TEST_P(CommandLink, AFailingRemovalLeavesTheOldEntry) {
    MakeFile(Entry(), "a program", 0755);
    ExpectFailure(Keep(Bound(World::Identity::Root), "unlink=1"),
                  "Unable to remove \"" + Path() + "\"", "Operation not permitted");
    EXPECT_EQ(ReadFile(Entry()), "a program");
}

INSTANTIATE_TEST_SUITE_P(Of, CommandLink, testing::ValuesIn(kLinks),
                         [](const auto& link) { return link.param.name; });

}  // namespace
}  // namespace hx_test
