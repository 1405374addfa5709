// The variables that the main run script exports, and how a user overrides them.
#include <set>

#include "generated/RunScripts.h"

namespace hx_test {
namespace {

// The modules whose directory is the root unless overridden.
const Words modules = {"BUILDER", "SELECT",    "MONITOR",  "SNAPSHOT",       "ABINITIO",
                       "SEMIEMP", "MECHANICS", "PROPERTY", "GRAPHICS",       "CONFORMER",
                       "QMMM",    "ALIGN",     "QCHEM",    "STARTBACKEND",   "INSTALL",
                       "ARCH",    "SUBMIT",    "CONVERT",  "COMPUTECONTROL", "COMPUTESERVICE"};

class RunScriptEnvironment : public RunScriptTest {
protected:
    // Returns all exported variables, with the root in another directory.
    Variables DefaultsBelow(const std::string& root) const {
        Variables variables = installation.Placeholders();
        if (IsWriter()) {
            std::erase_if(variables, [](const auto& variable) {
                return !std::set<std::string>{"CORV_CORVANERC",  "CORV_QUEUE_TYPE",
                                              "CORV_QUEUE_NAME", "CORV_QSUB_CMD",
                                              "CORV_QDEL_CMD",   "CORV_QSIG_CMD"}
                            .contains(variable.first);
            });
        }
        for (const auto& module : modules)
            variables["CORV_" + module] = root;
        const std::string settings = installation.Settings();
        variables.insert({{"CORV_QCHEMAUX", root + "/auxdir"},
                          {"CORV_QCHEMRC", settings + "/qchemrc"},
                          {"CORV_ACCESS", settings},
                          {"CORV_CONFIG", settings},
                          {"CORV_CPUDIR", "x86_64"}});
        variables["CORV_ROOT"] = root;
        variables["LD_LIBRARY_PATH"] =
            IsWriter() ? root + "/Qt-4.8.5:" + root + "/Intel-12.1.3:" + root + "/GCC-4.7.2:" + root
                       : root + ":" + root + "/ssl-compat:" + root + "/Qt-6.5/lib";
        return variables;
    }
    Variables Defaults() const { return DefaultsBelow(installation.Root()); }

    // Returns the names of all overridable variables, without prefix.
    Words Overridable() const {
        Words names = modules;
        names.insert(names.end(),
                     {"ROOT", "QSUB_CMD", "QDEL_CMD", "QSIG_CMD", "QCHEMAUX", "CPUDIR"});
        if (!IsWriter())
            names.insert(names.end(), {"SBATCH_CMD", "SCANCEL_CMD"});
        return names;
    }

