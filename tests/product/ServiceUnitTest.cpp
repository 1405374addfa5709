// The unit of the compute service and the text of its program.
#include <filesystem>
#include <regex>
#include <set>

#include "product/RunScript.h"

namespace hx_test {
namespace {

constexpr const char* kUnitTemplate = HX_PRODUCT_DIR "/corvane26_service.template";
constexpr const char* kServiceProgram = HX_PRODUCT_DIR "/corvane26_service_script";

// The unit as the setup makes it, but for the directory of the program.
std::string RenderedUnit(const std::string& directory) {
    const ProcessResult result = hx_test::Run(
        {"sed", "-e", "s|%CORV_SERVICE_SCRIPT_DIR%|" + directory + "|g", kUnitTemplate});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

TEST(ServiceUnit, RefersToTheProgramThroughItsOnePlaceholder) {
    const std::string text = ReadFile(kUnitTemplate);
    EXPECT_NE(text.find("\nExecStart=%CORV_SERVICE_SCRIPT_DIR%/corvane26_service_script start\n"),
              std::string::npos);
    const std::regex placeholder("%[A-Za-z_]+%");
    std::set<std::string> names;
    for (std::sregex_iterator it(text.begin(), text.end(), placeholder), end; it != end; ++it)
        names.insert(it->str());
    EXPECT_EQ(names, std::set<std::string>{"%CORV_SERVICE_SCRIPT_DIR%"});
    EXPECT_EQ(RenderedUnit("/usr/bin").find('%'), std::string::npos);
}

TEST(ServiceUnit, IsCleanForTheSystemsOwnCheck) {
    if (!Installed("systemd-analyze"))
        GTEST_SKIP() << "systemd-analyze is not installed";
    const TempDir directory;
    std::filesystem::copy(kServiceProgram, directory / "corvane26_service_script");
    const std::string unit = directory / "corvane26_service.service";
    WriteFile(unit, RenderedUnit(directory.path().string()));
    // It looks at the units that this one refers to as well; they are not ours to judge.
    const ProcessResult result = hx_test::Run({"systemd-analyze", "verify", unit});
    EXPECT_EQ((result.out + result.err).find("corvane26_service"), std::string::npos) << result.err;
}

// Were the check of no use, the test above would be, too.
TEST(ServiceUnit, TheSystemsCheckFindsAMissingProgram) {
    if (!Installed("systemd-analyze"))
        GTEST_SKIP() << "systemd-analyze is not installed";
    const TempDir directory;
    const std::string unit = directory / "corvane26_service.service";
    WriteFile(unit, RenderedUnit(directory.path().string()));
    const ProcessResult result = hx_test::Run({"systemd-analyze", "verify", unit});
    EXPECT_NE((result.out + result.err).find("corvane26_service"), std::string::npos);
}

TEST(ServiceUnit, DoesNotTryAgainWhereThatDoesNotHelp) {
    const std::string text = ReadFile(kUnitTemplate);
    EXPECT_NE(text.find("\nRestart=on-failure\n"), std::string::npos);
    EXPECT_NE(text.find("\nRestartPreventExitStatus=5 6\n"), std::string::npos);
}

// Set-uid helpers of schedulers must work in the jobs that the service submits.
TEST(ServiceUnit, LeavesSetUidProgramsTheirRights) {
    const std::string text = ReadFile(kUnitTemplate);
    for (const char* setting : {"\nNoNewPrivileges=", "\nUser=", "\nDynamicUser=", "\nPrivateTmp="})
        EXPECT_EQ(text.find(setting), std::string::npos) << setting;
}

TEST(ServiceProgramText, IsExecutable) {
    const auto mode = std::filesystem::status(kServiceProgram).permissions();
    EXPECT_EQ(mode & std::filesystem::perms(0555), std::filesystem::perms(0555));
}

TEST(ServiceProgramText, ShellcheckFindsNothing) {
    if (!Installed("shellcheck"))
        GTEST_SKIP() << "shellcheck is not installed";
    const ProcessResult result =
        hx_test::Run({"shellcheck", "--norc", "--shell=sh", kServiceProgram});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(ServiceProgramText, IsPlainShellForDashAndBash) {
    for (const char* shell : {"dash", "bash"}) {
        if (Installed(shell)) {
            EXPECT_EQ(hx_test::Run({shell, "-n", kServiceProgram}).err, "") << shell;
        }
    }
}

TEST(ServiceProgramText, AnyOtherWordGetsTheUsage) {
    for (const Words& words : {Words{}, Words{""}, Words{"restart"}, Words{"fail"}}) {
        Words command = {"sh", kServiceProgram};
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
