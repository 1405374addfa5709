// The unit of the compute service and the text of its script.
#include <filesystem>
#include <set>

#include "harness/Pattern.h"
#include "product/Installation.h"

namespace hx_test {
namespace {

constexpr const char* unitTemplate = HX_PRODUCT_DIR "/corvane26_service.template";
constexpr const char* serviceScript = HX_PRODUCT_DIR "/corvane26_service_script";

// Returns the unit for a directory of the script.
std::string RenderedUnit(const std::string& directory) {
    const ProcessResult result = hx_test::Run(
        {"sed", "-e", "s|%CORV_SERVICE_SCRIPT_DIR%|" + directory + "|g", unitTemplate});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

TEST(ServiceUnit, HasOnePlaceholderForScript) {
    const std::string text = ReadFile(unitTemplate);
    EXPECT_NE(text.find("\nExecStart=%CORV_SERVICE_SCRIPT_DIR%/corvane26_service_script start\n"),
              std::string::npos);
    std::set<std::string> names;
    for (const Match& match : AllMatches(text, "%[A-Za-z_]+%"))
        names.insert(match[0]);
    EXPECT_EQ(names, std::set<std::string>{"%CORV_SERVICE_SCRIPT_DIR%"});
    EXPECT_EQ(RenderedUnit("/usr/bin").find('%'), std::string::npos);
}

TEST(ServiceUnit, PassesCheckOfSystemd) {
    if (!Installed("systemd-analyze"))
        GTEST_SKIP() << "systemd-analyze is not installed";
    const TempDir directory;
    const std::string unit = directory / "corvane26_service.service";
    WriteFile(unit, RenderedUnit(directory.path().string()));
    // The check includes other units, which do not matter here.
    const auto messages = [&unit] {
        const ProcessResult result = hx_test::Run({"systemd-analyze", "verify", unit});
        return result.out + result.err;
    };
    EXPECT_NE(messages().find("corvane26_service"), std::string::npos) << "the script is missing";
    std::filesystem::copy(serviceScript, directory / "corvane26_service_script");
    EXPECT_EQ(messages().find("corvane26_service"), std::string::npos) << messages();
}

TEST(ServiceUnit, RestartsOnlyWhenThatCanHelp) {
    const std::string text = ReadFile(unitTemplate);
    EXPECT_NE(text.find("\nRestart=on-failure\n"), std::string::npos);
    EXPECT_NE(text.find("\nRestartPreventExitStatus=5 6\n"), std::string::npos);
}

// Set-uid helpers of schedulers must work.
TEST(ServiceUnit, AllowsSetUidPrograms) {
    const std::string text = ReadFile(unitTemplate);
    for (const char* setting : {"\nNoNewPrivileges=", "\nUser=", "\nDynamicUser=", "\nPrivateTmp="})
        EXPECT_EQ(text.find(setting), std::string::npos) << setting;
}

TEST(ServiceScriptText, IsExecutable) {
    const auto mode = std::filesystem::status(serviceScript).permissions();
    EXPECT_EQ(mode & std::filesystem::perms(0555), std::filesystem::perms(0555));
}

TEST(ServiceScriptText, PassesShellcheck) {
    if (!Installed("shellcheck"))
        GTEST_SKIP() << "shellcheck is not installed";
    const ProcessResult result =
        hx_test::Run({"shellcheck", "--norc", "--shell=sh", serviceScript});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(ServiceScriptText, PrintsUsageForUnknownWord) {
    for (const Words& words : {Words{}, Words{""}, Words{"restart"}, Words{"fail"}}) {
        Words command = {"sh", serviceScript};
        command.insert(command.end(), words.begin(), words.end());
        const ProcessResult result = hx_test::Run(command);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err,
                  "corvane26_service: usage: corvane26_service_script start|stop|status\n");
    }
}

}  // namespace
}  // namespace hx_test
