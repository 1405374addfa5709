// Files that cv_install reports as incomplete after a commit script that succeeded.
#include <gtest/gtest.h>

#include <filesystem>

#include "apps/UserSetup.h"
#include "harness/Expect.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* resourcesDirectory = "corvanerc/corvane26server/resources";
constexpr const char* indexPage = "corvanerc/corvane26server/resources/index.html";

class ResultCheck : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Bash runs `atEnd` in the product directory when the commit script ends.
    hx_test::ProcessResult Run(const std::string& atEnd = ":") {
        hx_test::WriteFile(m_setup.Root() + "/before",
                           "trap 'cd /tmp/product; " + atEnd + "' EXIT\n");
        return m_setup.RunProgram(m_setup.Command(
            {"BASH_ENV=/tmp/before"}, {"--setup", "--user-mode", "--yes", "-m", "777", "-s", "5"}));
    }

    void ExpectIncomplete(const std::string& atEnd, const std::string& message) {
        const auto result = Run(atEnd);
        EXPECT_EQ(result.status, 10) << atEnd;
        EXPECT_EQ(WithoutLogPath(result.err), "cv_install: " + message);
        EXPECT_EQ(result.out.find("Next step"), std::string::npos);
    }

    void ExpectComplete(const std::string& atEnd, const std::string& warning = {}) {
        const auto result = Run(atEnd);
        EXPECT_EQ(result.status, 0) << atEnd;
        EXPECT_EQ(result.err, warning);
        hx_test::ExpectHolds(result.out, "Next step");
    }

    // Ways to damage a page. A FIFO must not block the check.
    const std::string m_damages[4] = {std::string("truncate --size=100 ") + indexPage,
                                      std::string("truncate --size=0 ") + indexPage,
                                      std::string("rm ") + indexPage,
                                      std::string("rm ") + indexPage + "; mkfifo " + indexPage};
    UserSetup m_setup;
};

// The commit script does not check the second writing of the snapshot script.
TEST_F(ResultCheck, ReportsTruncatedRunScripts) {
    for (const std::string name : {"corvane26", "corvane26_snapshot"}) {
        ExpectIncomplete(
            "truncate --size=-1 " + name,
            "\"/tmp/product/" + name +
                "\" is incomplete or unreadable\n"
                "    Make sure that its file system is writable and not full, then run "
                "the setup again.\n");
    }
}

TEST_F(ResultCheck, ReportsIncompleteQueueLimits) {
    for (const char* atEnd :
         {"sed -i /^MaxThreads/d QueueLimits", "sed -i /^MemoryPerThreadMB/d QueueLimits",
          "sed -i /^Scratch/d QueueLimits", "sed -i /^DiskPerThreadGB/d QueueLimits",
          "truncate --size=-1 QueueLimits", "rm QueueLimits; mkfifo QueueLimits"}) {
        ExpectIncomplete(atEnd,
                         "\"/tmp/product/QueueLimits\" is incomplete or unreadable\n"
                         "    Make sure that its file system is writable and not full, then run "
                         "the setup again.\n");
        fs::remove(m_setup.Outside("QueueLimits"));
    }
}

// The service may add lines, or write the file at the time of the check.
TEST_F(ResultCheck, AcceptsQueueLimitsOfTheService) {
    ExpectComplete("echo ThreadsPerMolecule: 0 >> QueueLimits");
    ExpectComplete(
        "mv QueueLimits whole; touch QueueLimits; "
        "(sleep 0.2; mv whole QueueLimits) > /dev/null 2>&1 &");
}

TEST_F(ResultCheck, ReportsIncompletePagesThatWereUnpacked) {
    for (const std::string& damage : m_damages) {
        fs::remove_all(m_setup.Outside(resourcesDirectory));
        ExpectIncomplete(damage, "web page \"" + m_setup.Inside(indexPage) +
                                     "\" is missing or truncated\n    Free up disk space, remove "
                                     "directory \"" +
                                     m_setup.Inside(resourcesDirectory) +
                                     "\", then run the setup again.\n");
    }
}

TEST_F(ResultCheck, WarnsOfIncompletePagesThatWereKept) {
    ExpectComplete(":");
    const std::string whole = m_setup.File(indexPage);
    for (const std::string& damage : m_damages) {
        ASSERT_EQ(hx_test::Run({"sh", "-c", "cd " + m_setup.Outside("") + "; " + damage}).status,
                  0);
        ExpectComplete(":", "cv_install: warning: web page \"" + m_setup.Inside(indexPage) +
                                "\" is missing or truncated\n    To restore all web pages, move "
                                "directory \"" +
                                m_setup.Inside(resourcesDirectory) +
                                "\" away, then run the setup again.\n");
    }
    fs::remove_all(m_setup.Outside(resourcesDirectory));
    ExpectComplete(":");
    EXPECT_EQ(m_setup.File(indexPage), whole);

    // An edited page is not the beginning of the packed one.
    hx_test::WriteFile(m_setup.Outside(indexPage), "short");
    ExpectComplete(":");
}

TEST_F(ResultCheck, WarnsOfUnreadableArchiveWhenPagesAreKept) {
    ExpectComplete(":");
    hx_test::WriteFile(m_setup.Outside("docroot/resources.tar"), std::string(2048, 'x'));
    fs::permissions(m_setup.Outside("docroot/icons.tar"), fs::perms::none);
    const auto result = Run();
    EXPECT_EQ(result.status, 0);
    for (const std::string name : {"resources", "icons"}) {
        hx_test::ExpectHolds(result.err, "cv_install: warning: cannot read archive \"" +
                                             m_setup.Inside("docroot/" + name + ".tar") + "\": ");
    }
}

}  // namespace
