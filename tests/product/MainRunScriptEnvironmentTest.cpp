// The variables that the main run script exports, and how a user overrides them.
#include <set>

#include "product/RunScript.h"

namespace hx_test {
namespace {

const char* const kOverridable[] = {
    "QSUB_CMD",       "QDEL_CMD", "QSIG_CMD",       "SBATCH_CMD", "SCANCEL_CMD", "ROOT",
    "BUILDER",        "SELECT",   "MONITOR",        "SNAPSHOT",   "ABINITIO",    "SEMIEMP",
    "MECHANICS",      "PROPERTY", "GRAPHICS",       "CONFORMER",  "QMMM",        "ALIGN",
    "QCHEM",          "QCHEMAUX", "INSTALL",        "ARCH",       "SUBMIT",      "STARTBACKEND",
    "COMPUTECONTROL", "CONVERT",  "COMPUTESERVICE", "CPUDIR",
};

// The modules whose directory is the root unless overridden.
const char* const kModules[] = {
    "BUILDER", "SELECT",         "MONITOR",  "SNAPSHOT",     "ABINITIO",
    "SEMIEMP", "MECHANICS",      "PROPERTY", "GRAPHICS",     "CONFORMER",
    "QMMM",    "ALIGN",          "QCHEM",    "INSTALL",      "ARCH",
    "SUBMIT",  "COMPUTECONTROL", "CONVERT",  "STARTBACKEND", "COMPUTESERVICE",
};

class MainRunScriptEnvironment : public MainRunScriptTest {
protected:
    // All that the script exports when nothing is overridden.
    Variables Defaults() const { return DefaultsBelow(installation.root()); }

    // The same with the root moved to `root`.
    Variables DefaultsBelow(const std::string& root) const {
        Variables variables = installation.Placeholders();
        variables["CORV_ROOT"] = root;
        variables["LD_LIBRARY_PATH"] = root + ":" + root + "/ssl-compat:" + root + "/Qt-6.5/lib";
        for (const std::string name : kModules)
            variables["CORV_" + name] = root;
        variables["CORV_QCHEMAUX"] = root + "/auxdir";
        variables["CORV_QCHEMRC"] = installation.settings() + "/qchemrc";
        variables["CORV_ACCESS"] = installation.settings();
        variables["CORV_CONFIG"] = installation.settings();
        variables["CORV_CPUDIR"] = "linux x86-64";
        return variables;
    }

    Variables Exported(const Variables& env) const {
        return ParseEnvironment(Corvane({"--printenv"}, env).out);
    }

