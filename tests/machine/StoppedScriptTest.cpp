// Failures on the way: which end the script, with what words, and what they leave.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

// The script of a prepared machine that `spoil` has changed stops with `message`.
void ExpectStop(
    const std::function<void()>& spoil, const std::string& message,
    const std::function<void()>& look = [] {}) {
    HX_EXPECT_SCENARIO([&] {
        PrepareMachine();
        spoil();
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.out.ends_with("\n" + message + "\n")) << result.out;
        look();
    });
}

TEST(StoppedScript, AMissingTemplateLeavesTheEmptyFileThatWasToHoldIt) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string file = Tree + "/corvane26";
    ExpectStop([] { fs::remove(std::string(ProductDirectory) + "/corvane26.template"); },
               "Error, writing Corvane'26 run script, " + file,
               [&] {
                   EXPECT_TRUE(fs::is_empty(file));
                   EXPECT_FALSE(fs::exists(file + "_snapshot"));
               });
}

TEST(StoppedScript, AMissingSnapshotTemplateLeavesTheEmptyFileToo) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string file = Tree + "/corvane26_snapshot";
    ExpectStop([] { fs::remove(std::string(ProductDirectory) + "/corvane26_snapshot.template"); },
               "Error, writing Corvane'26 snapshot run script, " + file,
               [&] {
                   EXPECT_TRUE(fs::is_empty(file));
                   EXPECT_TRUE(fs::is_symlink("/usr/bin/corvane26"));
                   EXPECT_FALSE(fs::exists(Tree + "/QueueEntries"));
               });
}

TEST(StoppedScript, ATemplateThatIsGoneEmptiesTheScriptOfAnEarlierRun) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string file = Tree + "/corvane26";
    ExpectStop(
        [] {
            ASSERT_EQ(RunCommitScript(NewRootRun()).status, 0);
            fs::remove(std::string(ProductDirectory) + "/corvane26.template");
        },
        "Error, writing Corvane'26 run script, " + file, [&] { EXPECT_TRUE(fs::is_empty(file)); });
}

TEST(StoppedScript, AMissingArchiveStopsIt) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string message = ServerDirectory + "/resources";
    ExpectStop([] { fs::remove(std::string(ProductDirectory) + "/docroot/resources.tar"); },
               "Error, unpacking resources " + message,
               [] { EXPECT_FALSE(fs::exists(Tree + "/corvane26")); });
    // The words for the icons name the resources, too.
    ExpectStop([] { fs::remove(std::string(ProductDirectory) + "/docroot/icons.tar"); },
               "Error, unpacking icons " + message,
               [] { EXPECT_TRUE(fs::exists(ServerDirectory + "/resources")); });
}

TEST(StoppedScript, AFileInThePlaceOfADirectoryStopsIt) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string name :
         {"", "/corvanerc", "/corvanerc/corvane26", "/corvanerc/corvane26server"}) {
        const std::string path = Tree + name;
        ExpectStop(
            [&] {
                fs::create_directories(fs::path(path).parent_path());
                WriteFile(path, "a file");
            },
            "Error, creating directory " + path, [&] { EXPECT_EQ(ReadFile(path), "a file"); });
    }
}

TEST(StoppedScript, AMissingParentOfTheInstallDirectoryStopsIt) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        CInstallBase& run = NewRootRun();
        run.m_installDir = QStringLiteral("/var/missing/corvane");
        const auto result = RunCommitScript(run);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out,
                  "Starting Corvane'26 Installation script\n\n"
                  "Corvane Service Group created\n\nCorvane Service User created\n\n"
                  "Error, creating directory /var/missing/corvane\n");
        EXPECT_FALSE(fs::exists("/var/missing"));
    });
}

TEST(StoppedScript, AFailingModeChangeOfARunScriptStopsIt) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string name : {"corvane26", "corvane26_snapshot"}) {
        const std::string stand_in = "#!/bin/sh\n[ \"$2\" != " + Tree + "/" + name + " ]\n";
        ExpectStop([&] { WriteFile("/usr/bin/chmod", stand_in); },
                   "Error, modifying access permissions to " + Tree + "/" + name);
    }
}

TEST(StoppedScript, QueueEntriesThatCannotBeMadeStopIt) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectStop(
        [] {
            fs::create_directory(Tree);
            fs::create_symlink("/var/missing/entries", Tree + "/QueueEntries");
        },
        "Error, creating " + Tree + "/QueueEntries",
        [] { EXPECT_FALSE(fs::exists(Tree + "/QueueLimits")); });
}

TEST(StoppedScript, QueueLimitsThatCannotBeWrittenDoNot) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        fs::create_directories(Tree + "/QueueLimits");
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_EQ(Mode(Tree + "/QueueLimits"), "664");
    });
}

TEST(StoppedScript, ARunAfterTheRepairFinishesTheWork) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        const std::string archive = std::string(ProductDirectory) + "/docroot/icons.tar";
        fs::rename(archive, archive + ".away");
        EXPECT_EQ(RunCommitScript(NewRootRun()).status, 1);
        EXPECT_EQ(Access(ServerDirectory), "775 root:root");
        fs::rename(archive + ".away", archive);
        EXPECT_EQ(RunCommitScript(NewRootRun()).status, 0);
        EXPECT_EQ(Access(ServerDirectory), "775 corvsrvc:corvsrvc");
        EXPECT_TRUE(fs::exists(ServerDirectory + "/icons/icons.txt"));
    });
}

}  // namespace
