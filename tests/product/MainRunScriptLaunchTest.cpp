// The main run script without an option of its own: it selects and starts the builder.
#include "product/RunScript.h"

namespace hx_test {
namespace {

class MainRunScriptLaunch : public MainRunScriptTest {
protected:
    std::string Builder() const { return installation.Program("cv_builder gl"); }
    // What cv_select was told, empty if it was not asked.
    std::string Asked() const { return ReadFile(installation.Program("select.asked")); }

    void SelectAnswers(const std::string& answer) const {
        Installation::AddProgram(installation.Program("cv_select"),
                                 "#!/bin/sh\necho \"" + answer + "\"\n");
    }
};

TEST_P(MainRunScriptLaunch, StartsTheBuilderThatSelectNames) {
    for (const Words& args : {Words{}, Words{"water.corvane"}, Words{"--unknown", "a  b", "*", ""},
                              Words{"water.corvane", "--monitor"}}) {
        const ProcessResult result = Corvane(args);
        EXPECT_EQ(result.out, Lines({Builder()}) + Lines(args));
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Asked(), Lines({installation.Program("cv_select"), "-n"}) + Lines(args));
    }
}

TEST_P(MainRunScriptLaunch, TheBuilderRunsInTheBackground) {
    EXPECT_EQ(RunScriptThenOpenGate(script, {"a b"}).out, Lines({"status 0", Builder(), "a b"}));
}

TEST_P(MainRunScriptLaunch, TheBuildersStatusIsNotTheScripts) {
    EXPECT_EQ(Corvane({}, {{"STANDIN_STATUS", "9"}}).status, 0);
}

TEST_P(MainRunScriptLaunch, SelectionAndBuilderBothComeFromTheBuildersDirectory) {
    const std::string other = installation.home() + "/other place";
    Installation::AddProgram(other + "/cv_select", "#!/bin/sh\necho cv_mine\n");
    Installation::AddProgram(other + "/cv_mine");
    const ProcessResult result = Corvane({}, {{"CORV_USER_OVERRIDE", "YES"},
                                              {"CORV_USER_BUILDER", other},
                                              {"CORV_USER_SELECT", "/nowhere"}});
    EXPECT_EQ(result.out, Lines({other + "/cv_mine"}));
    EXPECT_EQ(Asked(), "");
}

TEST_P(MainRunScriptLaunch, WithoutAGraphicsDeviceItSaysSoAndFails) {
    SelectAnswers("UNKNOWN");
    Installation::AddProgram(installation.Program("UNKNOWN"));
    for (const Words& args : {Words{}, Words{"--ldd"}}) {
        const ProcessResult result = Corvane(args);
        EXPECT_EQ(result.out, "corvane: Error, no graphics device found\n");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 1);
    }
}

TEST_P(MainRunScriptLaunch, ASelectionThatNamesNothingStartsNothing) {
    SelectAnswers("");
    const ProcessResult result = Corvane({});
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(installation.Program("cv_select")), std::string::npos);
    EXPECT_EQ(result.status, 1);
}

TEST_P(MainRunScriptLaunch, LddAnywhereListsTheBuilderInsteadOfStartingIt) {
    const std::string listing = "ldd " + Builder() + "\nlisting of <" + Builder() + ">\n";
    for (const Words& args : {Words{"-ldd"}, Words{"--ldd"}, Words{"a b", "--ldd", "c"}}) {
        const ProcessResult result = Corvane(args);
        EXPECT_EQ(result.out, listing);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Asked(), Lines({installation.Program("cv_select"), "-n"}) + Lines(args));
    }
}

TEST_P(MainRunScriptLaunch, TheStatusOfLddIsTheScripts) {
    EXPECT_EQ(Corvane({"--ldd"}, {{"STANDIN_STATUS", "3"}}).status, 3);
}

TEST_P(MainRunScriptLaunch, SetenvAnywhereStartsNothing) {
    for (const Words& args : {Words{"-setenv"}, Words{"--setenv"}, Words{"a b", "--setenv"},
                              Words{"--ldd", "--setenv"}}) {
        const ProcessResult result = Corvane(args);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Asked(), "");
    }
}

TEST_P(MainRunScriptLaunch, TheCallersOwnSwitchVariablesMeanNothing) {
    EXPECT_EQ(Corvane({}, {{"LDD", "ldd"}, {"SETENV", "setenv"}}).out, Lines({Builder()}));
}

INSTANTIATE_TEST_SUITE_P(On, MainRunScriptLaunch, testing::ValuesIn(kGrounds), GroundName);

}  // namespace
}  // namespace hx_test
