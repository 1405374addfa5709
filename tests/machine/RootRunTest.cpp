// What root's commit script makes of a fresh machine, and what it leaves alone when it runs again.
#include <gtest/gtest.h>

#include <filesystem>

#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

void RunTo(int status, CInstallBase& run) {
    const auto result = RunCommitScript(run);
    ASSERT_EQ(result.status, status) << result.out << result.err;
}

TEST(RootRun, MakesTheTreeWithItsModesAndOwners) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        umask(077);
        RunTo(0, NewRootRun());
        EXPECT_EQ(Access(Tree), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(Tree + "/corvanerc"), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(Tree + "/corvanerc/corvane26"), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(ServerDirectory), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(Tree + "/corvane26"), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(Tree + "/corvane26_snapshot"), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(Tree + "/QueueEntries"), "666 corvsrvc:corvsrvc");
        EXPECT_EQ(Access(Tree + "/QueueLimits"), "664 corvsrvc:corvsrvc");
        EXPECT_FALSE(fs::exists(fs::symlink_status(ServerDirectory + "/CorvaneServerRepository")));
    });
}

TEST(RootRun, UnpacksTheServerFilesAsTheyWerePacked) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        for (const std::string name : {"resources", "icons"}) {
            const std::string directory = ServerDirectory + "/" + name;
            const std::string file = directory + "/" + name + ".txt";
            EXPECT_EQ(Access(directory), "750 corvsrvc:corvsrvc");
            EXPECT_EQ(Access(file), "640 corvsrvc:corvsrvc");
            EXPECT_EQ(ReadFile(file), "content of " + name + "\n");
        }
    });
}

TEST(RootRun, FillsEveryPlaceholderOfTheTemplates) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        EXPECT_EQ(ReadFile(Tree + "/corvane26"),
                  RunScript(RunScriptValues(Tree, ProductDirectory)));
        EXPECT_EQ(ReadFile(Tree + "/corvane26_snapshot"), SnapshotScript(Tree, ProductDirectory));
    });
}

TEST(RootRun, LinksBothCommands) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        EXPECT_EQ(fs::read_symlink("/usr/bin/corvane26"), "/var/corvane/corvane26");
        EXPECT_EQ(fs::read_symlink("/usr/bin/corvane26_snapshot"),
                  "/var/corvane/corvane26_snapshot");
    });
}

TEST(RootRun, WritesAnEmptyQueueAndItsLimits) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        EXPECT_TRUE(fs::is_regular_file(Tree + "/QueueEntries"));
        EXPECT_EQ(ReadFile(Tree + "/QueueEntries"), "");
        EXPECT_EQ(ReadFile(Tree + "/QueueLimits"),
                  "MaxThreads: 12\nMemoryPerThreadMB: 2048\nScratch: /scratch/chem\n"
                  "DiskPerThreadGB: 50\n");
    });
}

TEST(RootRun, ASecondRunCorrectsNoDirectoryModeButAppliesTheOwnersAgain) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        const std::string directories[] = {Tree, Tree + "/corvanerc", Tree + "/corvanerc/corvane26",
                                           ServerDirectory};
        for (const auto& directory : directories)
            fs::permissions(directory, fs::perms::owner_all);
        ASSERT_EQ(hx_test::Run({"chown", "-R", "root:root", Tree}).status, 0);
        RunTo(0, NewRootRun());
        for (const auto& directory : directories)
            EXPECT_EQ(Access(directory), "700 corvsrvc:corvsrvc") << directory;
        for (const std::string name : {"resources", "resources/resources.txt", "icons"})
            EXPECT_EQ(Access(ServerDirectory + "/" + name).substr(4), "corvsrvc:corvsrvc") << name;
        for (const std::string name : {"corvane26", "corvane26_snapshot", "QueueEntries"})
            EXPECT_EQ(Access(Tree + "/" + name).substr(4), "corvsrvc:corvsrvc") << name;
    });
}

TEST(RootRun, ASecondRunWritesBothScriptsAnewAndCorrectsTheirModes) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        for (const std::string name : {"/corvane26", "/corvane26_snapshot"}) {
            WriteFile(Tree + name, std::string(100000, 'x'));
            fs::permissions(Tree + name, fs::perms::owner_all);
        }
        RunTo(0, NewRootRun());
        EXPECT_EQ(ReadFile(Tree + "/corvane26"),
                  RunScript(RunScriptValues(Tree, ProductDirectory)));
        EXPECT_EQ(ReadFile(Tree + "/corvane26_snapshot"), SnapshotScript(Tree, ProductDirectory));
        EXPECT_EQ(Mode(Tree + "/corvane26"), "775");
        EXPECT_EQ(Mode(Tree + "/corvane26_snapshot"), "775");
    });
}

