// The command line of cv_install: --help, --version and refused words.
#include <gtest/gtest.h>

#include "apps/UserSetup.h"
#include "harness/Expect.h"

namespace {

class Arguments : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    const UserSetup m_setup;
};

TEST_F(Arguments, HelpListsEveryOptionAndStatus) {
    const auto result = m_setup.Run({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    for (const std::string option : {"--setup",
                                     "--user-mode",
                                     "--yes",
                                     "--answers FILE",
                                     "--save-answers FILE",
                                     "--job-limit COUNT",
                                     "--queue KIND",
                                     "--queue-name NAME",
                                     "--members USERS",
                                     "--http-port PORT",
                                     "--cluster-node",
                                     "-d, --scratch-directory DIR",
                                     "-s, --scratch-limit GB",
                                     "-m, --memory-limit MB",
                                     "--internal-default-queue",
                                     "--external-default-queue",
                                     "-q, --external-queue QUEUE",
                                     "-p, --external-partiton, --external-partition PARTITION",
                                     "--no-queue",
                                     "--submission-scripts",
                                     "-g, --service-group GROUP",
                                     "-u, --service-user USER",
                                     "--wait SECONDS",
                                     "--dry-run",
                                     "--diff",
                                     "--json FILE",
                                     "--quiet",
                                     "--verbose",
                                     "--restart",
                                     "-h, --help",
                                     "--version"})
        hx_test::ExpectHolds(result.out, "\n  " + option + " ");
    for (const std::string status :
         {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "14", "128+n", "errno"})
        hx_test::ExpectHolds(result.out, " " + status + "  ");
}

TEST_F(Arguments, PrintsVersionWithoutUserMode) {
    const auto result = m_setup.Run({"--setup", "--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "cv_install 26.0.0 (Corvane'26)\n");
}

TEST_F(Arguments, RefusesInvalidWords) {
    const struct {
        std::vector<std::string> words;
        const char* problem;
        const char* remedy;
    } cases[] = {
        {{"--memory-limt", "4"},
         "unknown option \"--memory-limt\"",
         "Did you mean \"--memory-limit\"?"},
        {{"--scratch-limt=5"},
         "unknown option \"--scratch-limt=5\"",
         "Did you mean \"--scratch-limit=5\"?"},
        {{"--yes=no"}, "option \"--yes\" takes no value", "Use: --yes"},
        {{"--cluster-node=no"},
         "invalid value for option \"--cluster-node\": \"no\"",
         "Use true or false."},
        {{"--queue", "sge"},
         "invalid value for option \"--queue\": \"sge\"",
         "Use one of \"internal\", \"none\", \"torque\", \"slurm\"."},
        {{"--http-port=65536"},
         "invalid value for option \"--http-port\": \"65536\"",
         "Use a whole number from 1 to 65535, without a unit."},
        {{"batch"}, "unknown option \"batch\"", "Run \"cv_install --help\" for help."},
        {{"-m", "512MB"},
         "invalid value for option \"-m\": \"512MB\"",
         "Use a whole number from 1 to 2147483647 (MB per thread), without a unit."},
        {{"--scratch-limit", "99999999999"},
         "invalid value for option \"--scratch-limit\": \"99999999999\"",
         "Use a whole number from 1 to 2147483647 (GB per thread), without a unit."},
        {{"--wait", "-1"},
         "invalid value for option \"--wait\": \"-1\"",
         "Use a whole number from 0 to 2147483647, without a unit."},
        {{"-d"}, "option \"-d\" requires a value", "Use: -d DIR"},
        {{"-g"}, "option \"-g\" requires a value", "Use: -g GROUP"},
        {{"-u"}, "option \"-u\" requires a value", "Use: -u USER"},
        {{"-m"}, "option \"-m\" requires a value", "Use: -m MB"},
        {{"-s"}, "option \"-s\" requires a value", "Use: -s GB"},
        {{"--json"}, "option \"--json\" requires a value", "Use: --json FILE"},
        {{"--json", "--dry-run"},
         "invalid value for option \"--json\": \"--dry-run\"",
         "Use the name of a file, or - for a standard stream."},
        {{"--json", ""},
         "invalid value for option \"--json\": \"\"",
         "Use the name of a file, or - for a standard stream."},
        {{"--diff"},
         "option \"--diff\" requires option \"--dry-run\"",
         "Use --dry-run --diff, or answer d when the setup asks whether to continue."},
        {{"--restart"},
         "option \"--restart\" requires a setup as root",
         "Run the setup as root, or without this option."},
        {{"--verify", "--status"},
         "options \"--verify\" and \"--status\" exclude each other",
         "Use one of them."},
        {{"--remove", "--job-limit=2"},
         "option \"--remove\" takes no answers",
         "It uses those of the previous setup. To change them, run the setup."},
        {{"--remove", "--if-needed"},
         "options \"--remove\" and \"--if-needed\" exclude each other",
         "Use one of them."},
        {{"--save-answers", "-x"},
         "invalid value for option \"--save-answers\": \"-x\"",
         "Use the name of a file, or - for a standard stream."},
    };
    for (const auto& [words, problem, remedy] : cases) {
        std::vector<std::string> arguments = {"--setup", "--user-mode", "--yes"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const auto result = m_setup.Run(arguments);
        EXPECT_EQ(result.status, 3) << problem;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, std::string("cv_install: ") + problem + "\n    " + remedy + "\n");
        EXPECT_TRUE(m_setup.CommitScripts().empty());
    }
}

TEST_F(Arguments, RefusesTwoUsesOfStandardStream) {
    const auto input = m_setup.Run({"--setup", "--user-mode", "--answers", "-"}, "job-limit = 1\n");
    EXPECT_EQ(input.status, 3);
    EXPECT_EQ(input.err,
              "cv_install: option \"--answers -\" requires option \"--yes\"\n"
              "    Standard input cannot also contain the answers to questions.\n");
}

TEST_F(Arguments, TakesWordAfterOptionAsItsValue) {
    EXPECT_EQ(m_setup.Run({"--setup", "--user-mode", "--yes", "-d", "--version"}).status, 0);
    hx_test::ExpectHolds(m_setup.File("QueueLimits"), "Scratch: --version\n");
}

}  // namespace