    // Returns an override of every variable.
    Variables AllOverrides(const std::string& value) const {
        Variables env = {{"CORV_USER_LD_PATH", value}};
        for (const auto& name : Overridable())
            env["CORV_USER_" + name] = value;
        return env;
    }
};

TEST_P(RunScriptEnvironment, ContainsSettingsAndDirectories) {
    EXPECT_EQ(Exported(), Defaults());
}

TEST_P(RunScriptEnvironment, ReachesStartedPrograms) {
    Installation::AddProgram(installation.Program("cv_spd"), environmentPrinter);
    const ProcessResult result = Corvane({"--submit"});
    EXPECT_EQ(ParseEnvironment(result.out), Defaults());
    EXPECT_EQ(result.err, "");
}

TEST_P(RunScriptEnvironment, ReplacesOverriddenVariableOnly) {
    Words names = Overridable();
    std::erase_if(names, [](const std::string& name) {  // other variables depend on these
        return name == "ROOT" || name == "QCHEM" || name == "ARCH";
    });
    // Each of two variables is once overridden without the other one.
    for (size_t bit = 1; bit < names.size(); bit *= 2) {
        for (const size_t set : {bit, size_t{0}}) {
            Variables env = {{"CORV_USER_OVERRIDE", "YES"}};
            Variables expected = Defaults();
            for (size_t i = 0; i < names.size(); ++i) {
                if ((i & bit) == set)
                    expected["CORV_" + names[i]] = env["CORV_USER_" + names[i]] =
                        "my own  " + names[i];
            }
            EXPECT_EQ(Exported(env), expected);
        }
    }
}

TEST_P(RunScriptEnvironment, DerivesVariablesFromOverride) {
    Installation::AddProgram(Other() + "/cv_arch", "#!/bin/sh\necho \"other$*\"\n");
    Variables expected = DefaultsBelow(Other());
    expected["CORV_CPUDIR"] = "other-n";
    EXPECT_EQ(Overridden("ROOT", Other()), expected);
    expected = Defaults();
    expected["CORV_ARCH"] = Other();
    expected["CORV_CPUDIR"] = "other-n";
    EXPECT_EQ(Overridden("ARCH", Other()), expected);
    expected = Defaults();
    expected["CORV_QCHEM"] = "/opt/q chem";
    expected["CORV_QCHEMAUX"] = "/opt/q chem/auxdir";
    EXPECT_EQ(Overridden("QCHEM", "/opt/q chem"), expected);
}

TEST_P(RunScriptEnvironment, IgnoresOverridesUnlessSwitchIsYes) {
    Variables env = AllOverrides("mine");
    EXPECT_EQ(Exported(env), Defaults());
    for (const char* word : {"", "yes", "Yes", "YES ", " YES", "YESS", "NO", "1"}) {
        env["CORV_USER_OVERRIDE"] = word;
        EXPECT_EQ(Exported(env), Defaults()) << '"' << word << '"';
    }
}

TEST_P(RunScriptEnvironment, IgnoresEmptyOverrides) {
    Variables env = AllOverrides("");
    env["CORV_USER_OVERRIDE"] = "YES";
    EXPECT_EQ(Exported(env), Defaults());
}

TEST_P(RunScriptEnvironment, CannotBeOverriddenOtherwise) {
    const Words names = Overridable();
    const std::set<std::string> overridable(names.begin(), names.end());
    Variables env = {{"CORV_USER_OVERRIDE", "YES"}};
    for (const auto& [name, value] : Defaults()) {
        if (name.starts_with("CORV_") && !overridable.contains(name.substr(5)))
            env["CORV_USER_" + name.substr(5)] = "mine";
        if (name != "LD_LIBRARY_PATH")
            env[name] = "of the caller";
    }
    EXPECT_EQ(Exported(env), Defaults());
}

TEST_P(RunScriptEnvironment, TakesCpuDirectoryFromOverride) {
    std::filesystem::remove(installation.Program("cv_arch"));
    EXPECT_EQ(Overridden("CPUDIR", "mine").at("CORV_CPUDIR"), "mine");
    EXPECT_EQ(Exported({{"CV_CPUDIR", "of the caller"}}).at("CORV_CPUDIR"), "");
    // Only the template checks for the program.
    const ProcessResult result = Corvane({"--root-path"});
    EXPECT_EQ(result.err.find("cv_arch") != std::string::npos, IsWriter()) << result.err;
    EXPECT_EQ(result.status, 0);
}

// The written script does not quote the answer, whose second word becomes the override.
TEST_P(RunScriptEnvironment, SplitsCpuDirectoryInWrittenScriptOnly) {
    Installation::AddProgram(installation.Program("cv_arch"), "#!/bin/sh\necho linux x86-64\n");
    EXPECT_EQ(Exported().at("CORV_CPUDIR"), IsWriter() ? "linux" : "linux x86-64");
    EXPECT_EQ(Exported({{"CORV_USER_OVERRIDE", "YES"}}).at("CORV_CPUDIR"),
              IsWriter() ? "x86-64" : "linux x86-64");
}

INSTANTIATE_TEST_SUITE_P(On, RunScriptEnvironment, testing::ValuesIn(Grounds()), GroundName);

using TemplateEnvironment = RunScriptEnvironment;

TEST_P(TemplateEnvironment, IsEmptyForMissingSettings) {
    Variables values = installation.Placeholders();
    Variables expected = Defaults();
    for (auto& [name, value] : values) {
        if (name != "CORV_ROOT" && name != "CORV_CORVANERC")
            expected[name] = value = "";
    }
    installation.Instantiate(mainTemplate, values);
    EXPECT_EQ(Exported(), expected);
    expected["CORV_SBATCH_CMD"] = "/my/sbatch";
    EXPECT_EQ(Overridden("SBATCH_CMD", "/my/sbatch"), expected);
}

TEST_P(TemplateEnvironment, IgnoresUnexecutableArch) {
    std::filesystem::permissions(installation.Program("cv_arch"), std::filesystem::perms(0644));
    const ProcessResult result = Corvane({"--printenv", "CORV_CPUDIR"});
    EXPECT_EQ(result.out, "\n");
    EXPECT_EQ(result.err, "");
}

INSTANTIATE_TEST_SUITE_P(On, TemplateEnvironment, testing::ValuesIn(Grounds({Origin::Product})),
                         GroundName);

using WrittenEnvironment = RunScriptEnvironment;

TEST_P(WrittenEnvironment, KeepsQueueOfCallerWithoutQueue) {
    WriteMain();
    Variables both = Exported({{"CORV_QUEUE_TYPE", "MINE"}, {"CORV_QUEUE_NAME", "own"}});
    EXPECT_EQ(both["CORV_QUEUE_TYPE"] + " " + both["CORV_QUEUE_NAME"], "MINE own");
    EXPECT_FALSE(both.contains("CORV_QSUB_CMD"));
}

TEST_P(WrittenEnvironment, IsBrokenByQuoteInDirectory) {
    WriteMain([](CInstallBase& run) { run.m_binariesDir = QStringLiteral("/opt/a\"b"); });
    EXPECT_NE(Corvane({"--root-path"}).status, 0);
}

INSTANTIATE_TEST_SUITE_P(On, WrittenEnvironment, testing::ValuesIn(Grounds({Origin::Library})),
                         GroundName);

}  // namespace
}  // namespace hx_test
