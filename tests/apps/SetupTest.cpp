// Whole setups by a regular user: the private copy, and what a later setup takes over.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "apps/JsonSchema.h"
#include "apps/Leaks.h"
#include "apps/UserSetup.h"
#include "harness/Expect.h"
#include "harness/Pattern.h"

namespace {

namespace fs = std::filesystem;
using hx_test::ExpectHolds;

class Setup : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    const std::vector<std::string> m_yes = {"--setup", "--user-mode", "--yes"};
};

TEST_F(Setup, CreatesPrivateCopyWithSummaryAndLog) {
    const CheckedLeaks leaks;
    const UserSetup setup("product with spaces and ümlaut");
    std::vector<std::string> arguments = m_yes;
    arguments.insert(arguments.end(), {"-s", "5", "--json", "/tmp/report"});
    const auto result = setup.Run(arguments);
    ASSERT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(setup.Has("corvanerc/corvane26server/resources/index.html"));
    EXPECT_TRUE(setup.Has("corvanerc/corvane26server/icons/favicon.svg"));
    EXPECT_EQ(setup.CommitScripts().size(), 0U);

    const std::string directory = setup.Inside("").substr(0, setup.Inside("").size() - 1);
    const std::string script = setup.Inside("corvane26");
    const std::string start =
        "Corvane'26 Installation script completed successfully!\n\n"
        "  Installed: " +
        directory + "\n  Log:       /tmp/";
    const size_t at = result.out.find(start);
    ASSERT_NE(at, std::string::npos) << result.out;
    const std::string rest = result.out.substr(at + start.size());
    const std::string log = rest.substr(0, rest.find('\n'));
    EXPECT_EQ(rest, log + "\n  Next step: start Corvane with " + script + "\n");
    EXPECT_FALSE(hx_test::FirstMatch(hx_test::ReadFile(setup.Root() + "/" + log),
                                     "^\n=== [^\n]*\nCommand: [^\n]*\nJob limit: [^\n]*\n")
                     .empty());
    ExpectHolds(hx_test::ReadFile(setup.Root() + "/" + log),
                "\n\n" + result.out + "=== exit status 0: setup completed\n");
    ExpectReport(
        hx_test::ReadFile(setup.Root() + "/report"),
        R"({"action": "setup", "status": 0, "install_dir": ")" + directory +
            R"(", "answers": {"scratch-limit": {"value": 5, "source": "option", "chosen": true},
                                     "queue": {"value": "internal", "chosen": false}},
                         "changes": null, "problem": null, "log": "/tmp/)" +
            log + "\"}");

    EXPECT_EQ(setup.RunProgram({script, "--root-path"}).out, "CORV_ROOT=" + directory + "\n");
}

