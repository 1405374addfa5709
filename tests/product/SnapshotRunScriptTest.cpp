// The snapshot run script: it sets what the snapshot program needs and becomes it.
#include "product/RunScript.h"

namespace hx_test {
namespace {

class SnapshotRunScript : public RunScriptTest {
protected:
    ProcessResult Snapshot(const Words& args, const Variables& env = {}) const {
        return RunScript(script, args, env);
    }

    // All that the program finds in its environment.
    Variables Seen(const Variables& env) const {
        Installation::AddProgram(installation.Program("cv_snapshot"), kEnvironmentPrinter);
        return ParseEnvironment(Snapshot({}, env).out);
    }

    Variables Defaults() const {
        const std::string root = installation.root();
        return {{"CORV_ROOT", root},
                {"CORV_CORVANERC", installation.settings()},
                {"CORV_SNAPSHOT", root},
                {"LD_LIBRARY_PATH", root + ":" + root + "/ssl-compat:" + root + "/Qt-6.5/lib"}};
    }

    std::string script = installation.Instantiate(
        kSnapshotTemplate,
        {{"CORV_ROOT", installation.root()}, {"CORV_CORVANERC", installation.settings()}});
};

TEST_P(SnapshotRunScript, HandsAllArgumentsOnUnchanged) {
    for (const Words& args : {Words{}, Words{"--help"}, Words{"a  b", "*", "", "--setup", "ü"}}) {
        const ProcessResult result = Snapshot(args);
        EXPECT_EQ(result.out, Lines({installation.Program("cv_snapshot")}) + Lines(args));
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
    }
}

TEST_P(SnapshotRunScript, TheProgramTakesTheScriptsPlace) {
    const ProcessResult result = RunScriptInPlace(script, {}, {{"STANDIN_STATUS", "37"}});
    const std::string pid = result.out.substr(0, result.out.find('\n') + 1);
    EXPECT_TRUE(pid.starts_with("pid ")) << result.out;
    EXPECT_EQ(result.out, pid + Lines({installation.Program("cv_snapshot")}) + pid);
    EXPECT_EQ(result.status, 37);
}

TEST_P(SnapshotRunScript, ExportsFourVariablesAndNothingElse) {
    EXPECT_EQ(Seen({}), Defaults());
}

TEST_P(SnapshotRunScript, OverridesNeedTheExactWordYesAndAValue) {
    const Variables mine = {
        {"CORV_USER_ROOT", "/mine"}, {"CORV_USER_SNAPSHOT", "/mine"}, {"CORV_USER_LD_PATH", "/m"}};
    EXPECT_EQ(Seen(mine), Defaults());
    for (const char* word : {"", "yes", "Yes", "YES ", "NO"}) {
        Variables env = mine;
        env["CORV_USER_OVERRIDE"] = word;
        EXPECT_EQ(Seen(env), Defaults()) << '"' << word << '"';
    }
    EXPECT_EQ(Seen({{"CORV_USER_OVERRIDE", "YES"},
                    {"CORV_USER_ROOT", ""},
                    {"CORV_USER_SNAPSHOT", ""},
                    {"CORV_USER_LD_PATH", ""}}),
              Defaults());
}

TEST_P(SnapshotRunScript, TheRootOverrideTakesTheProgramAlong) {
    const std::string other = installation.home() + "/other place";
    Installation::AddProgram(other + "/cv_snapshot", kEnvironmentPrinter);
    const Variables expected = {
        {"CORV_ROOT", other},
        {"CORV_CORVANERC", installation.settings()},
        {"CORV_SNAPSHOT", other},
        {"LD_LIBRARY_PATH", other + ":" + other + "/ssl-compat:" + other + "/Qt-6.5/lib"}};
    EXPECT_EQ(Seen({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_ROOT", other}}), expected);
}

TEST_P(SnapshotRunScript, TheSnapshotOverrideMovesTheProgramOnly) {
    const std::string other = installation.home() + "/other place";
    Installation::AddProgram(other + "/cv_snapshot", kEnvironmentPrinter);
    Variables expected = Defaults();
    expected["CORV_SNAPSHOT"] = other;
    EXPECT_EQ(Seen({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_SNAPSHOT", other}}), expected);
}

INSTANTIATE_TEST_SUITE_P(On, SnapshotRunScript, testing::ValuesIn(kGrounds), GroundName);

}  // namespace
}  // namespace hx_test
