// A whole setup by an ordinary user: what stands afterwards, and what the next one takes over.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "apps/UserSetup.h"

namespace {

class Setup : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    const std::vector<std::string> yes = {"--setup", "--user-mode", "--yes"};
};

TEST_F(Setup, MakesAPrivateCopy) {
    const UserSetup setup;
    const auto result = setup.Run(yes);
    ASSERT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(result.err, "");
    for (const char* name : {"corvanerc", "corvanerc/corvane26", "corvanerc/corvane26server",
                             "corvane26", "corvane26_snapshot"})
        EXPECT_EQ(ModeOf(setup.Outside(name)), 0755U) << name;
    for (const char* name : {"QueueEntries", "QueueLimits"})
        EXPECT_EQ(ModeOf(setup.Outside(name)), 0644U) << name;
    EXPECT_TRUE(setup.Has("corvanerc/corvane26server/resources/index.html"));
    EXPECT_TRUE(setup.Has("corvanerc/corvane26server/icons/favicon.svg"));
    EXPECT_EQ(setup.CommitScripts().size(), 1U);
}

TEST_F(Setup, EndsWithTheScriptsWordsAndASummary) {
    const UserSetup setup;
    const auto result = setup.Run(yes);
    const size_t end =
        result.out.find("Corvane'26 Installation script completed successfully!\n\n");
    ASSERT_NE(end, std::string::npos);
    const std::string summary = result.out.substr(end);
    EXPECT_NE(summary.find("  Installed: /tmp/product\n"), std::string::npos);
    EXPECT_NE(summary.find("  Next step: start Corvane with /tmp/product/corvane26\n"),
              std::string::npos);
}

TEST_F(Setup, RefusesQueueLimitsThatIsNotARegularFile) {
    const UserSetup setup;
    ASSERT_EQ(mkfifo(setup.Outside("QueueLimits").c_str(), 0600), 0);
    const auto result = setup.Run(yes);
    EXPECT_EQ(result.status, 8);
    EXPECT_EQ(result.err,
              "cv_install: \"/tmp/product/QueueLimits\" is not a regular file of at most 64 KB\n"
              "    Inspect it, remove it, then run the setup again.\n"
              "    No changes were made.\n");
}

