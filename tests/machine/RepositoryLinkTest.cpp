// How the repository of the last version is carried over.
#include <gtest/gtest.h>

#include <filesystem>

#include "machine/Installation.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

const std::string Settings = std::string(SharedDirectory) + "/corvanerc";
const std::string Old = Settings + "/corvane24server/CorvaneServerRepository";
const std::string New = Settings + "/corvane26server/CorvaneServerRepository";

void PrepareLastVersion() {
    PrepareMachine();
    fs::create_directories(Settings + "/corvane24server");
}

TEST(RepositoryLink, LeadsToADirectoryOfTheLastVersion) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareLastVersion();
        fs::create_directory(Old);
        EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
        EXPECT_EQ(fs::read_symlink(New), Old);
    });
}

TEST(RepositoryLink, LeadsToALinkThatWorks) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareLastVersion();
        fs::create_directory_symlink("/srv", Old);
        EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
        EXPECT_EQ(fs::read_symlink(New), Old);
    });
}

TEST(RepositoryLink, CopiesTheTextOfALinkWhoseTargetIsGone) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareLastVersion();
        fs::create_symlink("/mnt/not mounted/repository", Old);
        EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
        EXPECT_EQ(fs::read_symlink(New), "/mnt/not mounted/repository");
    });
}

TEST(RepositoryLink, IsMadeInTheRunThatMakesTheServerDirectoryOnly) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareLastVersion();
        EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
        EXPECT_FALSE(fs::exists(fs::symlink_status(New)));
        fs::create_directory(Old);
        EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
        EXPECT_FALSE(fs::exists(fs::symlink_status(New)));
    });
}

TEST(RepositoryLink, IsNotTouchedBySecondRuns) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareLastVersion();
        fs::create_directory(Old);
        EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
        fs::remove(New);
        fs::create_symlink("/srv/moved", New);
        const std::string inode = Inode(New);
        EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
        EXPECT_EQ(fs::read_symlink(New), "/srv/moved");
        EXPECT_EQ(Inode(New), inode);
    });
}

}  // namespace