    Variables ExportedWith(const std::string& variable, const std::string& value) const {
        return Exported({{"CORV_USER_OVERRIDE", "YES"}, {variable, value}});
    }
};

TEST_P(MainRunScriptEnvironment, HoldsEverySettingAndDirectoryAndNothingElse) {
    EXPECT_EQ(Exported({}), Defaults());
}

TEST_P(MainRunScriptEnvironment, ReachesTheProgramsThatAreStarted) {
    Installation::AddProgram(installation.Program("cv_spd"), kEnvironmentPrinter);
    EXPECT_EQ(ParseEnvironment(Corvane({"--submit"}).out), Defaults());
    Installation::AddProgram(installation.Program("cv_builder gl"), kEnvironmentPrinter);
    EXPECT_EQ(ParseEnvironment(Corvane({}).out), Defaults());
}

TEST_P(MainRunScriptEnvironment, PrintenvPrintsTheValueOfOneVariable) {
    for (const auto& [name, value] : Defaults()) {
        const ProcessResult result = Corvane({"--printenv", name});
        EXPECT_EQ(result.out, value + "\n") << name;
        EXPECT_EQ(result.status, 0) << name;
    }
    EXPECT_EQ(Corvane({"-e", "CORV_ROOT"}).out, installation.root() + "\n");
}

TEST_P(MainRunScriptEnvironment, PrintenvOfAnUnknownVariablePrintsNothing) {
    const ProcessResult result = Corvane({"--printenv", "CORV_NO_SUCH_THING"});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
}

TEST_P(MainRunScriptEnvironment, EachOverrideReplacesItsOwnVariableOnly) {
    for (const std::string name : kOverridable) {
        if (name == "ROOT" || name == "QCHEM" || name == "ARCH")
            continue;  // others follow these
        Variables expected = Defaults();
        expected["CORV_" + name] = "my own  " + name;
        EXPECT_EQ(ExportedWith("CORV_USER_" + name, "my own  " + name), expected) << name;
    }
}

TEST_P(MainRunScriptEnvironment, TheRootOverrideTakesTheModulesAlong) {
    const std::string other = installation.home() + "/other";
    Installation::AddProgram(other + "/cv_arch", "#!/bin/sh\necho linux x86-64\n");
    EXPECT_EQ(ExportedWith("CORV_USER_ROOT", other), DefaultsBelow(other));
}

TEST_P(MainRunScriptEnvironment, TheQChemOverrideTakesItsAuxiliaryDirectoryAlong) {
    Variables expected = Defaults();
    expected["CORV_QCHEM"] = "/opt/q chem";
    expected["CORV_QCHEMAUX"] = "/opt/q chem/auxdir";
    EXPECT_EQ(ExportedWith("CORV_USER_QCHEM", "/opt/q chem"), expected);
}

TEST_P(MainRunScriptEnvironment, TheArchOverrideDecidesWhoNamesTheCpuDirectory) {
    const std::string other = installation.home() + "/other";
    Installation::AddProgram(other + "/cv_arch", "#!/bin/sh\necho \"other $*\"\n");
    Variables expected = Defaults();
    expected["CORV_ARCH"] = other;
    expected["CORV_CPUDIR"] = "other -n";
    EXPECT_EQ(ExportedWith("CORV_USER_ARCH", other), expected);
}

TEST_P(MainRunScriptEnvironment, TheCpuDirectoryCanBeGivenWithoutTheArchProgram) {
    std::filesystem::remove(installation.Program("cv_arch"));
    EXPECT_EQ(ExportedWith("CORV_USER_CPUDIR", "mine").at("CORV_CPUDIR"), "mine");
}

TEST_P(MainRunScriptEnvironment, UserOverrideNeedsTheExactWordYes) {
    for (const char* word : {"", "yes", "Yes", "YES ", " YES", "YESS", "NO", "1"}) {
        Variables env = {{"CORV_USER_OVERRIDE", word}, {"CORV_USER_LD_PATH", "/mine"}};
        for (const std::string name : kOverridable)
            env["CORV_USER_" + name] = "mine";
        EXPECT_EQ(Exported(env), Defaults()) << '"' << word << '"';
    }
}

TEST_P(MainRunScriptEnvironment, WithoutTheWordOverridesDoNothing) {
    Variables env = {{"CORV_USER_LD_PATH", "/mine"}};
    for (const std::string name : kOverridable)
        env["CORV_USER_" + name] = "mine";
    EXPECT_EQ(Exported(env), Defaults());
}

TEST_P(MainRunScriptEnvironment, AnEmptyOverrideLeavesTheDefault) {
    Variables env = {{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_LD_PATH", ""}};
    for (const std::string name : kOverridable)
        env["CORV_USER_" + name] = "";
    EXPECT_EQ(Exported(env), Defaults());
}

TEST_P(MainRunScriptEnvironment, TheOtherVariablesCannotBeOverridden) {
    const std::set<std::string> overridable(std::begin(kOverridable), std::end(kOverridable));
    Variables env = {{"CORV_USER_OVERRIDE", "YES"}};
    for (const auto& [name, value] : Defaults()) {
        if (name.starts_with("CORV_") && !overridable.contains(name.substr(5)))
            env["CORV_USER_" + name.substr(5)] = "mine";
    }
    EXPECT_EQ(env.size(), 1U + 17U + 3U);  // the word, the settings, the directories
    EXPECT_EQ(Exported(env), Defaults());
}

TEST_P(MainRunScriptEnvironment, TheCallersOwnValuesGiveWay) {
    Variables env;
    for (const auto& [name, value] : Defaults()) {
        if (name != "LD_LIBRARY_PATH")
            env[name] = "stale";
    }
    EXPECT_EQ(Exported(env), Defaults());
}

TEST_P(MainRunScriptEnvironment, SettingsThatTheSetupLeftOutAreEmpty) {
    Variables values = installation.Placeholders();
    Variables expected = Defaults();
    for (auto& [name, value] : values) {
        if (name != "CORV_ROOT" && name != "CORV_CORVANERC")
            expected[name] = value = "";
    }
    const std::string bare = installation.Instantiate(kMainTemplate, values);
    EXPECT_EQ(ParseEnvironment(RunScript(bare, {"--printenv"}).out), expected);
    expected["CORV_SBATCH_CMD"] = "/my/sbatch";
    const Variables env = {{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_SBATCH_CMD", "/my/sbatch"}};
    EXPECT_EQ(ParseEnvironment(RunScript(bare, {"--printenv"}, env).out), expected);
}

INSTANTIATE_TEST_SUITE_P(On, MainRunScriptEnvironment, testing::ValuesIn(kGrounds), GroundName);

}  // namespace
}  // namespace hx_test
