// The command line of cv_install: what it answers itself and what it refuses.
#include <gtest/gtest.h>

#include "apps/UserSetup.h"

namespace {

class Arguments : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    void ExpectRefused(const std::vector<std::string>& arguments, const std::string& message) {
        std::vector<std::string> all = {"--setup", "--user-mode", "--yes"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const auto result = m_setup.Run(all);
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "cv_install: " + message);
        EXPECT_TRUE(m_setup.CommitScripts().empty());
    }

    const UserSetup m_setup;
};

TEST_F(Arguments, HelpNamesEveryOptionAndEveryStatus) {
    const auto result = m_setup.Run({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    for (const char* option :
         {"--setup", "--user-mode", "--yes", "--cluster-node", "-d, --scratch-directory DIR",
          "-s, --scratch-limit GB", "-m, --memory-limit MB", "--internal-default-queue",
          "--external-default-queue", "-q, --external-queue QUEUE",
          "-p, --external-partiton PARTITION", "--no-queue", "--submission-scripts",
          "-g, --service-group GROUP", "-u, --service-user USER", "--help", "--version"})
        EXPECT_NE(result.out.find(std::string("\n  ") + option + " "), std::string::npos) << option;
    for (const char* status : {"0", "1", "2", "3", "4", "5", "6", "7", "14", "errno"})
        EXPECT_NE(result.out.find(std::string(" ") + status + "  "), std::string::npos) << status;
}

TEST_F(Arguments, VersionIsOneLine) {
    EXPECT_EQ(m_setup.Run({"--version"}).out, "cv_install 26.0.0 (Corvane'26)\n");
}

TEST_F(Arguments, HelpAndVersionNeedNoUserMode) {
    EXPECT_EQ(m_setup.Run({"--setup", "--version"}).status, 0);
}

TEST_F(Arguments, AnUnknownWordIsNamedWithTheNearestOne) {
    ExpectRefused({"--memory-limt", "4"},
                  "unknown option \"--memory-limt\"\n    Did you mean \"--memory-limit\"?\n");
    ExpectRefused({"--external-partition", "gpu"},
                  "unknown option \"--external-partition\"\n"
                  "    Did you mean \"--external-partiton\"?\n");
}

TEST_F(Arguments, AValueBehindAnEqualsSignIsToldApart) {
    ExpectRefused(
        {"--scratch-limit=5"},
        "unknown option \"--scratch-limit=5\"\n    Did you mean \"--scratch-limit 5\"?\n");
}

TEST_F(Arguments, AWordThatIsNearNothingPointsToTheHelp) {
    ExpectRefused({"batch"}, "unknown option \"batch\"\n    Run \"cv_install --help\" for help.\n");
}

TEST_F(Arguments, ALimitMustBeAWholeNumber) {
    ExpectRefused({"-m", "512MB"},
                  "invalid value for option \"-m\": \"512MB\"\n"
                  "    Use a whole number without a unit, such as 4.\n");
    ExpectRefused({"--scratch-limit", "99999999999"},
                  "invalid value for option \"--scratch-limit\": \"99999999999\"\n"
                  "    Use a whole number without a unit, such as 4.\n");
}

TEST_F(Arguments, AValueMayNotBeMissing) {
    for (const char* option : {"-d", "-g", "-u", "-m", "-s"}) {
        const auto result = m_setup.Run({"--setup", "--user-mode", "--yes", option});
        EXPECT_EQ(result.status, 3) << option;
        EXPECT_NE(result.err.find(std::string("option \"") + option + "\" requires a value"),
                  std::string::npos);
    }
}

TEST_F(Arguments, AQueueWithoutANameIsTheDefaultQueue) {
    ASSERT_EQ(m_setup.Run({"--setup", "--user-mode", "--yes", "-q"}).status, 0);
    const std::string script = m_setup.Inside("corvane26");
    EXPECT_EQ(m_setup.RunProgram({script, "--printenv", "CORV_QUEUE_TYPE"}).out, "EXTERNAL\n");
    EXPECT_EQ(m_setup.RunProgram({script, "--printenv", "CORV_QUEUE_NAME"}).out, "\n");
}

TEST_F(Arguments, AWordBehindAnOptionIsItsValue) {
    const auto result = m_setup.Run({"--setup", "--user-mode", "--yes", "-d", "--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(m_setup.File("QueueLimits").find("Scratch: --version\n"), std::string::npos);
}

}  // namespace
