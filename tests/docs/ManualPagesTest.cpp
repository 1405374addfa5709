// The manual pages: well-formed, and true to the programs and the file that they describe.
#include <gtest/gtest.h>

#include "docs/Texts.h"
#include "harness/Child.h"
#include "harness/TempDir.h"
#include "setuprun/CQueueLimits.h"

namespace {

std::string Page(const std::string& name) {
    return hx_test::ReadFile(std::string(HX_BUILT_DOCS "/") + name);
}

TEST(ManualPages, AreWellFormed) {
    if (hx_test::Run({"sh", "-c", "command -v mandoc"}).status != 0)
        GTEST_SKIP() << "mandoc is not installed";
    for (const char* name : {"cv_install.8", "corvane26.1", "QueueLimits.5"}) {
        const auto lint = hx_test::Run(
            {"mandoc", "-T", "lint", "-W", "style", std::string(HX_BUILT_DOCS "/") + name});
        ASSERT_NE(lint.status, 127);
        for (const std::string& line : hx_docs::Lines(lint.out)) {
            // Our pages need not be installed here, and we are no operating system.
            if (line.find("referenced manual not found") == std::string::npos &&
                line.find("operating system explicitly specified") == std::string::npos)
                ADD_FAILURE() << line;
        }
    }
}

TEST(ManualPages, OfTheSetupListsWhatItsHelpLists) {
    HX_REQUIRE_NAMESPACES();
    const std::string page = Page("cv_install.8");
    const std::string help = hx_docs::HelpOfSetup();
    std::set<std::string> options = hx_docs::OptionsOfHelp(help);
    EXPECT_GT(options.size(), 15U);
    // Accepted, but not worth a line of help.
    options.insert({"-c", "-cd", "--cd-install", "-cli", "--cli", "-gui", "--gui"});
    EXPECT_EQ(hx_docs::OptionsOfPage(page), options);

    std::vector<std::string> statuses;
    for (const auto& [status, meaning] : hx_docs::StatusesOfHelp(help))
        statuses.push_back(status);
    EXPECT_GT(statuses.size(), 10U);
    const std::string section = hx_docs::Between(page, "\n.Sh EXIT STATUS\n", "\n.Sh ");
    EXPECT_EQ(hx_docs::Matches(section, "\n\\.It ([^\n]+)"), statuses);
}

TEST(ManualPages, OfTheRunScriptListsWhatItActsOn) {
    const std::set<std::string> options = hx_docs::OptionsOfRunScript();
    EXPECT_GT(options.size(), 30U);
    EXPECT_EQ(hx_docs::OptionsOfPage(Page("corvane26.1")), options);
}

TEST(ManualPages, OfTheRunScriptNamesEveryVariableThatCanBeOverridden) {
    const std::string script = hx_test::ReadFile(HX_PRODUCT_SOURCES "/corvane26.template");
    const std::string environment =
        hx_docs::Between(Page("corvane26.1"), "\n.Sh ENVIRONMENT\n", "\n.Sh ");
    const std::vector<std::string> names = hx_docs::Matches(script, "CORV_USER_([A-Z]+(_CMD)?)\\}");
    EXPECT_GT(names.size(), 20U);
    for (const std::string& name : names)
        EXPECT_FALSE(hx_docs::Matches(environment, "[ _](" + name + ")[ \n]").empty()) << name;
    for (const std::string& name : hx_docs::Matches(script, "(CORV_QUEUE_TYPE|CORV_SCHEDULER)="))
        EXPECT_NE(environment.find(name), std::string::npos) << name;
}

TEST(RunScript, ListsItsOptionsInItsHelp) {
    const std::string script = hx_test::ReadFile(HX_PRODUCT_SOURCES "/corvane26.template");
    const std::string help = hx_docs::Between(script, "cat <<'EOF'\n", "\nEOF\n");
    std::set<std::string> listed;
    for (const std::string& option : hx_docs::Matches(help, "\n  (--[a-z-]+)"))
        listed.insert(option);
    std::set<std::string> longOptions;
    for (const std::string& option : hx_docs::OptionsOfRunScript()) {
        if (option.starts_with("--"))
            longOptions.insert(option);
    }
    EXPECT_EQ(listed, longOptions);
}

TEST(ManualPages, OfTheLimitsListsTheKeysInTheirOrder) {
    const hx_test::TempDir directory;
    hx_test::WriteFile(directory / "QueueLimits", "");
    CQueueLimits limits(directory.path().c_str());
    ASSERT_EQ(limits.writeQueueLimits(), 0);
    const std::vector<std::string> written =
        hx_docs::Matches("\n" + hx_test::ReadFile(directory / "QueueLimits"), "\n([A-Za-z]+):");
    EXPECT_EQ(written.size(), 5U);
    EXPECT_EQ(hx_docs::Matches(Page("QueueLimits.5"), "\n\\.It Cm ([A-Za-z]+) :"), written);
}

TEST(ManualPages, OfTheLimitsTellTheDefaults) {
    const CQueueLimits none("/nowhere");
    const std::vector<std::string> defaults = {
        std::to_string(none.MaxThreads), std::to_string(none.MemoryPerThreadMB), none.Scratch,
        std::to_string(none.DiskPerThreadGB), std::to_string(none.ThreadsPerMolecule)};
    EXPECT_EQ(hx_docs::Matches(Page("QueueLimits.5"), "\nDefault: ([0-9a-z/]+)"), defaults);
}

}  // namespace
