// The options of the written main run script: what each starts or prints.
#include <regex>

#include "generated/WrittenRunScript.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {
namespace fs = std::filesystem;

struct Option {
    Words spellings;
    const char* program;
    Words added;           // put before the caller's arguments
    const char* variable;  // moves the program's directory
    int backgroundStatus;  // -1: takes the script's place
};

const std::vector<Option>& Options() {
    static const std::vector<Option> options = {
        {{"-setup", "--setup"}, "cv_install", {"--setup"}, "CORV_USER_INSTALL", -1},
        {{"-monitor", "--monitor"}, "cv_monitor", {}, "CORV_USER_MONITOR", 0},
        {{"-p", "--snapshot"}, "cv_snapshot", {}, "CORV_USER_SNAPSHOT", -1},
        {{"-a", "--arch"}, "cv_arch", {}, "CORV_USER_ARCH", -1},
        {{"-x", "--submit"}, "cv_spd", {"-u"}, "CORV_USER_SUBMIT", -1},
        {{"-fx", "-xf", "--foreground-submit"}, "cv_spd", {"-f", "-u"}, "CORV_USER_SUBMIT", -1},
        {{"-c", "--process-commands"}, "cv_spd --process-commands", {}, "CORV_USER_SUBMIT", -1},
        {{"-u", "--unpack"}, "cv_spd --unpack", {}, "CORV_USER_SUBMIT", -1},
        {{"-C", "--convert"}, "cv_input2plist", {}, "CORV_USER_CONVERT", -1},
        {{"-s", "--select"}, "cv_select", {}, "CORV_USER_SELECT", -1},
        {{"-i", "--inuse"}, "cv_spd --inuse", {}, "CORV_USER_SUBMIT", -1},
        {{"--control"}, "cv_computecontrol", {}, "CORV_USER_COMPUTECONTROL", 1},
        {{"--service"}, "cv_computeservice", {}, "CORV_USER_COMPUTESERVICE", 1}};
    return options;
}

const Words& Arguments() {
    static const Words words = {"two  words", "*", "", "--setup", "$HOME", "käse.corvane"};
    return words;
}

std::string Record(const std::string& program, const Option& option, const Words& args) {
    return Lines({program}) + Lines(option.added) + Lines(args);
}

Words Joined(const std::string& first, const Words& rest) {
    Words words = {first};
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
}

class WrittenOptions : public WrittenRunScriptTest {
protected:
    std::string Other() const { return installation.home() + "/other place"; }

    // A recorder in another directory, which the option's variable names.
    ProcessResult RunElsewhere(const Option& option, const Words& args, Variables env = {}) const {
        Installation::AddProgram(Other() + "/" + option.program);
        env["CORV_USER_OVERRIDE"] = "YES";
        env[option.variable] = Other();
        return Corvane(args, env);
    }

    // What a shell makes of an unquoted path: its words with one blank between them.
    static std::string Echoed(const std::string& path) {
        return std::regex_replace(path, std::regex(" +"), " ");
    }
};

TEST_P(WrittenOptions, EverySpellingStartsItsProgramWithAllArguments) {
    for (const Option& option : Options()) {
        Installation::AddProgram(installation.Program(option.program));
        for (const auto& spelling : option.spellings) {
            SCOPED_TRACE(spelling);
            const ProcessResult result = Corvane(Joined(spelling, Arguments()));
            EXPECT_EQ(result.out,
                      Record(installation.Program(option.program), option, Arguments()));
            EXPECT_EQ(result.err, "");
            EXPECT_EQ(result.status, option.backgroundStatus == 1 ? 1 : 0);
        }
    }
}

TEST_P(WrittenOptions, EachProgramComesFromItsModulesDirectory) {
    for (const Option& option : Options()) {
        SCOPED_TRACE(option.program);
        const ProcessResult result = RunElsewhere(option, {option.spellings.back(), "a b"});
        EXPECT_EQ(result.out, Record(Other() + "/" + option.program, option, {"a b"}));
    }
}

TEST_P(WrittenOptions, AForegroundProgramsStatusIsTheScripts) {
    for (const Option& option : Options()) {
        if (option.backgroundStatus != -1)
            continue;
        SCOPED_TRACE(option.program);
        Installation::AddProgram(installation.Program(option.program));
        const ProcessResult result =
            RunScriptInPlace(Script(), {option.spellings.back()}, {{"STANDIN_STATUS", "37"}});
        const std::string pid = result.out.substr(0, result.out.find('\n') + 1);
        EXPECT_EQ(result.out, pid + Record(installation.Program(option.program), option, {}) + pid);
        EXPECT_EQ(result.status, 37);
    }
}

