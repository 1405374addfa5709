// The links and the paths that the Markdown pages name: what they lead to is there.
#include <gtest/gtest.h>

#include <filesystem>

#include "docs/Texts.h"
#include "harness/TempDir.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Pages() {
    std::vector<fs::path> pages = {HX_README};
    for (const auto& entry : fs::directory_iterator(HX_DOCS)) {
        if (entry.path().extension() == ".md")
            pages.push_back(entry.path());
    }
    return pages;
}

TEST(Links, LeadToFiles) {
    size_t links = 0;
    for (const fs::path& page : Pages()) {
        for (const std::string& target :
             hx_docs::Matches(hx_test::ReadFile(page), "\\]\\(([^)#]+)[^)]*\\)")) {
            EXPECT_TRUE(fs::exists(page.parent_path() / target)) << page << ": " << target;
            ++links;
        }
    }
    EXPECT_GT(links, 10U);
}

TEST(Links, PathsOfTheTreeAreThere) {
    size_t paths = 0;
    for (const fs::path& page : Pages()) {
        for (const std::string& path : hx_docs::Matches(
                 hx_test::ReadFile(page),
                 "`((?:src|apps|tests|scripts|docs|bench|packaging|product)/[a-z_A-Z0-9./]+)`")) {
            EXPECT_TRUE(fs::exists(fs::path(HX_SOURCE) / path)) << page << ": " << path;
            ++paths;
        }
    }
    EXPECT_GT(paths, 20U);
}

}  // namespace
