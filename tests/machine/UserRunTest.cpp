// What an ordinary user's commit script makes of a private copy, and that it leaves the rest alone.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "machine/Installation.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

const World User{.identity = World::Identity::User};

// The private copy lies beside the binaries, in a directory that exists.
CInstallBase& NewUserRun(const std::string& directory) {
    CInstallBase& run = NewSetupRun(directory, directory);
    run.m_accessFlags = 0;
    run.m_prevJobLimit = -1;
    return run;
}

void ExpectInUserRun(const std::function<void(const std::string& directory)>& body) {
    const TempDir directory;
    const auto result = RunInChild(User, [&] {
        umask(022);
        LayOutProduct(directory.path());
        body(directory.path());
    });
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(UserRun, MakesTheTreeWithItsModes) {
    HX_REQUIRE_NAMESPACES();
    ExpectInUserRun([](const std::string& directory) {
        umask(077);
        const std::string tree = directory + "/tree";
        CInstallBase& run = NewUserRun(directory);
        run.m_installDir = QString::fromStdString(tree);
        ASSERT_EQ(RunCommitScript(run).status, 0);
        for (const std::string name :
             {"", "/corvanerc", "/corvanerc/corvane26", "/corvanerc/corvane26server", "/corvane26",
              "/corvane26_snapshot"})
            EXPECT_EQ(Mode(tree + name), "755") << name;
        EXPECT_EQ(Mode(tree + "/QueueEntries"), "644");
        EXPECT_EQ(Mode(tree + "/QueueLimits"), "644");
    });
}

TEST(UserRun, LeavesEverythingToTheUserWhoRanIt) {
    HX_REQUIRE_NAMESPACES();
    ExpectInUserRun([](const std::string& directory) {
        ASSERT_EQ(RunCommitScript(NewUserRun(directory)).status, 0);
        EXPECT_EQ(hx_test::Run({"find", directory, "!", "-uid", std::to_string(getuid())}).out, "");
        EXPECT_EQ(hx_test::Run({"find", directory, "!", "-gid", std::to_string(getgid())}).out, "");
    });
}

TEST(UserRun, MakesNoCommandLink) {
    HX_REQUIRE_NAMESPACES();
    const auto links = [] {
        return fs::exists(fs::symlink_status("/usr/bin/corvane26")) +
               2 * fs::exists(fs::symlink_status("/usr/bin/corvane26_snapshot"));
    };
    const int before = links();
    ExpectInUserRun([](const std::string& directory) {
        EXPECT_EQ(RunCommitScript(NewUserRun(directory)).status, 0);
    });
    EXPECT_EQ(links(), before);
}

TEST(UserRun, FillsBothTemplatesAndUnpacksTheServerFiles) {
    HX_REQUIRE_NAMESPACES();
    ExpectInUserRun([](const std::string& directory) {
        ASSERT_EQ(RunCommitScript(NewUserRun(directory)).status, 0);
        EXPECT_EQ(ReadFile(directory + "/corvane26"),
                  RunScript(RunScriptValues(directory, directory)));
        EXPECT_EQ(ReadFile(directory + "/corvane26_snapshot"),
                  SnapshotScript(directory, directory));
        EXPECT_EQ(ReadFile(directory + "/corvanerc/corvane26server/icons/icons.txt"),
                  "content of icons\n");
        EXPECT_EQ(ReadFile(directory + "/QueueLimits"),
                  "MaxThreads: 12\nMemoryPerThreadMB: 2048\nScratch: /scratch/chem\n"
                  "DiskPerThreadGB: 50\n");
    });
}

TEST(UserRun, TellsEachStepOnItsOutput) {
    HX_REQUIRE_NAMESPACES();
    ExpectInUserRun([](const std::string& directory) {
        const auto result = RunCommitScript(NewUserRun(directory));
        const std::string rc = directory + "/corvanerc";
        const std::string run = directory + "/corvane26";
        const std::string server = rc + "/corvane26server";
        EXPECT_EQ(result.out,
                  "Starting Corvane'26 Installation script\n\nCreated directory " + rc +
                      "\n\nCreated directory " + rc + "/corvane26\n\n" + "Created directory " +
                      server + "\n\n" + "resources/\nresources/resources.txt\n" +
                      "Unpacked resources " + server + "/resources\n\n" +
                      "icons/\nicons/icons.txt\n" + "Unpacked icons " + server + "/icons\n\n" +
                      "Wrote Corvane'26 run script, " + run + "\n\n" + "Updating " + run +
                      ": 644 -> 755\n" + "Wrote Corvane'26 snapshot run script, " + run +
                      "_snapshot\n\n" + "Updating " + run + "_snapshot: 644 -> 755\n" + directory +
                      "/QueueEntries already has mode 644. Skipping.\n" + directory +
                      "/QueueLimits already has mode 644. Skipping.\n" +
                      "Corvane'26 Installation script completed successfully!\n\n");
        EXPECT_EQ(result.err, "");
    });
}

TEST(UserRun, ASecondRunKeepsDirectoriesAndQueueAndTellsItsSteps) {
    HX_REQUIRE_NAMESPACES();
    ExpectInUserRun([](const std::string& directory) {
        ASSERT_EQ(RunCommitScript(NewUserRun(directory)).status, 0);
        fs::permissions(directory + "/corvanerc", fs::perms::owner_all);
        WriteFile(directory + "/QueueEntries", "1 chem waiting\n");
        fs::permissions(directory + "/QueueEntries", fs::perms::all);
        const auto result = RunCommitScript(NewUserRun(directory));
        const std::string run = directory + "/corvane26";
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out,
                  "Starting Corvane'26 Installation script\n\n"
                  "Wrote Corvane'26 run script, " +
                      run + "\n\n" + run + " already has mode 755. Skipping.\n" +
                      "Wrote Corvane'26 snapshot run script, " + run + "_snapshot\n\n" + run +
                      "_snapshot already has mode 755. Skipping.\n" + "Updating " + directory +
                      "/QueueEntries: 777 -> 644\n" + directory +
                      "/QueueLimits already has mode 644. Skipping.\n" +
                      "Corvane'26 Installation script completed successfully!\n\n");
        EXPECT_EQ(Mode(directory + "/corvanerc"), "700");
        EXPECT_EQ(ReadFile(directory + "/QueueEntries"), "1 chem waiting\n");
    });
}

}  // namespace
