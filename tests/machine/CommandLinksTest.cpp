// The links in /usr/bin: made, kept, replaced, and what is never removed.
#include <gtest/gtest.h>

#include <filesystem>

#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

const std::string LinkNames[] = {"corvane26", "corvane26_snapshot"};

std::string Link(const std::string& name) {
    return "/usr/bin/" + name;
}

std::string Target(const std::string& name) {
    return std::string(SharedDirectory) + "/" + name;
}

TEST(CommandLinks, ARightLinkIsKept) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        ASSERT_EQ(RunCommitScript(NewRootRun()).status, 0);
        const std::string inodes[] = {Inode(Link(LinkNames[0])), Inode(Link(LinkNames[1]))};
        ASSERT_EQ(RunCommitScript(NewRootRun()).status, 0);
        EXPECT_EQ(Inode(Link(LinkNames[0])), inodes[0]);
        EXPECT_EQ(Inode(Link(LinkNames[1])), inodes[1]);
    });
}

// The text of the link counts, not the file that it reaches.
TEST(CommandLinks, ALinkWithAnyOtherTextIsReplaced) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        for (const std::string prefix :
             {"/opt/elsewhere/", "/var/../var/corvane/", "../../var/corvane/"}) {
            for (const auto& name : LinkNames) {
                fs::remove(Link(name));
                fs::create_symlink(prefix + name, Link(name));
            }
            ASSERT_EQ(RunCommitScript(NewRootRun()).status, 0);
            for (const auto& name : LinkNames)
                EXPECT_EQ(fs::read_symlink(Link(name)), Target(name)) << prefix;
        }
    });
}

TEST(CommandLinks, AFileInThePlaceOfALinkStopsTheScriptAndStays) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& name : LinkNames) {
        HX_EXPECT_SCENARIO([&] {
            PrepareMachine();
            WriteFile(Link(name), "somebody else's");
            const auto result = RunCommitScript(NewRootRun());
            EXPECT_EQ(result.status, 1);
            EXPECT_TRUE(
                result.out.ends_with("\nError, creating /usr/bin/" + name + " symbolic link\n"))
                << result.out;
            EXPECT_EQ(ReadFile(Link(name)), "somebody else's");
            EXPECT_FALSE(fs::exists(Target("QueueEntries")));
            EXPECT_EQ(fs::exists(Target("corvane26_snapshot")), name == "corvane26_snapshot");
        });
    }
}

TEST(CommandLinks, AWrongLinkThatCannotBeRemovedStopsTheScript) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& name : LinkNames) {
        HX_EXPECT_SCENARIO([&] {
            PrepareMachine();
            fs::create_symlink("/opt/elsewhere", Link(name));
            WriteFile("/usr/bin/rm", "#!/bin/sh\nexit 1\n");
            const auto result = RunCommitScript(NewRootRun());
            EXPECT_EQ(result.status, 1);
            EXPECT_TRUE(result.out.ends_with("\nError, removing  /usr/bin/" + name + "\n"))
                << result.out;
        });
    }
}

}  // namespace
