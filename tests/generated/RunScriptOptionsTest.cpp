// The options of the main run script: the program that each starts, or the text that it prints.

#include "generated/RunScripts.h"
#include "harness/Pattern.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

constexpr int foreground = -1;

struct Option {
    Words spellings;
    std::string program;
    Words added;              // before the caller's arguments
    const char* variable;     // overrides the program's directory
    int status = foreground;  // in the background: the status of the script
};

std::vector<Option> OptionsOf(Origin origin) {
    std::vector<Option> options = {
        {{"-setup", "--setup"}, "cv_install", {"--setup"}, "CORV_USER_INSTALL"},
        {{"-monitor", "--monitor"}, "cv_monitor", {}, "CORV_USER_MONITOR", 0},
        {{"-p", "--snapshot"}, "cv_snapshot", {}, "CORV_USER_SNAPSHOT"},
        {{"-a", "--arch"}, "cv_arch", {}, "CORV_USER_ARCH"},
        {{"-x", "--submit"}, "cv_spd", {"-u"}, "CORV_USER_SUBMIT"},
        {{"-fx", "-xf", "--foreground-submit"}, "cv_spd", {"-f", "-u"}, "CORV_USER_SUBMIT"},
        {{"-C", "--convert"}, "cv_input2plist", {}, "CORV_USER_CONVERT"},
        {{"-s", "--select"}, "cv_select", {}, "CORV_USER_SELECT"},
        {{"--control"}, "cv_computecontrol", {}, "CORV_USER_COMPUTECONTROL", 1},
        {{"--service"},
         "cv_computeservice",
         {},
         "CORV_USER_COMPUTESERVICE",
         origin == Origin::Library ? 1 : foreground}};
    // In the written script, the option is part of the program's name.
    for (const Words& spellings :
         {Words{"-c", "--process-commands"}, Words{"-u", "--unpack"}, Words{"-i", "--inuse"}}) {
        if (origin == Origin::Library)
            options.push_back({spellings, "cv_spd " + spellings[1], {}, "CORV_USER_SUBMIT"});
        else
            options.push_back({spellings, "cv_spd", {spellings[1]}, "CORV_USER_SUBMIT"});
    }
    return options;
}

Words Joined(const Words& first, const Words& rest) {
    Words words = first;
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
}

std::string Record(const std::string& program, const Option& option, const Words& args) {
    return Lines(Joined(Joined({program}, option.added), args));
}

class RunScriptOptions : public RunScriptTest {
protected:
    RunScriptOptions() {
        for (const Option& option : options) {
            if (!fs::exists(installation.Program(option.program)))
                Installation::AddProgram(installation.Program(option.program));
        }
    }

    // Expects a text on stdout and status 0.
    void ExpectPrinted(const Words& args, const std::string& text,
                       const Variables& env = {}) const {
        const ProcessResult result = Corvane(args, env);
        EXPECT_EQ(result.out, text);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_FALSE(fs::exists(installation.Program("select.arguments")));
    }

    const std::vector<Option> options = OptionsOf(GetParam().origin);
};

TEST_P(RunScriptOptions, StartProgramWithAllArguments) {
    const Words special = {"two  words", "*", "", "--setup", "$HOME", "käse.corvane", "a\\tb"};
    for (const Option& option : options) {
        for (const auto& spelling : option.spellings) {
            SCOPED_TRACE(spelling);
            const ProcessResult result = Corvane(Joined({spelling}, special));
            EXPECT_EQ(result.out, Record(installation.Program(option.program), option, special));
            EXPECT_EQ(result.err, "");
            EXPECT_EQ(result.status, option.status == 1 ? 1 : 0);
        }
    }
}

TEST_P(RunScriptOptions, StartProgramFromDirectoryOfModule) {
    for (const Option& option : options) {
        SCOPED_TRACE(option.spellings.back());
        Installation::AddProgram(Other() + "/" + option.program);
        const ProcessResult result = Corvane(
            {option.spellings.back()}, {{"CORV_USER_OVERRIDE", "YES"}, {option.variable, Other()}});
        EXPECT_EQ(result.out, Record(Other() + "/" + option.program, option, {}));
    }
}

TEST_P(RunScriptOptions, ReplaceScriptByForegroundProgram) {
    for (const Option& option : options) {
        SCOPED_TRACE(option.spellings.back());
        if (option.status != foreground)
            continue;
        Installation::AddProgram(installation.Program(option.program));
        ExpectReplaced(main, {option.spellings.back()},
                       Record(installation.Program(option.program), option, {}));
    }
}

