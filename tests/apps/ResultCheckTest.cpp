// What cv_install finds incomplete after a commit script that ended well, and what it lets pass.
#include <gtest/gtest.h>

#include <filesystem>

#include "apps/UserSetup.h"

namespace {

namespace fs = std::filesystem;

class ResultCheck : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Bash runs `atEnd` when the commit script has ended.
    hx_test::ProcessResult Run(const std::string& atEnd = ":") {
        hx_test::WriteFile(m_setup.Root() + "/before", "trap '" + atEnd + "' EXIT\n");
        return m_setup.RunProgram(m_setup.Command(
            {"BASH_ENV=/tmp/before"}, {"--setup", "--user-mode", "--yes", "-m", "777", "-s", "5"}));
    }

    void ExpectIncomplete(const hx_test::ProcessResult& result, const std::string& name) {
        EXPECT_EQ(result.status, 10);
        EXPECT_NE(result.err.find("\"/tmp/product/" + name + "\" is "), std::string::npos)
            << result.err;
        EXPECT_EQ(result.out.find("Next step"), std::string::npos);
    }

    UserSetup m_setup;
};

TEST_F(ResultCheck, LimitsThatLackALineAreIncomplete) {
    for (const char* line : {"MaxThreads", "MemoryPerThreadMB", "Scratch", "DiskPerThreadGB"}) {
        ExpectIncomplete(Run("sed -i /^" + std::string(line) + "/d /tmp/product/QueueLimits"),
                         "QueueLimits");
    }
}

TEST_F(ResultCheck, LimitsWithACutLineAreIncomplete) {
    ExpectIncomplete(Run("truncate --size=-1 /tmp/product/QueueLimits"), "QueueLimits");
    ExpectIncomplete(Run("rm /tmp/product/QueueLimits; mkfifo /tmp/product/QueueLimits"),
                     "QueueLimits");
}

TEST_F(ResultCheck, AFurtherLineOfLimitsIsTheServicesOwn) {
    const auto result = Run("echo ThreadsPerMolecule: 0 >> /tmp/product/QueueLimits");
    EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(ResultCheck, LimitsThatTheServiceIsWritingAreAwaited) {
    const auto result =
        Run("cd /tmp/product; mv QueueLimits whole; touch QueueLimits; "
            "(sleep 0.2; mv whole QueueLimits) > /dev/null 2>&1 &");
    EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(ResultCheck, PagesThatSomebodyChangedPass) {
    ASSERT_EQ(Run().status, 0);
    const std::string page = "corvanerc/corvane26server/resources/index.html";
    hx_test::WriteFile(m_setup.Outside(page), "short");
    EXPECT_EQ(Run().status, 0);
}

TEST_F(ResultCheck, PagesThatAreCutShortWhenTheyAreUnpackedAreIncomplete) {
    const std::string page = "corvanerc/corvane26server/resources/index.html";
    for (const char* cut : {"truncate --size=100 ", "truncate --size=0 ", "rm "}) {
        fs::remove_all(m_setup.Outside("corvanerc/corvane26server/resources"));
        const auto result = Run(cut + m_setup.Inside(page));
        ExpectIncomplete(result, page);
        EXPECT_NE(result.err.find(
                      "remove directory \"/tmp/product/corvanerc/corvane26server/resources\", "
                      "then run the setup again.\n"),
                  std::string::npos);
    }
}

// An older product's, or those of a setup that was stopped.
TEST_F(ResultCheck, PagesThatWereCutShortBeforeAreToldUntilTheirDirectoryIsGone) {
    ASSERT_EQ(Run().status, 0);
    const std::string page = "corvanerc/corvane26server/resources/index.html";
    const std::string whole = m_setup.File(page);
    const std::string warning =
        "cv_install: warning: web page \"/tmp/product/" + page +
        "\" is missing or truncated\n"
        "    To restore all web pages, move directory "
        "\"/tmp/product/corvanerc/corvane26server/resources\" away, then run the setup again.\n";
    for (const char* cut : {"truncate --size=100 ", "truncate --size=0 ", "rm "}) {
        ASSERT_EQ(hx_test::Run({"sh", "-c", cut + m_setup.Outside(page)}).status, 0);
        const auto result = Run();
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, warning);
        EXPECT_NE(result.out.find("Next step"), std::string::npos);
    }
    fs::remove_all(m_setup.Outside("corvanerc/corvane26server/resources"));
    const auto result = Run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(m_setup.File(page), whole);
}

}  // namespace
