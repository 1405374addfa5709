// cv_install --remove and --undo by a regular user.
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
    hx_test::ExpectHolds(user.Run({"--remove", "--yes"}).out, "Nothing to remove.");
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
                             "  /tmp/product/qchemrc/mine: is not from a setup\n"})
        hx_test::ExpectHolds(removal.out, line);
    for (const char* name : {"corvane26_snapshot", "QueueEntries", "qchemrc/mine"})
        EXPECT_EQ(user.File(name), "mine\n") << name;
    EXPECT_TRUE(std::filesystem::is_symlink(user.Outside("corvane26")));
    EXPECT_FALSE(user.Has("qchemrc/qchemrc"));
}

TEST(CopyUndo, RestoresCopyExceptWhatWasChanged) {
    UserSetup user;
    ASSERT_EQ(user.Run({"--setup", "--user-mode", "--yes"}).status, 0);
    const std::string limits = user.File("QueueLimits");
    const std::string script = user.File("corvane26");
    const std::vector<std::string> other = {"--setup", "--user-mode",          "--yes", "-p",
                                            "chem",    "--submission-scripts", "-s",    "7"};
    for (const bool force : {false, true}) {
        ASSERT_EQ(user.Run(other).status, 0);
        EXPECT_NE(user.File("corvane26"), script);
        hx_test::WriteFile(user.Outside("QueueLimits"), "mine\n");
        const auto undo = user.Run({"--undo", "--yes", force ? "--force" : "--quiet"});
        EXPECT_EQ(undo.status, 0) << undo.err;
        EXPECT_EQ(user.File("corvane26"), script);
        EXPECT_FALSE(user.Has("corvane26_samba"));
        EXPECT_EQ(user.File("QueueLimits"), force ? limits : "mine\n") << undo.out;
        hx_test::WriteFile(user.Outside("QueueLimits"), limits);
    }
}

// What a failed setup left is neither repeated nor undone alone.
TEST(CopyUndo, FurtherSetupRestoresFilesFirst) {
    UserSetup user;
    const std::string before = ListOf(user);
    const std::string archive = user.Outside("docroot/icons.tar");
    const std::string icons = hx_test::ReadFile(archive);
    hx_test::WriteFile(archive, icons.substr(0, 3000));
    ASSERT_NE(user.Run({"--setup", "--user-mode", "--yes"}).status, 0);
    EXPECT_TRUE(user.Has("corvanerc/corvane26server/icons"));
    hx_test::WriteFile(archive, icons);
    const auto dry = user.Run({"--setup", "--user-mode", "--yes", "--dry-run"});
    EXPECT_EQ(dry.status, 67) << dry.err;
    hx_test::ExpectHolds(dry.err, " was not completed\n");
    const auto further = user.Run({"--setup", "--user-mode", "--yes"});
    EXPECT_EQ(further.status, 0) << further.err;
    hx_test::ExpectHolds(further.out, "Restored the files from before the setup of ");
    EXPECT_EQ(user.Run({"--undo", "--yes"}).status, 0);
    for (const std::string& script : user.CommitScripts())
        std::filesystem::remove(script);
    EXPECT_EQ(ListOf(user), before);
    EXPECT_EQ(user.Run({"--undo", "--yes"}).status, 68);
}

}  // namespace