TEST_P(RunScriptOptions, LeaveBackgroundProgramRunning) {
    for (const Option& option : options) {
        SCOPED_TRACE(option.spellings.back());
        if (option.status == foreground)
            continue;
        EXPECT_EQ(CorvaneBeforePrograms({option.spellings.back(), "a b"}).out,
                  Lines({"status " + std::to_string(option.status),
                         installation.Program(option.program), "a b"}));
    }
}

TEST_P(RunScriptOptions, KeepStatusWithoutBackgroundProgram) {
    for (const Option& option : options) {
        fs::remove(installation.Program(option.program));
        const int status = Corvane({option.spellings.back()}).status;
        EXPECT_EQ(status, option.status == foreground ? 127 : option.status) << option.program;
    }
}

TEST_P(RunScriptOptions, PrintVariable) {
    const Variables variables = Exported();
    for (const char* spelling : {"-r", "--root-path"})
        ExpectPrinted({spelling}, "CORV_ROOT=" + installation.Root() + "\n");
    for (const char* spelling : {"-l", "--library-path"})
        ExpectPrinted({spelling}, "LD_LIBRARY_PATH=" + variables.at("LD_LIBRARY_PATH") + "\n");
    for (const char* spelling : {"-e", "--printenv"}) {
        for (const char* name : {"CORV_ROOT", "CORV_QUEUE_NAME", "LD_LIBRARY_PATH"})
            ExpectPrinted({spelling, name}, variables.at(name) + "\n");
        ExpectPrinted({spelling, "CORV_NOTHING"}, "");
    }
}

TEST_P(RunScriptOptions, PrintLibrariesOfFile) {
    const std::tuple<const char*, const char*, const char*> listings[] = {
        {"--ldd-analysis", "abinitio", "x86_64/cv_abinitio"},
        {"--ldd-common", "monitor", "cv_monitor"},
        {"--ldd-so", "Own", "libOwn.so"}};
    for (const auto& [option, name, path] : listings) {
        const std::string file = installation.Program(path);
        // The written script does not quote the path of the first line.
        const std::string shown = IsWriter() ? ReplaceMatches(file, " +", " ") : file;
        for (const char* status : {"0", "1"}) {
            ExpectPrinted({option, name}, "ldd " + shown + "\nlisting of <" + file + ">\n",
                          {{"STANDIN_STATUS", status}});
        }
    }
}

TEST_P(RunScriptOptions, PrintHelp) {
    const std::string script = ReadFile(main);
    const size_t begin = script.find('\n', script.find("cat <<")) + 1;
    const std::string text = script.substr(begin, script.find("EOF\n", begin) - begin);
    EXPECT_TRUE(text.starts_with("\n  --setup "));
    for (const char* spelling : {"-h", "--help"})
        ExpectPrinted({spelling, "x"}, text);
}

// Of the written script, the expected text is in tests/expected/.
TEST_P(RunScriptOptions, AreInHelpOfTemplate) {
    if (IsWriter())
        return;
    const std::string help = Corvane({"--help"}).out;
    for (const char* text : {"  --setup ",
                             "  --monitor ",
                             "  --snapshot ",
                             "  --arch ",
                             "  --submit [opt] <path> : ",
                             "      --background\n",
                             "      --foreground\n",
                             "      --external-default-queue\n",
                             "      --external-queue <queue_name>\n",
                             "      --verbose <level>\n",
                             "  --foreground-submit ",
                             "  --unpack ",
                             "  --process-commands ",
                             "  --convert <old> <new> : ",
                             "  --select ",
                             "  --inuse [--status]   : ",
                             "  --inuse [--add|--remove] : ",
                             "  --control ",
                             "  --service ",
                             "  --library-path ",
                             "  --root-path ",
                             "  --printenv ",
                             "  --ldd ",
                             "  --ldd-analysis ",
                             "  --ldd-common ",
                             "  --ldd-so ",
                             "  --setenv ",
                             "  --help "})
        EXPECT_NE(help.find(std::string("\n") + text), std::string::npos) << text;
}

TEST_P(RunScriptOptions, AskForCpuDirectoryOnce) {
    const std::string calls = installation.Program("arch.calls");
    for (const Words& args : {Words{"--help"}, Words{"--setenv"}, Words{"--submit"}, Words{}}) {
        Installation::AddProgram(installation.Program("cv_arch"),
                                 "#!/bin/sh\necho call >> \"${0%/*}/arch.calls\"\n");
        fs::remove(calls);
        Corvane(args);
        EXPECT_EQ(ReadFile(calls), "call\n");
    }
}

INSTANTIATE_TEST_SUITE_P(On, RunScriptOptions, testing::ValuesIn(Grounds()), GroundName);

}  // namespace
}  // namespace hx_test
