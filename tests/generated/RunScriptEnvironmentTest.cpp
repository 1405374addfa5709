// What the written main run script exports, and what the user may override.
#include "generated/WrittenRunScript.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {

// Variables that follow the root directory, and the name of their override.
const Words kModules = {"BUILDER", "SELECT",    "MONITOR",  "SNAPSHOT",       "ABINITIO",
                        "SEMIEMP", "MECHANICS", "PROPERTY", "GRAPHICS",       "CONFORMER",
                        "QMMM",    "ALIGN",     "QCHEM",    "STARTBACKEND",   "INSTALL",
                        "ARCH",    "SUBMIT",    "CONVERT",  "COMPUTECONTROL", "COMPUTESERVICE"};

class WrittenEnvironment : public WrittenRunScriptTest {
protected:
    void SetUp() override {
        WrittenRunScriptTest::SetUp();
        WriteMain([](CInstallBase& run) {
            run.m_queueType = CInstallBase::QueueExternal;
            run.m_queueName = QStringLiteral("long batch");
            run.m_qsubCmd = QStringLiteral("/opt/pbs bin/qsub");
            run.m_qdelCmd = QStringLiteral("/opt/pbs/qdel");
            run.m_qsigCmd = QStringLiteral("/opt/pbs/qsig");
        });
    }

    Variables Defaults() const {
        const std::string root = installation.root();
        const std::string settings = installation.settings();
        Variables all = {{"CORV_QUEUE_TYPE", "EXTERNAL"},
                         {"CORV_QUEUE_NAME", "long batch"},
                         {"CORV_QSUB_CMD", "/opt/pbs bin/qsub"},
                         {"CORV_QDEL_CMD", "/opt/pbs/qdel"},
                         {"CORV_QSIG_CMD", "/opt/pbs/qsig"},
                         {"CORV_ROOT", root},
                         {"CORV_CORVANERC", settings},
                         {"LD_LIBRARY_PATH", root + "/Qt-4.8.5:" + root + "/Intel-12.1.3:" + root +
                                                 "/GCC-4.7.2:" + root},
                         {"CORV_QCHEMAUX", root + "/auxdir"},
                         {"CORV_QCHEMRC", settings + "/qchemrc"},
                         {"CORV_ACCESS", settings},
                         {"CORV_CONFIG", settings},
                         {"CORV_CPUDIR", "x86_64"}};
        for (const auto& module : kModules)
            all["CORV_" + module] = root;
        return all;
    }

    // All variables that a "cvset" line sets.
    static Words Overridable() {
        Words names = kModules;
        names.insert(names.end(), {"QSUB_CMD", "QDEL_CMD", "QSIG_CMD", "QCHEMAUX", "CPUDIR"});
        return names;
    }

    std::string Variable(const std::string& name, const Variables& env) const {
        const std::string line = Corvane({"--printenv", name}, env).out;
        return line.substr(0, line.size() - 1);
    }
};

TEST_P(WrittenEnvironment, IsWhatTheSetupDecided) {
    EXPECT_EQ(Environment(), Defaults());
}

TEST_P(WrittenEnvironment, AQueueThatIsNotWrittenStaysTheCallers) {
    const Variables callers = {{"CORV_QUEUE_TYPE", "MINE"}, {"CORV_QUEUE_NAME", "own"}};
    const std::pair<int, const char*> types[] = {{CInstallBase::QueueUnset, "MINE own"},
                                                 {CInstallBase::QueueInternal, "INTERNAL "},
                                                 {CInstallBase::QueueExternal, "EXTERNAL "},
                                                 {CInstallBase::QueueNone, "MINE own"}};
    for (const auto& [type, expected] : types) {
        WriteMain([type = type](CInstallBase& run) { run.m_queueType = type; });
        Variables environment = Environment(callers);
        EXPECT_EQ(environment["CORV_QUEUE_TYPE"] + " " + environment["CORV_QUEUE_NAME"], expected);
    }
}

TEST_P(WrittenEnvironment, CommandsThatAreEmptyAreNotExported) {
    WriteMain();
    const Variables environment = Environment();
    for (const char* name : {"CORV_QSUB_CMD", "CORV_QDEL_CMD", "CORV_QSIG_CMD"})
        EXPECT_FALSE(environment.contains(name)) << name;
}

TEST_P(WrittenEnvironment, EveryOverrideReplacesItsVariable) {
    for (const auto& name : Overridable()) {
        const std::string override = "CORV_USER_" + name;
        EXPECT_EQ(Variable("CORV_" + name, {{"CORV_USER_OVERRIDE", "YES"}, {override, "my  own"}}),
                  "my  own")
            << name;
    }
}

TEST_P(WrittenEnvironment, OverridesAreOffUnlessTheSwitchIsExactlyYes) {
    Variables env;
    for (const auto& name : Overridable())
        env["CORV_USER_" + name] = "my own";
    env["CORV_USER_ROOT"] = "/nowhere";
    env["CORV_USER_LD_PATH"] = "/nowhere";
    for (const char* value : {"", "yes", "YES ", "1"}) {
        env["CORV_USER_OVERRIDE"] = value;
        EXPECT_EQ(Environment(env), Defaults()) << value;
    }
    env.erase("CORV_USER_OVERRIDE");
    EXPECT_EQ(Environment(env), Defaults());
}

