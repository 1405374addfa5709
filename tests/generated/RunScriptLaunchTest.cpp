// The main run script without an option: it selects the builder and starts it.
#include "generated/RunScripts.h"

namespace hx_test {
namespace {

class RunScriptLaunch : public RunScriptTest {
protected:
    std::string Builder() const { return installation.Program("cv_builder gl"); }
    // The arguments of cv_select, empty if it was not called.
    std::string SelectArguments() const {
        return ReadFile(installation.Program("select.arguments"));
    }
    std::string ExpectedSelectArguments(const Words& args) const {
        return Lines({installation.Program("cv_select"), "-n"}) + Lines(args);
    }

    void SelectPrints(const std::string& text) const {
        Installation::AddProgram(installation.Program("cv_select"),
                                 "#!/bin/sh\necho \"" + text + "\"\n");
    }

    void ExpectResult(const Words& args, const std::string& out, int status,
                      const Variables& env = {}) const {
        const ProcessResult result = Corvane(args, env);
        EXPECT_EQ(result.out, out);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, status);
    }
};

TEST_P(RunScriptLaunch, StartsSelectedBuilder) {
    for (const Words& args : {Words{}, Words{"water.corvane"}, Words{"--unknown", "a  b", "*", ""},
                              Words{"water.corvane", "--monitor"}, Words{"--HELP"}}) {
        ExpectResult(args, Lines({Builder()}) + Lines(args), 0,
                     {{"STANDIN_STATUS", "9"}, {"LDD", "ldd"}, {"SETENV", "setenv"}});
        EXPECT_EQ(SelectArguments(), ExpectedSelectArguments(args));
    }
}

TEST_P(RunScriptLaunch, LeavesBuilderRunning) {
    EXPECT_EQ(CorvaneBeforePrograms({"a b"}).out, Lines({"status 0", Builder(), "a b"}));
}

TEST_P(RunScriptLaunch, SelectsInDirectoryOfBuilder) {
    const std::string other = installation.Home() + "/other";
    Installation::AddProgram(other + "/cv_select", "#!/bin/sh\necho cv_mine\n");
    Installation::AddProgram(other + "/cv_mine");
    ExpectResult({}, Lines({other + "/cv_mine"}), 0,
                 {{"CORV_USER_OVERRIDE", "YES"},
                  {"CORV_USER_BUILDER", other},
                  {"CORV_USER_SELECT", "/nowhere"}});
    EXPECT_EQ(SelectArguments(), "");
}

TEST_P(RunScriptLaunch, FailsWithoutGraphicsDevice) {
    SelectPrints("UNKNOWN");
    Installation::AddProgram(installation.Program("UNKNOWN"));
    for (const Words& args : {Words{}, Words{"--ldd"}})
        ExpectResult(args, "corvane: Error, no graphics device found\n", 1);
}

TEST_P(RunScriptLaunch, StartsNothingWithoutSelection) {
    SelectPrints("");
    const ProcessResult result = Corvane({});
    EXPECT_EQ(result.out, "");
    // Only the template detects the error.
    EXPECT_EQ(result.status, IsWriter() ? 0 : 1);
    EXPECT_EQ(result.err.find("corvane: Error, ") != std::string::npos, !IsWriter());
}

TEST_P(RunScriptLaunch, ListsLibrariesOfBuilderWithLdd) {
    const std::string listing = "ldd " + Builder() + "\nlisting of <" + Builder() + ">\n";
    for (const Words& args : {Words{"-ldd"}, Words{"--ldd"}, Words{"a b", "--ldd", "c"}}) {
        ExpectResult(args, listing, 3, {{"STANDIN_STATUS", "3"}});
        EXPECT_EQ(SelectArguments(), ExpectedSelectArguments(args));
    }
}

TEST_P(RunScriptLaunch, StartsNothingWithSetenv) {
    for (const Words& args : {Words{"-setenv"}, Words{"--setenv"}, Words{"a b", "--setenv"},
                              Words{"--ldd", "--setenv"}}) {
        ExpectResult(args, "", 0);
        EXPECT_EQ(SelectArguments(), "");
    }
}

// The written script does not quote the path of cv_select.
INSTANTIATE_TEST_SUITE_P(OfTemplate, RunScriptLaunch, testing::ValuesIn(Grounds({Origin::Product})),
                         GroundName);
INSTANTIATE_TEST_SUITE_P(OfWriter, RunScriptLaunch,
                         testing::Values(Ground{Origin::Library, "dash", plainDirectory},
                                         Ground{Origin::Library, "bash", plainDirectory}),
                         GroundName);

using WrittenScriptLaunch = RunScriptLaunch;

TEST_P(WrittenScriptLaunch, StartsNothingFromDirectoryWithSpaces) {
    const ProcessResult result = Corvane({});
    EXPECT_EQ(result.out, "");
    // The shell searched for a program with the first word of the path.
    const std::string root = installation.Root();
    EXPECT_NE(result.err.find(root.substr(0, root.find(' ')) + ": "), std::string::npos);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(SelectArguments(), "");
}

INSTANTIATE_TEST_SUITE_P(On, WrittenScriptLaunch,
                         testing::Values(Ground{Origin::Library, "dash", directoryWithSpaces},
                                         Ground{Origin::Library, "bash", directoryWithSpaces}),
                         GroundName);

}  // namespace
}  // namespace hx_test
