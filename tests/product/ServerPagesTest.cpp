// The web pages, as a setup unpacks them.

#include "harness/Pattern.h"
#include "product/Installation.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

class WebPages : public testing::Test {
protected:
    void SetUp() override {
        if (!Installed("xmllint"))
            GTEST_SKIP() << "xmllint is not installed";
        for (const std::string name : {"resources", "icons"}) {
            const std::string archive = HX_PRODUCT_DIR "/docroot/" + name + ".tar";
            ASSERT_EQ(
                hx_test::Run({"tar", "-x", "-C", docroot.path().string(), "-f", archive}).status,
                0);
        }
    }

    std::vector<fs::path> Files(const std::string& extension) const {
        std::vector<fs::path> files;
        for (const auto& entry : fs::recursive_directory_iterator(docroot.path())) {
            if (entry.path().extension() == extension)
                files.push_back(entry.path());
        }
        return files;
    }

    // Returns the value of an XPath expression for the page.
    std::string OfPage(const std::string& expression) const {
        const std::string out = hx_test::Run({"xmllint", "--xpath", expression, page}).out;
        return out.substr(0, out.find('\n'));
    }

    TempDir docroot;
    std::string page = docroot / "resources/index.html";
};

TEST_F(WebPages, AreWellFormed) {
    EXPECT_EQ(Files(".html").size(), 1U);
    EXPECT_GE(Files(".svg").size(), 5U);
    for (const std::string extension : {".html", ".svg"}) {
        for (const auto& file : Files(extension)) {
            const ProcessResult result =
                hx_test::Run({"xmllint", "--noout", "--nonet", file.string()});
            EXPECT_EQ(result.status, 0) << result.err;
        }
    }
}

TEST_F(WebPages, HaveTitleInEachPicture) {
    for (const auto& file : Files(".svg")) {
        const ProcessResult result = hx_test::Run(
            {"xmllint", "--xpath", "string(/*/*[local-name()='title'])", file.string()});
        EXPECT_GT(result.out.find('\n'), 0U) << file;
        EXPECT_EQ(result.status, 0) << file << result.err;
    }
}

TEST_F(WebPages, SupportScreenReaders) {
    EXPECT_EQ(OfPage("string(/*/@lang)"), "en");
    EXPECT_EQ(OfPage("string(//*[local-name()='title'])"), "Corvane Compute Service");
    EXPECT_EQ(OfPage("count(//*[local-name()='h1'])"), "1");
    EXPECT_EQ(OfPage("count(//*[local-name()='main'])"), "1");
    EXPECT_EQ(OfPage("count(//*[local-name()='img'][not(@alt)])"), "0");
    EXPECT_EQ(OfPage("count(//@aria-labelledby[not(. = //@id)])"), "0");
}

TEST_F(WebPages, ReferToExistingFiles) {
    const std::string found = hx_test::Run({"xmllint", "--xpath", "//@href | //@src", page}).out;
    const std::vector<Match> values = AllMatches(found, R"re(="([^"]*)")re");
    for (const Match& value : values)
        EXPECT_TRUE(fs::is_regular_file(docroot / "resources" + "/" + value[1])) << found;
    EXPECT_GT(values.size(), 1U);
}

TEST_F(WebPages, ReferToNoOtherServer) {
    for (const std::string extension : {".html", ".css", ".svg"}) {
        for (const auto& file : Files(extension)) {
            const std::string text = ReplaceMatches(ReadFile(file), R"(xmlns="[^"]*")", "");
            EXPECT_FALSE(text.empty()) << file;
            for (const char* reference : {"//", "@import", "url("})
                EXPECT_EQ(text.find(reference), std::string::npos) << file << reference;
        }
    }
}

}  // namespace
}  // namespace hx_test