TEST_P(WrittenEnvironment, AnEmptyOverrideLeavesTheDefault) {
    Variables env = {
        {"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_ROOT", ""}, {"CORV_USER_LD_PATH", ""}};
    for (const auto& name : Overridable())
        env["CORV_USER_" + name] = "";
    EXPECT_EQ(Environment(env), Defaults());
}

TEST_P(WrittenEnvironment, AnotherRootMovesEverythingThatFollowsIt) {
    const std::string other = installation.home() + "/other root";
    Installation::AddProgram(other + "/cv_arch", "#!/bin/sh\necho other_cpu\n");
    Installation::AddProgram(other + "/cv_snapshot", kEnvironmentPrinter);
    Variables expected = Defaults();
    for (const auto& module : kModules)
        expected["CORV_" + module] = other;
    expected["CORV_ROOT"] = other;
    expected["CORV_QCHEMAUX"] = other + "/auxdir";
    expected["CORV_CPUDIR"] = "other_cpu";
    expected["LD_LIBRARY_PATH"] =
        other + "/Qt-4.8.5:" + other + "/Intel-12.1.3:" + other + "/GCC-4.7.2:" + other;
    EXPECT_EQ(Environment({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_ROOT", other}}), expected);
}

TEST_P(WrittenEnvironment, TheAuxiliaryDirectoryFollowsTheQChemOverride) {
    EXPECT_EQ(Variable("CORV_QCHEMAUX", {{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_QCHEM", "/q"}}),
              "/q/auxdir");
}

TEST_P(WrittenEnvironment, SomeVariablesCannotBeOverridden) {
    const std::string settings = installation.settings();
    const Variables env = {{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_CORVANERC", "/x"},
                           {"CORV_USER_QCHEMRC", "/x"},   {"CORV_USER_ACCESS", "/x"},
                           {"CORV_USER_CONFIG", "/x"},    {"CORV_CORVANERC", "/x"},
                           {"CORV_QCHEMRC", "/x"},        {"CORV_ACCESS", "/x"},
                           {"CORV_CONFIG", "/x"},         {"CORV_ROOT", "/x"}};
    EXPECT_EQ(Environment(env), Defaults());
}

// The library path with and without a value of the caller's and an override.
TEST_P(WrittenEnvironment, TheLibraryPathKeepsTheCallersBehindTheProducts) {
    const std::string root = installation.root();
    const std::string qt = root + "/Qt-4.8.5:";
    const std::string product = root + "/Intel-12.1.3:" + root + "/GCC-4.7.2:" + root;
    const Variables on = {{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_LD_PATH", "/my libs:/more"}};
    Variables both = on;
    both["LD_LIBRARY_PATH"] = "/callers";
    EXPECT_EQ(Variable("LD_LIBRARY_PATH", {}), qt + product);
    EXPECT_EQ(Variable("LD_LIBRARY_PATH", {{"LD_LIBRARY_PATH", ""}}), qt + product);
    EXPECT_EQ(Variable("LD_LIBRARY_PATH", {{"LD_LIBRARY_PATH", "/callers:/own dir"}}),
              qt + product + ":/callers:/own dir");
    EXPECT_EQ(Variable("LD_LIBRARY_PATH", on), qt + "/my libs:/more");
    EXPECT_EQ(Variable("LD_LIBRARY_PATH", both), qt + "/my libs:/more");
}

// The question is not quoted, so that its answer becomes words of the line.
TEST_P(WrittenEnvironment, ACpuDirectoryOfTwoWordsIsCutAndOffersItsSecondAsOverride) {
    Installation::AddProgram(installation.Program("cv_arch"), "#!/bin/sh\necho linux x86_64\n");
    EXPECT_EQ(Variable("CORV_CPUDIR", {}), "linux");
    EXPECT_EQ(Variable("CORV_CPUDIR", {{"CORV_USER_OVERRIDE", "YES"}}), "x86_64");
}

TEST_P(WrittenEnvironment, WithoutAnAnswerTheOverrideMovesIntoTheDefaultsPlace) {
    std::filesystem::remove(installation.Program("cv_arch"));
    EXPECT_EQ(Variable("CORV_CPUDIR", {}), "");
    EXPECT_EQ(Variable("CORV_CPUDIR", {{"CORV_USER_CPUDIR", "mine"}}), "mine");
    const ProcessResult result = Corvane({"--root-path"});
    EXPECT_NE(result.err.find("cv_arch"), std::string::npos);
    EXPECT_EQ(result.status, 0);
}

TEST_P(WrittenEnvironment, AQuoteInADirectoryBreaksTheScript) {
    WriteMain([](CInstallBase& run) { run.m_binariesDir = QStringLiteral("/opt/a\"b"); });
    EXPECT_NE(Corvane({"--root-path"}).status, 0);
}

INSTANTIATE_TEST_SUITE_P(On, WrittenEnvironment, testing::ValuesIn(kGrounds), GroundName);

}  // namespace
}  // namespace hx_test