TEST_F(Setup, WritesAnswersToQueueLimits) {
    const std::string previous =
        "MaxThreads: 2\nMemoryPerThreadMB: 611\nScratch: /usr/../tmp\nDiskPerThreadGB: 17\n"
        "ThreadsPerMolecule: 2\n";
    const struct {
        std::string before;
        std::vector<std::string> options;
        std::string input;
        std::string after;
    } cases[] = {
        {"",
         {},
         "3\n500\n/tmp\n7\n1\nleft over\n",
         "MaxThreads: 3\nMemoryPerThreadMB: 500\nScratch: /tmp\nDiskPerThreadGB: 7\n"},
        {previous, {}, "2\n\n\n\n1\n", previous},
        {"",
         {"-m", "777", "-s", "5", "-d", "/tmp/100% a|b & 'c' ü!"},
         "3\n\n1\n",
         "MaxThreads: 3\nMemoryPerThreadMB: 777\nScratch: /tmp/100% a|b & 'c' ü!\nDiskPerThreadGB: "
         "5\n"},
    };
    const UserSetup setup;
    for (const auto& [before, options, input, after] : cases) {
        fs::remove(setup.Outside("QueueLimits"));
        if (!before.empty())
            hx_test::WriteFile(setup.Outside("QueueLimits"), before);
        std::vector<std::string> arguments = {"--setup", "--user-mode"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const auto result = setup.Run(arguments, input);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(setup.File("QueueLimits"), after);
    }
}

class TorqueStandIns {
public:
    TorqueStandIns() {
        for (const char* name : {"qsub", "qdel", "qsig"})
            fs::create_symlink("/bin/true", m_directory / name);
    }
    std::string Directory() const { return m_directory.path().string(); }

private:
    hx_test::TempDir m_directory;
};

TEST_F(Setup, SelectsAndRepeatsQueueOfOptions) {
    const struct {
        std::vector<std::string> options;
        const char* settings;  // type, scheduler, queue, partition, compute node
    } cases[] = {{{"--cluster-node"}, "NONE TORQUE - - YES\n"},
                 {{"--yes"}, "INTERNAL TORQUE - - NO\n"},
                 {{"--yes", "-q"}, "EXTERNAL TORQUE - - NO\n"},
                 {{"--yes", "-p", "gpu"}, "EXTERNAL SLURM - gpu NO\n"}};
    const std::string print =
        "for name in QUEUE_TYPE SCHEDULER QUEUE_NAME PARTITION_NAME CLUSTER_NODE; do "
        "value=$(/tmp/product/corvane26 --printenv CORV_$name); echo ${value:--}; done | "
        "paste -sd ' '";
    const TorqueStandIns torque;
    for (const auto& [options, settings] : cases) {
        UserSetup setup;
        setup.Bind(torque.Directory(), "/usr/local/bin");
        std::vector<std::string> arguments = {"--setup", "--user-mode"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const auto result = setup.Run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(setup.RunProgram({"/bin/sh", "-c", print}).out, settings);
        EXPECT_EQ(setup.Has("corvanerc/corvane26server/icons"), options[0] == "--yes");
        EXPECT_EQ(setup.Run({"--setup", "--user-mode", "--yes"}).status, 0);
        EXPECT_EQ(setup.RunProgram({"/bin/sh", "-c", print}).out, settings) << "repeated";
    }
}

TEST_F(Setup, WarnsOfLimitsOfZero) {
    const UserSetup setup;
    const auto result =
        setup.Run({"--setup", "--user-mode", "--internal-default-queue"}, "1000000000\n");
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

TEST_F(Setup, ReportsAllFailedChecks) {
    const CheckedLeaks leaks;
    UserSetup setup;
    fs::remove(setup.Outside("corvane26.template"));
    const auto result = setup.Run({"--setup", "--user-mode"}, "\n\n\n\n2\n2\n\n/gone/sbatch\n\n");
    EXPECT_EQ(result.status, 65) << result.out << result.err;
    EXPECT_EQ(WithoutLogPath(result.err),
              "cv_install: cannot use file of the product \"/tmp/product/corvane26.template\": No "
              "such file or directory\n    Install the product again, then run the setup again.\n"
              "cv_install: cannot execute command \"/gone/sbatch\"\n"
              "    Install the commands of Slurm, or specify the path with --sbatch.\n"
              "cv_install: cannot execute command \"/gone/scancel\"\n"
              "    Install the commands of Slurm, or specify the path with --scancel.\n"
              "cv_install: 3 checks failed\n    No changes were made.\n");
    EXPECT_FALSE(setup.Has("qchemrc"));
    EXPECT_TRUE(setup.CommitScripts().empty());
}

TEST_F(Setup, RefusesBeforeItAsks) {
    const struct {
        const char* prepare;  // in the product directory
        bool userMode;
        int status;
        const char* message;
    } cases[] = {
        {"true", false, 1,
         "Corvane Install: Error\n    Installation must be run as root user.  Aborting\n"},
        {"mkfifo QueueLimits", true, 8,
         "cv_install: \"/tmp/product/QueueLimits\" is not a regular file of at most 64 KB\n"
         "    Inspect it, remove it, then run the setup again.\n    No changes were made.\n"},
        {"rm QueueLimits; chmod a-w .", true, 8,
         "cv_install: cannot write to directory \"/tmp/product\"\n"
         "    Copy it to a location that you own and run cv_install there, or run the setup "
         "as root.\n    No changes were made.\n"},
    };
    const UserSetup setup;
    const auto shell = [&setup](const std::string& command) {
        hx_test::Run({"sh", "-c", "cd " + setup.Outside("") + "; " + command});
    };
    for (const auto& [prepare, userMode, status, message] : cases) {
        shell(prepare);
        const auto result = setup.Run({"--setup", userMode ? "--user-mode" : "--yes"});
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(WithoutLogPath(result.err), message);
        EXPECT_TRUE(setup.CommitScripts().empty());
    }
    // A later setup creates nothing in the product directory itself.
    shell("chmod u+w .");
    EXPECT_EQ(setup.Run(m_yes).status, 0);
    shell("chmod a-w .");
    EXPECT_EQ(setup.Run(m_yes).status, 0);
    shell("chmod u+w .");
}

TEST_F(Setup, PrintsPathOfLogAfterFailure) {
    // The commit script and the library fail.
    const std::pair<const char*, const char*> cases[] = {
        {"corvane26", " failed with exit status 1; "}, {"corvane26_ssh", " for write\n"}};
    for (const auto& [directory, message] : cases) {
        const UserSetup setup;
        fs::remove(setup.Outside(directory));
        fs::create_directory(setup.Outside(directory));
        const std::string err =
            setup.Run({"--setup", "--user-mode", "--yes", "--submission-scripts"}).err;
        const hx_test::Match found =
            hx_test::FirstMatch(err, "\n    Log: /tmp/(corvane26_setup_\\w{6}\\.log)\n\\z");
        ASSERT_FALSE(found.empty()) << err;
        ExpectHolds(hx_test::ReadFile(setup.Root() + "/" + found[1]), message);
    }
}

TEST_F(Setup, CompletesOnRerunAfterFailureOfScript) {
    const CheckedLeaks leaks;
    const UserSetup setup;
    const std::string obstacle = setup.Outside("corvane26");
    fs::create_directory(obstacle);
    const auto result = setup.Run(m_yes);
    EXPECT_EQ(result.status, 1);
    ExpectHolds(result.out, "Error, writing Corvane'26 run script, /tmp/product/corvane26\n");
    EXPECT_TRUE(WithoutLogPath(result.err)
                    .ends_with("\" failed with exit status 1; see the error above\n"
                               "    Fix the cause.\n"
                               "    Changes made so far were kept. Run the setup again.\n"))
        << result.err;
    const auto scripts = setup.CommitScripts();
    ASSERT_EQ(scripts.size(), 1U);
    ExpectHolds(result.err,
                "    Commit script: /tmp" + scripts[0].substr(setup.Root().size()) + "\n    Log: ");
    EXPECT_FALSE(setup.Has("QueueLimits"));
    fs::remove(obstacle);
    EXPECT_EQ(setup.Run(m_yes).status, 0);
    EXPECT_EQ(setup.CommitScripts(), scripts);
    EXPECT_TRUE(setup.Has("QueueLimits"));
}

}  // namespace
