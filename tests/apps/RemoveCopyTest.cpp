// cv_install --remove by a regular user.
#include <gtest/gtest.h>

#include <filesystem>

#include "apps/UserSetup.h"
#include "harness/Expect.h"

namespace {

// Everything in the private copy and below the records.
std::string ListOf(const UserSetup& user) {
    return hx_test::Run({"sh", "-c",
                         "cd \"$0\" && find . ! -name '*.log' ! -path ./state ! -path . | sort",
                         user.Root()})
        .out;
}

TEST(CopyRemoval, LeavesProductAsItWasBefore) {
    UserSetup user;
    const std::string before = ListOf(user);
    ASSERT_EQ(user.Run({"--setup", "--user-mode", "--yes", "--submission-scripts"}).status, 0);
    const std::string after = ListOf(user);
    EXPECT_NE(after, before);
    EXPECT_EQ(user.Run({"--remove", "--dry-run"}).status, 0);
    EXPECT_EQ(ListOf(user), after);
    EXPECT_EQ(user.Run({"--remove"}, "n\n").status, 9);
    EXPECT_EQ(ListOf(user), after);
    const auto removal = user.Run({"--remove", "--yes"});
    EXPECT_EQ(removal.status, 0) << removal.err;
    EXPECT_FALSE(user.Has("corvane26"));
    EXPECT_TRUE(user.Has("QueueLimits"));
    const auto purge = user.Run({"--remove", "--purge", "--yes"});
    EXPECT_EQ(purge.status, 0) << purge.err;
    EXPECT_EQ(ListOf(user), before) << purge.out;
    EXPECT_EQ(user.Run({"--remove", "--yes"}).status, 68);
}

TEST(CopyRemoval, KeepsWhatWasChanged) {
    UserSetup user;
    ASSERT_EQ(user.Run({"--setup", "--user-mode", "--yes"}).status, 0);
    for (const char* name : {"corvane26_snapshot", "QueueEntries", "qchemrc/mine"})
        hx_test::WriteFile(user.Outside(name), "mine\n");
    std::filesystem::remove(user.Outside("corvane26"));
    std::filesystem::create_symlink("QueueEntries", user.Outside("corvane26"));
    const auto removal = user.Run({"--remove", "--purge", "--yes"});
    EXPECT_EQ(removal.status, 0) << removal.err;
    for (const char* line : {"  /tmp/product/corvane26: changed after the setup\n",
                             "  /tmp/product/corvane26_snapshot: changed after the setup\n",
                             "  /tmp/product/QueueEntries: contains jobs\n",
                             "/tmp/product/qchemrc was kept: it contains other entries\n"})
        hx_test::ExpectHolds(removal.out, line);
    for (const char* name : {"corvane26_snapshot", "QueueEntries", "qchemrc/mine"})
        EXPECT_EQ(user.File(name), "mine\n") << name;
    EXPECT_TRUE(std::filesystem::is_symlink(user.Outside("corvane26")));
    EXPECT_FALSE(user.Has("qchemrc/qchemrc"));
}

}  // namespace
