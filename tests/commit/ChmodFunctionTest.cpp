// The mode function of the commit script, called on its own.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "commit/ScriptText.h"
#include "harness/Process.h"
#include "harness/TempDir.h"

namespace {

hx_test::ProcessResult SetMode(const std::string& mode, const std::string& file) {
    const std::string script = hx_test::ScriptOf(hx_test::NewUserRun, [](CInstallBase&) {});
    const size_t begin = script.find("chmod_if_different() {\n");
    const size_t end = script.find("\n}\n", begin) + 3;
    return hx_test::Run({"/bin/bash", "-c",
                         script.substr(begin, end - begin) + "chmod_if_different \"$1\" \"$2\"\n",
                         "bash", mode, file});
}

TEST(ChmodFunction, ChangesDifferentModeOnly) {
    HX_REQUIRE_NAMESPACES();
    const hx_test::TempDir directory;
    const std::string file = directory / "a file";
    hx_test::WriteFile(file, "");
    struct {
        mode_t present;
        const char* wanted;
        mode_t changed;
        std::string output;
    } const cases[] = {
        {0640, "664", 0664, "Updating " + file + ": 640 -> 664\n"},
        {0775, "775", 0775, file + " already has mode 775. Skipping.\n"},
        {04775, "775", 0775, "Updating " + file + ": 4775 -> 775\n"},
    };
    for (const auto& test : cases) {
        ASSERT_EQ(chmod(file.c_str(), test.present), 0);
        const auto result = SetMode(test.wanted, file);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, test.output);
        struct stat entry = {};
        ASSERT_EQ(stat(file.c_str(), &entry), 0);
        EXPECT_EQ(entry.st_mode & 07777, test.changed);
    }
}

TEST(ChmodFunction, FailsOnMissingFile) {
    HX_REQUIRE_NAMESPACES();
    const hx_test::TempDir directory;
    const std::string file = directory / "missing";
    const auto result = SetMode("775", file);
    EXPECT_EQ(result.status, hx_test::Run({"/bin/chmod", "775", file}).status);
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(result.out, "Updating " + file + ":  -> 775\n");
}

}  // namespace
