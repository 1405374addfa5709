// The options of the main run script that start a program.
#include "product/RunScript.h"

namespace hx_test {
namespace {

struct Option {
    Words spellings;
    const char* program;
    Words added;           // put before the caller's arguments
    const char* variable;  // moves the program's directory
    bool background = false;
};

const std::vector<Option>& Options() {
    static const std::vector<Option> options = {
        {{"-setup", "--setup"}, "cv_install", {"--setup"}, "CORV_USER_INSTALL"},
        {{"-monitor", "--monitor"}, "cv_monitor", {}, "CORV_USER_MONITOR", true},
        {{"-p", "--snapshot"}, "cv_snapshot", {}, "CORV_USER_SNAPSHOT"},
        {{"-a", "--arch"}, "cv_arch", {}, "CORV_USER_ARCH"},
        {{"-x", "--submit"}, "cv_spd", {"-u"}, "CORV_USER_SUBMIT"},
        {{"-fx", "-xf", "--foreground-submit"}, "cv_spd", {"-f", "-u"}, "CORV_USER_SUBMIT"},
        {{"-c", "--process-commands"}, "cv_spd", {"--process-commands"}, "CORV_USER_SUBMIT"},
        {{"-u", "--unpack"}, "cv_spd", {"--unpack"}, "CORV_USER_SUBMIT"},
        {{"-C", "--convert"}, "cv_input2plist", {}, "CORV_USER_CONVERT"},
        {{"-s", "--select"}, "cv_select", {}, "CORV_USER_SELECT"},
        {{"-i", "--inuse"}, "cv_spd", {"--inuse"}, "CORV_USER_SUBMIT"},
        {{"--control"}, "cv_computecontrol", {}, "CORV_USER_COMPUTECONTROL", true},
        {{"--service"}, "cv_computeservice", {}, "CORV_USER_COMPUTESERVICE"},
    };
    return options;
}

// What a careless script would split, expand or drop.
const Words& Arguments() {
    static const Words words = {"two  words", "*", "", "--setup", "$HOME", "käse.corvane", "a\\tb"};
    return words;
}

std::string Record(const std::string& program, const Option& option, const Words& args) {
    Words words = {program};
    words.insert(words.end(), option.added.begin(), option.added.end());
    words.insert(words.end(), args.begin(), args.end());
    return Lines(words);
}

Words Joined(const std::string& first, const Words& rest) {
    Words words = {first};
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
}

using MainRunScript = MainRunScriptTest;

TEST_P(MainRunScript, EverySpellingStartsItsProgramWithAllArguments) {
    for (const Option& option : Options()) {
        for (const auto& spelling : option.spellings) {
            SCOPED_TRACE(spelling);
            const ProcessResult result = Corvane(Joined(spelling, Arguments()));
            EXPECT_EQ(result.out,
                      Record(installation.Program(option.program), option, Arguments()));
            EXPECT_EQ(result.err, "");
        }
    }
}

TEST_P(MainRunScript, AnOptionWithoutArgumentsStartsItsProgramToo) {
    for (const Option& option : Options()) {
        SCOPED_TRACE(option.spellings.back());
        EXPECT_EQ(Corvane({option.spellings.back()}).out,
                  Record(installation.Program(option.program), option, {}));
    }
}

TEST_P(MainRunScript, EachProgramIsTakenFromItsModulesDirectory) {
    for (const Option& option : Options()) {
        SCOPED_TRACE(option.spellings.back());
        const std::string other = installation.home() + "/other place";
        Installation::AddProgram(other + "/" + option.program);
        const ProcessResult result = Corvane(
            {option.spellings.back()}, {{"CORV_USER_OVERRIDE", "YES"}, {option.variable, other}});
        const std::string expected = Record(other + "/" + option.program, option, {});
        EXPECT_EQ(result.out, expected);
    }
}

TEST_P(MainRunScript, AForegroundProgramTakesTheScriptsPlace) {
    for (const Option& option : Options()) {
        if (option.background)
            continue;
        SCOPED_TRACE(option.spellings.back());
        // A program of our own, since some of the installation's answer questions only.
        Installation::AddProgram(installation.Program(option.program), kRecorder);
        const ProcessResult result =
            RunScriptInPlace(script, {option.spellings.back()}, {{"STANDIN_STATUS", "37"}});
        const std::string pid = result.out.substr(0, result.out.find('\n') + 1);
        EXPECT_TRUE(pid.starts_with("pid ")) << result.out;
        EXPECT_EQ(result.out, pid + Record(installation.Program(option.program), option, {}) + pid);
        EXPECT_EQ(result.status, 37);
    }
}

TEST_P(MainRunScript, TheMonitorRunsInTheBackgroundAndTheStatusIsZero) {
    EXPECT_EQ(RunScriptThenOpenGate(script, {"--monitor", "a b"}).out,
              Lines({"status 0", installation.Program("cv_monitor"), "a b"}));
}

TEST_P(MainRunScript, TheControlProgramRunsInTheBackgroundAndTheStatusIsOne) {
    EXPECT_EQ(RunScriptThenOpenGate(script, {"--control", "a b"}).out,
              Lines({"status 1", installation.Program("cv_computecontrol"), "a b"}));
}

TEST_P(MainRunScript, ABackgroundProgramThatCannotStartLeavesTheStatusAsItIs) {
    std::filesystem::remove(installation.Program("cv_monitor"));
    std::filesystem::remove(installation.Program("cv_computecontrol"));
    EXPECT_EQ(Corvane({"--monitor"}).status, 0);
    EXPECT_EQ(Corvane({"--control"}).status, 1);
}

TEST_P(MainRunScript, AServiceThatCannotStartIsAFailure) {
    std::filesystem::remove(installation.Program("cv_computeservice"));
    EXPECT_EQ(Corvane({"--service"}).status, 127);
}

INSTANTIATE_TEST_SUITE_P(On, MainRunScript, testing::ValuesIn(kGrounds), GroundName);

}  // namespace
}  // namespace hx_test