TEST_P(WrittenOptions, ABackgroundProgramOutlivesTheScript) {
    for (const Option& option : Options()) {
        if (option.backgroundStatus == -1)
            continue;
        SCOPED_TRACE(option.program);
        fs::remove(installation.home() + "/gate");
        EXPECT_EQ(RunScriptThenOpenGate(Script(), {option.spellings.back(), "a b"}).out,
                  Lines({"status " + std::to_string(option.backgroundStatus),
                         installation.Program(option.program), "a b"}));
    }
}

TEST_P(WrittenOptions, ABackgroundProgramThatCannotStartLeavesTheStatusAsItIs) {
    for (const Option& option : Options()) {
        if (option.backgroundStatus == -1)
            continue;
        fs::remove(installation.Program(option.program));
        EXPECT_EQ(Corvane({option.spellings.back()}).status, option.backgroundStatus);
    }
}

TEST_P(WrittenOptions, ThreeOptionsLookForAFileWithTheOptionInItsName) {
    Installation::AddProgram(installation.Program("cv_spd"));
    for (const char* option : {"-c", "--process-commands", "-u", "--unpack", "-i", "--inuse"}) {
        const ProcessResult result = Corvane({option});
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find(installation.Program("cv_spd --")), std::string::npos);
        EXPECT_EQ(result.status, 127);
    }
}

TEST_P(WrittenOptions, PathsAndVariablesArePrinted) {
    const std::string root = installation.root();
    for (const char* spelling : {"-r", "--root-path"})
        EXPECT_EQ(Corvane({spelling}).out, "CORV_ROOT=" + root + "\n");
    for (const char* spelling : {"-l", "--library-path"}) {
        EXPECT_EQ(Corvane({spelling}).out, "LD_LIBRARY_PATH=" + root + "/Qt-4.8.5:" + root +
                                               "/Intel-12.1.3:" + root + "/GCC-4.7.2:" + root +
                                               "\n");
    }
    for (const char* spelling : {"-e", "--printenv"}) {
        EXPECT_EQ(Corvane({spelling, "CORV_BUILDER"}).out, root + "\n");
        EXPECT_EQ(Corvane({spelling, "CORV_NOTHING"}).out, "");
        EXPECT_EQ(Corvane({spelling, "CORV_NOTHING"}).status, 0);
        EXPECT_EQ(ParseEnvironment(Corvane({spelling}).out)["CORV_ACCESS"],
                  installation.settings());
    }
}

TEST_P(WrittenOptions, TheLddFamilyListsRealFiles) {
    fs::remove(installation.home() + "/tools/ldd");
    fs::create_directory(installation.Program("x86_64"));
    const std::string program = fs::canonical("/bin/true").string();
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"--ldd-analysis", "abinitio", installation.Program("x86_64/cv_abinitio")},
        {"--ldd-common", "monitor", installation.Program("cv_monitor")},
        {"--ldd-so", "Own", installation.Program("libOwn.so")}};
    const std::regex addresses("0x[0-9a-f]+");
    for (const auto& [option, name, file] : cases) {
        fs::copy_file(program, file, fs::copy_options::overwrite_existing);
        const ProcessResult result = Corvane({option, name});
        const std::string listing = hx_test::Run({"ldd", file}).out;
        EXPECT_NE(listing.find("libc.so.6 => "), std::string::npos) << listing;
        EXPECT_EQ(std::regex_replace(result.out, addresses, ""),
                  "ldd " + Echoed(file) + "\n" + std::regex_replace(listing, addresses, ""));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Corvane({option, "missing"}).status, 0);
    }
}

TEST_P(WrittenOptions, HelpIsTheTextAndNothingElse) {
    const std::string script = Expected("corvane26.tail");
    const std::string first = "  cat <<EOF\n";
    const size_t begin = script.find(first) + first.size();
    for (const char* spelling : {"-h", "--help"}) {
        const ProcessResult result = Corvane({spelling, "x"});
        EXPECT_EQ(result.out, script.substr(begin, script.find("EOF\n  exit 0") - begin));
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
    }
}

TEST_P(WrittenOptions, TheCpuDirectoryIsAskedForAtEveryStart) {
    const Words starts[] = {{"--help"}, {"--setenv"}, {"--root-path"}, {}, {"--submit"}};
    size_t times = 0;
    for (const Words& args : starts) {
        Corvane(args);
        EXPECT_EQ(TimesArchWasAsked(), ++times);
    }
}

INSTANTIATE_TEST_SUITE_P(On, WrittenOptions, testing::ValuesIn(kGrounds), GroundName);

}  // namespace
}  // namespace hx_test
