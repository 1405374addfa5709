// The written snapshot run script: its environment, and the program that takes its place.
#include "generated/WrittenRunScript.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {

class WrittenSnapshotScript : public WrittenRunScriptTest {
protected:
    ProcessResult Snapshot(const Words& args, const Variables& env = {}) const {
        return RunScript(SnapshotScript(), args, env);
    }
    Variables SnapshotEnvironment(const Variables& env = {}) const {
        Installation::AddProgram(installation.Program("cv_snapshot"), kEnvironmentPrinter);
        return ParseEnvironment(Snapshot({}, env).out);
    }
    std::string LibraryPath() const {
        const std::string root = installation.root();
        return root + "/Qt-4.8.5:" + root + "/GCC-4.7.2:" + root;
    }
};

TEST_P(WrittenSnapshotScript, AllArgumentsGoToTheProgram) {
    for (const Words& args : {Words{}, Words{"two  words", "*", "", "--help", "--setenv"}}) {
        const ProcessResult result = Snapshot(args);
        EXPECT_EQ(result.out, Lines({installation.Program("cv_snapshot")}) + Lines(args));
        EXPECT_EQ(result.err, "");
    }
}

TEST_P(WrittenSnapshotScript, TheProgramTakesTheScriptsPlace) {
    const ProcessResult result =
        RunScriptInPlace(SnapshotScript(), {"a"}, {{"STANDIN_STATUS", "37"}});
    const std::string pid = result.out.substr(0, result.out.find('\n') + 1);
    EXPECT_EQ(result.out, pid + Lines({installation.Program("cv_snapshot"), "a"}) + pid);
    EXPECT_EQ(result.status, 37);
}

TEST_P(WrittenSnapshotScript, ExportsFourVariables) {
    const Variables expected = {{"CORV_ROOT", installation.root()},
                                {"CORV_CORVANERC", installation.settings()},
                                {"CORV_SNAPSHOT", installation.root()},
                                {"LD_LIBRARY_PATH", LibraryPath()}};
    EXPECT_EQ(SnapshotEnvironment(), expected);
    EXPECT_EQ(TimesArchWasAsked(), 0U);
}

TEST_P(WrittenSnapshotScript, TheLibraryPathKeepsTheCallersBehindTheProducts) {
    const std::string qt = installation.root() + "/Qt-4.8.5:";
    Variables env = {{"LD_LIBRARY_PATH", "/callers"}};
    EXPECT_EQ(SnapshotEnvironment(env)["LD_LIBRARY_PATH"], LibraryPath() + ":/callers");
    env["CORV_USER_LD_PATH"] = "/my libs";
    EXPECT_EQ(SnapshotEnvironment(env)["LD_LIBRARY_PATH"], LibraryPath() + ":/callers");
    env["CORV_USER_OVERRIDE"] = "YES";
    EXPECT_EQ(SnapshotEnvironment(env)["LD_LIBRARY_PATH"], qt + "/my libs");
    env["LD_LIBRARY_PATH"] = "";
    EXPECT_EQ(SnapshotEnvironment(env)["LD_LIBRARY_PATH"], qt + "/my libs");
}

TEST_P(WrittenSnapshotScript, RootAndProgramDirectoryCanBeOverridden) {
    const std::string other = installation.home() + "/other place";
    Installation::AddProgram(other + "/cv_snapshot");
    for (const char* name : {"CORV_USER_ROOT", "CORV_USER_SNAPSHOT"}) {
        EXPECT_EQ(Snapshot({}, {{"CORV_USER_OVERRIDE", "YES"}, {name, other}}).out,
                  Lines({other + "/cv_snapshot"}));
        for (const char* off : {"yes", ""}) {
            EXPECT_EQ(Snapshot({}, {{"CORV_USER_OVERRIDE", off}, {name, other}}).out,
                      Lines({installation.Program("cv_snapshot")}));
        }
        EXPECT_EQ(Snapshot({}, {{"CORV_USER_OVERRIDE", "YES"}, {name, ""}}).out,
                  Lines({installation.Program("cv_snapshot")}));
    }
}

TEST_P(WrittenSnapshotScript, WithoutTheProgramTheStatusTellsIt) {
    std::filesystem::remove(installation.Program("cv_snapshot"));
    EXPECT_EQ(Snapshot({}).status, 127);
}

INSTANTIATE_TEST_SUITE_P(On, WrittenSnapshotScript, testing::ValuesIn(kGrounds), GroundName);

}  // namespace
}  // namespace hx_test