TEST(RootRun, ASetUserIdBitOnTheRunScriptIsTakenAway) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        ASSERT_EQ(hx_test::Run({"chmod", "4775", Tree + "/corvane26_snapshot"}).status, 0);
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Mode(Tree + "/corvane26_snapshot"), "775");
    });
}

TEST(RootRun, ASecondRunKeepsTheQueueAndWritesTheLimitsAnew) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        WriteFile(Tree + "/QueueEntries", "1 chem waiting\n");
        fs::permissions(Tree + "/QueueEntries", fs::perms::owner_read);
        WriteFile(Tree + "/QueueLimits", "MaxThreads: 3\nUnknown: kept by no one\n");
        fs::permissions(Tree + "/QueueLimits", fs::perms::all);
        CInstallBase& run = NewRootRun();
        run.m_memoryLimitMB = 4096;
        RunTo(0, run);
        EXPECT_EQ(ReadFile(Tree + "/QueueEntries"), "1 chem waiting\n");
        EXPECT_EQ(Mode(Tree + "/QueueEntries"), "666");
        EXPECT_EQ(ReadFile(Tree + "/QueueLimits"),
                  "MaxThreads: 12\nMemoryPerThreadMB: 4096\nScratch: /scratch/chem\n"
                  "DiskPerThreadGB: 50\n");
        EXPECT_EQ(Mode(Tree + "/QueueLimits"), "664");
    });
}

TEST(RootRun, ServerFilesAreUnpackedAgainOnlyWhereTheirDirectoryIsGone) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        fs::remove(ServerDirectory + "/resources/resources.txt");
        fs::remove_all(ServerDirectory + "/icons");
        RunTo(0, NewRootRun());
        EXPECT_TRUE(fs::is_empty(ServerDirectory + "/resources"));
        EXPECT_EQ(ReadFile(ServerDirectory + "/icons/icons.txt"), "content of icons\n");
    });
}

TEST(RootRun, AnotherQueueTypeChangesTheRunScriptAndNothingElse) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        RunTo(0, NewRootRun());
        const auto list = [] {
            return hx_test::Run({"find", Tree, "/usr/bin/corvane26", "/usr/bin/corvane26_snapshot",
                                 "-printf", "%p %i %m %u %g %s %l\n"})
                .out;
        };
        CInstallBase& run = NewRootRun();
        run.m_queueType = CInstallBase::QueueInternal;
        const std::string before = list();
        RunTo(0, run);
        Values values = RunScriptValues(Tree, ProductDirectory);
        values["CORV_QUEUE_TYPE"] = "INTERNAL";
        values["CORV_QUEUE_NAME"] = "";
        values["CORV_PARTITION_NAME"] = "";
        EXPECT_EQ(ReadFile(Tree + "/corvane26"), RunScript(values));
        // Back to the first type, so that the run script has its first size again.
        RunTo(0, NewRootRun());
        EXPECT_EQ(list(), before);
    });
}

TEST(RootRun, AClusterNodeGetsNoServerFilesButTheirDirectoryAndTheLinks) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        CInstallBase& run = NewRootRun();
        run.m_clusterNode = true;
        const auto result = RunCommitScript(run);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(Access(ServerDirectory), "775 corvsrvc:corvsrvc");
        EXPECT_TRUE(fs::is_empty(ServerDirectory));
        EXPECT_TRUE(fs::is_symlink("/usr/bin/corvane26"));
        Values values = RunScriptValues(Tree, ProductDirectory);
        values["CORV_CLUSTER_NODE"] = "YES";
        EXPECT_EQ(ReadFile(Tree + "/corvane26"), RunScript(values));
    });
}

TEST(RootRun, AFailingOwnerLineStopsNothing) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        CInstallBase& run = NewRootRun();
        run.m_clusterNode = true;
        WriteFile("/usr/bin/chown", "#!/bin/sh\nexit 1\n");
        const auto result = RunCommitScript(run);
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_EQ(Access(Tree + "/QueueLimits"), "664 root:root");
    });
}

TEST(RootRun, TheScriptOfRootRefusesAnotherUser) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        QString path;
        ASSERT_TRUE(NewRootRun().WriteCommitScript(path, false));
        ASSERT_EQ(hx_test::Run({"chmod", "644", path.toStdString()}).status, 0);
        const auto result = hx_test::Run({"setpriv", "--reuid=12345", "--regid=12345",
                                          "--clear-groups", "/bin/bash", path.toStdString()});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out,
                  "Starting Corvane'26 Installation script\n\n"
                  "Error, the Corvane installation commit script was created by root\n"
                  "so must be run by root!\n");
        EXPECT_FALSE(fs::exists(Tree));
    });
}

}  // namespace
