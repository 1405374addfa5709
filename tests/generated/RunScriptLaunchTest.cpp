// The written main run script without an option of its own: it selects and starts the builder.
#include "generated/WrittenRunScript.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {

class WrittenLaunch : public WrittenRunScriptTest {
protected:
    std::string Builder() const { return installation.Program("cv_builder gl"); }
    std::string Asked() const { return ReadFile(installation.Program("select.asked")); }

    void SelectAnswers(const std::string& answer) const {
        Installation::AddProgram(installation.Program("cv_select"),
                                 "#!/bin/sh\necho \"" + answer + "\"\n");
    }
};

TEST_P(WrittenLaunch, StartsTheBuilderThatSelectNames) {
    for (const Words& args :
         {Words{}, Words{"water.corvane"}, Words{"--unknown", "a  b", "*", ""},
          Words{"water.corvane", "--monitor"}, Words{"--HELP"}, Words{"-setupx"}}) {
        const ProcessResult result = Corvane(args);
        EXPECT_EQ(result.out, Lines({Builder()}) + Lines(args));
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Asked(), Lines({installation.Program("cv_select"), "-n"}) + Lines(args));
    }
}

TEST_P(WrittenLaunch, TheBuilderRunsInTheBackground) {
    EXPECT_EQ(RunScriptThenOpenGate(Script(), {"a b"}).out, Lines({"status 0", Builder(), "a b"}));
    EXPECT_EQ(Corvane({}, {{"STANDIN_STATUS", "9"}}).status, 0);
}

TEST_P(WrittenLaunch, SelectionAndBuilderBothComeFromTheBuildersDirectory) {
    const std::string other = installation.home() + "/other";
    Installation::AddProgram(other + "/cv_select", "#!/bin/sh\necho cv_mine\n");
    Installation::AddProgram(other + "/cv_mine");
    const ProcessResult result = Corvane({}, {{"CORV_USER_OVERRIDE", "YES"},
                                              {"CORV_USER_BUILDER", other},
                                              {"CORV_USER_SELECT", "/nowhere"}});
    EXPECT_EQ(result.out, Lines({other + "/cv_mine"}));
    EXPECT_EQ(Asked(), "");
}

TEST_P(WrittenLaunch, WithoutAGraphicsDeviceItSaysSoAndFails) {
    SelectAnswers("UNKNOWN");
    Installation::AddProgram(installation.Program("UNKNOWN"));
    for (const Words& args : {Words{}, Words{"--ldd"}}) {
        const ProcessResult result = Corvane(args);
        EXPECT_EQ(result.out, "corvane: Error, no graphics device found\n");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 1);
    }
}

TEST_P(WrittenLaunch, ASelectionThatNamesNothingStartsNothingWithoutComplaintInTheStatus) {
    SelectAnswers("");
    const ProcessResult result = Corvane({});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
}

TEST_P(WrittenLaunch, LddAnywhereListsTheBuilderInsteadOfStartingIt) {
    const std::string listing = "ldd " + Builder() + "\nlisting of <" + Builder() + ">\n";
    for (const Words& args : {Words{"-ldd"}, Words{"--ldd"}, Words{"a b", "--ldd", "c"}}) {
        const ProcessResult result = Corvane(args);
        EXPECT_EQ(result.out, listing);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Asked(), Lines({installation.Program("cv_select"), "-n"}) + Lines(args));
    }
    EXPECT_EQ(Corvane({"--ldd"}, {{"STANDIN_STATUS", "3"}}).status, 3);
}

TEST_P(WrittenLaunch, LddListsARealBuilder) {
    std::filesystem::remove(installation.home() + "/tools/ldd");
    SelectAnswers("cv_real");
    const std::string real = installation.Program("cv_real");
    std::filesystem::copy_file(std::filesystem::canonical("/bin/true"), real);
    const ProcessResult result = Corvane({"--ldd"});
    EXPECT_TRUE(result.out.starts_with("ldd " + real + "\n")) << result.out;
    EXPECT_NE(result.out.find("libc.so.6 => "), std::string::npos);
    EXPECT_EQ(result.status, 0);
    WriteFile(real, "text");
    EXPECT_EQ(Corvane({"--ldd"}).status, hx_test::Run({"ldd", real}).status);
    EXPECT_NE(hx_test::Run({"ldd", real}).status, 0);
}

TEST_P(WrittenLaunch, SetenvAnywhereStartsNothing) {
    for (const Words& args : {Words{"-setenv"}, Words{"--setenv"}, Words{"a b", "--setenv"},
                              Words{"--ldd", "--setenv"}}) {
        const ProcessResult result = Corvane(args);
        EXPECT_EQ(result.out + result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Asked(), "");
    }
}

TEST_P(WrittenLaunch, TheCallersOwnSwitchVariablesMeanNothing) {
    EXPECT_EQ(Corvane({}, {{"LDD", "ldd"}, {"SETENV", "setenv"}}).out, Lines({Builder()}));
}

// The selection's path is not quoted, so that it must not hold blanks here.
INSTANTIATE_TEST_SUITE_P(On, WrittenLaunch,
                         testing::Values(Ground{"Dash", "dash", "plain"},
                                         Ground{"Bash", "bash", "plain"}),
                         GroundName);

class WrittenLaunchWithBlanks : public WrittenRunScriptTest {};

// A program folder with a blank in its name finds no selection, and starts nothing.
TEST_P(WrittenLaunchWithBlanks, TheSelectionsPathIsNotQuoted) {
    const ProcessResult result = Corvane({});
    EXPECT_EQ(result.out, "");
    // The shell took the path's first word for the program.
    const std::string first = installation.root().substr(0, installation.root().find(' '));
    EXPECT_NE(result.err.find(first + ": "), std::string::npos) << result.err;
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(ReadFile(installation.Program("select.asked")), "");
}

INSTANTIATE_TEST_SUITE_P(On, WrittenLaunchWithBlanks,
                         testing::Values(Ground{"Dash", "dash", "Corvane 26"},
                                         Ground{"Bash", "bash", "Corvane 26"}),
                         GroundName);

}  // namespace
}  // namespace hx_test
