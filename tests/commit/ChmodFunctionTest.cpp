// The script's own mode function, taken out of the script and called on its own.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "commit/ScriptText.h"
#include "harness/Child.h"
#include "harness/Process.h"
#include "harness/TempDir.h"

using hx_test::ProcessResult;
using hx_test::TempDir;
using hx_test::WriteFile;

namespace {

std::string FunctionText() {
    const std::string script = hx_test::ScriptOf(hx_test::NewUserRun);
    const size_t begin = script.find("chmod_if_different() {\n");
    const size_t end = script.find("\n}\n", begin);
    EXPECT_NE(end, std::string::npos);
    return script.substr(begin, end + 3 - begin);
}

ProcessResult Call(const std::string& mode, const std::string& file) {
    const std::string text = FunctionText() + "chmod_if_different \"$1\" \"$2\"\n";
    return hx_test::Run({"/bin/bash", "-c", text, "bash", mode, file});
}

mode_t ModeOf(const std::string& path) {
    struct stat entry = {};
    EXPECT_EQ(stat(path.c_str(), &entry), 0);
    return entry.st_mode & 07777;
}

TEST(ChmodFunction, ChangesAnotherModeAndTellsBoth) {
    HX_REQUIRE_NAMESPACES();
    const TempDir directory;
    const std::string file = directory / "a file";
    WriteFile(file, "");
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    const auto result = Call("664", file);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Updating " + file + ": 640 -> 664\n");
    EXPECT_EQ(ModeOf(file), 0664U);
}

TEST(ChmodFunction, SkipsAFileOfTheRightMode) {
    HX_REQUIRE_NAMESPACES();
    const TempDir directory;
    const std::string file = directory / "a file";
    WriteFile(file, "");
    ASSERT_EQ(chmod(file.c_str(), 0775), 0);
    const auto result = Call("775", file);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, file + " already has mode 775. Skipping.\n");
}

TEST(ChmodFunction, TakesALeadingDigitForAnotherMode) {
    HX_REQUIRE_NAMESPACES();
    const TempDir directory;
    const std::string file = directory / "a file";
    WriteFile(file, "");
    ASSERT_EQ(chmod(file.c_str(), 04775), 0);
    const auto result = Call("775", file);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Updating " + file + ": 4775 -> 775\n");
    EXPECT_EQ(ModeOf(file), 0775U);
}

TEST(ChmodFunction, FailsWithChmodOnAMissingFile) {
    HX_REQUIRE_NAMESPACES();
    const TempDir directory;
    const std::string file = directory / "missing";
    const auto result = Call("775", file);
    EXPECT_EQ(result.status, hx_test::Run({"/bin/chmod", "775", file}).status);
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(result.out, "Updating " + file + ":  -> 775\n");
}

}  // namespace