// df counts blocks of another size with these.
TEST_F(Setup, IgnoresBlockSizesOfTheEnvironment) {
    const UserSetup setup;
    hx_test::WriteFile(setup.Root() + "/df", "#!/bin/sh\nenv > /tmp/environment\n");
    std::filesystem::permissions(setup.Root() + "/df", std::filesystem::perms(0755));
    const auto result = setup.RunProgram(
        {"/bin/sh", "-c",
         "export POSIXLY_CORRECT=1 BLOCK_SIZE=1M BLOCKSIZE=1M DF_BLOCK_SIZE=1M PATH=/tmp:$PATH; "
         "exec /tmp/product/cv_install --setup --user-mode --yes"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string environment = hx_test::ReadFile(setup.Root() + "/environment");
    EXPECT_NE(environment.find("PATH=/tmp:"), std::string::npos);
    EXPECT_EQ(environment.find("BLOCK"), std::string::npos);
    EXPECT_EQ(environment.find("POSIXLY_CORRECT"), std::string::npos);
}

TEST_F(Setup, WarnsOfLimitsOfZero) {
    const UserSetup setup;
    hx_test::WriteFile(setup.Root() + "/df",
                       "#!/bin/sh\necho Filesystem 1024-blocks Used Available Capacity Mounted on\n"
                       "echo /dev/sda1 976762584 10485760 2097152 2% /\n");
    std::filesystem::permissions(setup.Root() + "/df", std::filesystem::perms(0755));
    const auto result = setup.RunProgram(
        {"/bin/sh", "-c",
         "echo 1000000000 | PATH=/tmp:$PATH /tmp/product/cv_install --setup --user-mode "
         "--internal-default-queue"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "Corvane Install: Warning\n"
              "    The memory limit per thread is 0 MB: less than 1 MB is available for each "
              "of 1000000000 threads.\n"
              "    Set a limit with -m or lower the job limit.\n"
              "Corvane Install: Warning\n"
              "    The scratch limit per thread is 0 GB: less than 1 GB is available for each "
              "of 1000000000 threads.\n"
              "    Set a limit with -s or lower the job limit.\n");
    EXPECT_EQ(setup.File("QueueLimits"),
              "MaxThreads: 1000000000\nMemoryPerThreadMB: 0\nScratch: /tmp\nDiskPerThreadGB: 0\n");
}

TEST_F(Setup, TellsWhichQueueCommandsCannotBeStarted) {
    const UserSetup setup;
    const std::string limits = "\n\n\n\n\n\n\n";
    const std::string missing = "cannot execute command ";
    const std::string remedy =
        "             To set its path, run the setup again without a queue option.\n";
    // For Torque three places, of which the second one is wrong.
    const auto torque =
        setup.Run({"--setup", "--user-mode"}, limits + "2\n1\n\n/bin/sh\n/gone/qdel\nqsig\n\n");
    ASSERT_EQ(torque.status, 0) << torque.out << torque.err;
    EXPECT_NE(
        torque.out.find("/tmp/product\n  Queue:     " + missing + "\"/gone/qdel\"\n" + remedy),
        std::string::npos)
        << torque.out;
    const auto slurm = setup.Run({"--setup", "--user-mode"}, limits + "2\n2\n\n/gone/sbatch\n\n\n");
    ASSERT_EQ(slurm.status, 0) << slurm.out << slurm.err;
    EXPECT_NE(slurm.out.find("  Queue:     " + missing + "\"/gone/sbatch\"\n  Queue:     " +
                             missing + "\"/gone/scancel\"\n" + remedy),
              std::string::npos)
        << slurm.out;
    for (const char* queue : {"--internal-default-queue", "--no-queue"}) {
        const auto other = setup.Run({"--setup", "--user-mode", queue, "--yes"});
        EXPECT_EQ(other.out.find(missing), std::string::npos) << other.out;
    }
}

TEST_F(Setup, TheLogHoldsWhatWasShown) {
    const UserSetup setup;
    const auto result = setup.Run({"--setup", "--user-mode", "-d", "/tmp"}, "\n\n\n\n\n3\n\n1\n\n");
    ASSERT_EQ(result.status, 0);
    const std::string marker = "  Log:       /tmp/";
    const size_t at = result.out.find(marker);
    ASSERT_NE(at, std::string::npos);
    const size_t name = at + marker.size();
    const std::string path =
        setup.Root() + "/" + result.out.substr(name, result.out.find('\n', name) - name);
    EXPECT_EQ(hx_test::ReadFile(path), result.out);
    EXPECT_EQ(ModeOf(path), 0600U);
}

TEST_F(Setup, TheNewRunScriptKnowsWhereItStands) {
    const UserSetup setup("product with blanks and ümlaut");
    ASSERT_EQ(setup.Run(yes).status, 0);
    const std::string script = setup.Inside("corvane26");
    const std::string directory = setup.Inside("").substr(0, setup.Inside("").size() - 1);
    EXPECT_EQ(setup.RunProgram({script, "--root-path"}).out, "CORV_ROOT=" + directory + "\n");
    EXPECT_EQ(setup.RunProgram({script, "--printenv", "CORV_CORVANERC"}).out, directory + "\n");
}

TEST_F(Setup, TheRunScriptReachesTheSetupAgain) {
    const UserSetup setup;
    ASSERT_EQ(setup.Run(yes).status, 0);
    const auto again = setup.RunProgram({setup.Inside("corvane26"), "--setup", "--version"});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_TRUE(again.out.starts_with("cv_install ")) << again.out;
}

TEST_F(Setup, YesChoosesTheInternalQueueIfNoneIsChosen) {
    const UserSetup setup;
    ASSERT_EQ(setup.Run(yes).status, 0);
    EXPECT_EQ(setup.RunProgram({setup.Inside("corvane26"), "--printenv", "CORV_QUEUE_TYPE"}).out,
              "INTERNAL\n");
}

TEST_F(Setup, YesKeepsAQueueThatIsChosen) {
    const UserSetup setup;
    ASSERT_EQ(setup.Run({"--setup", "--user-mode", "--yes", "-p", "gpu"}).status, 0);
    const std::string script = setup.Inside("corvane26");
    EXPECT_EQ(setup.RunProgram({script, "--printenv", "CORV_QUEUE_TYPE"}).out, "EXTERNAL\n");
    EXPECT_EQ(setup.RunProgram({script, "--printenv", "CORV_SCHEDULER"}).out, "SLURM\n");
    EXPECT_EQ(setup.RunProgram({script, "--printenv", "CORV_PARTITION_NAME"}).out, "gpu\n");
}

TEST_F(Setup, TheNextSetupOffersTheMemoryLimit) {
    const UserSetup setup;
    ASSERT_EQ(setup.Run({"--setup", "--user-mode", "--yes", "-m", "777"}).status, 0);
    EXPECT_NE(setup.File("QueueLimits").find("MemoryPerThreadMB: 777\n"), std::string::npos);
    const auto second = setup.Run(yes);
    EXPECT_EQ(second.status, 0);
    EXPECT_NE(second.out.find("A previous installation has set the memory usage\n"
                              "limit to \"777MB\"."),
              std::string::npos);
    EXPECT_NE(setup.File("QueueLimits").find("MemoryPerThreadMB: 777\n"), std::string::npos);
}

TEST_F(Setup, AnswersReachTheQueueLimits) {
    const UserSetup setup;
    // Job limit; memory limit and pause; directory and pause; scratch limit and pause; queue;
    // pause.
    const auto result =
        setup.Run({"--setup", "--user-mode"}, "3\n500\n\n/tmp\n\n7\n\n1\n\nleft over\n");
    ASSERT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(setup.File("QueueLimits"),
              "MaxThreads: 3\nMemoryPerThreadMB: 500\nScratch: /tmp\nDiskPerThreadGB: 7\n");
}

TEST_F(Setup, AClusterNodeAsksNothingAndGetsNoServerFiles) {
    const UserSetup setup;
    const auto result = setup.Run({"--setup", "--user-mode", "--cluster-node"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_FALSE(setup.Has("corvanerc/corvane26server/resources"));
    EXPECT_FALSE(setup.Has("corvanerc/corvane26server/icons"));
    const std::string script = setup.Inside("corvane26");
    EXPECT_EQ(setup.RunProgram({script, "--printenv", "CORV_CLUSTER_NODE"}).out, "YES\n");
    EXPECT_EQ(setup.RunProgram({script, "--printenv", "CORV_QUEUE_TYPE"}).out, "NONE\n");
}

TEST_F(Setup, AnotherUserThanRootNeedsUserMode) {
    const UserSetup setup;
    const auto result = setup.Run({"--setup", "--yes"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "Corvane Install: Error\n    Installation must be run as root user.  Aborting\n");
    EXPECT_TRUE(setup.CommitScripts().empty());
}

TEST_F(Setup, InAFolderThatCannotBeWrittenToItEndsBeforeTheQuestions) {
    const UserSetup setup;
    const std::filesystem::path folder = setup.Outside("");
    const auto writing = std::filesystem::perms::owner_write;
    std::filesystem::permissions(folder, writing, std::filesystem::perm_options::remove);
    const auto result = setup.Run({"--setup", "--user-mode"});
    EXPECT_EQ(result.status, 8);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "cv_install: cannot write to directory \"/tmp/product\"\n"
              "    Copy it to a location that you own and run cv_install there, or run the setup "
              "as root.\n    No changes were made.\n");
    EXPECT_TRUE(setup.CommitScripts().empty());

    // A setup over an earlier one makes no entry anew.
    std::filesystem::permissions(folder, writing, std::filesystem::perm_options::add);
    ASSERT_EQ(setup.Run(yes).status, 0);
    std::filesystem::permissions(folder, writing, std::filesystem::perm_options::remove);
    EXPECT_EQ(setup.Run(yes).status, 0);
    std::filesystem::permissions(folder, writing, std::filesystem::perm_options::add);
}

TEST_F(Setup, AMissingTemplateEndsWithTheScriptsMessageAndStatus) {
    const UserSetup setup;
    std::filesystem::remove(setup.Outside("corvane26.template"));
    const auto result = setup.Run(yes);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.out.find("Error, writing Corvane'26 run script, /tmp/product/corvane26\n"),
              std::string::npos);
    EXPECT_NE(result.err.find("failed with exit status 1"), std::string::npos);
    EXPECT_FALSE(setup.Has("QueueLimits"));
}

TEST_F(Setup, RunAgainAfterAMendedFailureItCompletes) {
    const UserSetup setup;
    const std::string archive = setup.Outside("docroot/icons.tar");
    std::filesystem::rename(archive, archive + ".away");
    EXPECT_EQ(setup.Run(yes).status, 1);
    std::filesystem::rename(archive + ".away", archive);
    EXPECT_EQ(setup.Run(yes).status, 0);
    EXPECT_TRUE(setup.Has("corvanerc/corvane26server/icons/favicon.svg"));
}

}  // namespace
