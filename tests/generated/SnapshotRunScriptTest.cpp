// The snapshot run script: its program, and the environment that it exports. Also the library
// search path of both run scripts.
#include "generated/RunScripts.h"

namespace hx_test {
namespace {

class SnapshotRunScript : public RunScriptTest {
protected:
    // Returns the environment of the program.
    Variables Seen(const Variables& env = {}) const {
        Installation::AddProgram(installation.Program("cv_snapshot"), environmentPrinter);
        return ParseEnvironment(Snapshot({}, env).out);
    }

    std::string Qt() const { return IsWriter() ? "/Qt-4.8.5" : "/Qt-6.5/lib"; }

    // Returns the search path without one of the caller's.
    std::string PathBelow(const std::string& root, bool mainScript = false) const {
        if (!IsWriter())
            return root + ":" + root + "/ssl-compat:" + root + Qt();
        return root + Qt() + ":" + (mainScript ? root + "/Intel-12.1.3:" : "") + root +
               "/GCC-4.7.2:" + root;
    }

    Variables Defaults() const {
        return {{"CORV_ROOT", installation.Root()},
                {"CORV_CORVANERC", installation.Settings()},
                {"CORV_SNAPSHOT", installation.Root()},
                {"LD_LIBRARY_PATH", PathBelow(installation.Root())}};
    }

    // Expects the product's path, or only its Qt directory, and then `rest` in both scripts.
    void ExpectPath(const Variables& env, bool qtOnly, const std::string& rest) const {
        const std::string root = installation.Root();
        EXPECT_EQ(Exported(env).at("LD_LIBRARY_PATH"),
                  (qtOnly ? root + Qt() : PathBelow(root, true)) + rest);
        EXPECT_EQ(Seen(env).at("LD_LIBRARY_PATH"), (qtOnly ? root + Qt() : PathBelow(root)) + rest);
    }
};

TEST_P(SnapshotRunScript, PassesAllArguments) {
    for (const Words& args : {Words{}, Words{"--help"}, Words{"a  b", "*", "", "--setenv", "ü"}}) {
        const ProcessResult result = Snapshot(args);
        EXPECT_EQ(result.out, Lines({installation.Program("cv_snapshot")}) + Lines(args));
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
    }
    EXPECT_EQ(ReadFile(installation.Program("arch.calls")), "");
}

TEST_P(SnapshotRunScript, IsReplacedByProgram) {
    ExpectReplaced(snapshot, {"a"}, Lines({installation.Program("cv_snapshot"), "a"}));
}

TEST_P(SnapshotRunScript, FailsWithoutProgram) {
    std::filesystem::remove(installation.Program("cv_snapshot"));
    EXPECT_EQ(Snapshot({}).status, 127);
}

TEST_P(SnapshotRunScript, IgnoresOverridesUnlessSwitchIsYes) {
    EXPECT_EQ(Seen(), Defaults());
    Variables env = {
        {"CORV_USER_ROOT", "/mine"}, {"CORV_USER_SNAPSHOT", "/mine"}, {"CORV_USER_LD_PATH", "/m"}};
    EXPECT_EQ(Seen(env), Defaults());
    for (const char* word : {"", "yes", "Yes", "YES ", "NO"}) {
        env["CORV_USER_OVERRIDE"] = word;
        EXPECT_EQ(Seen(env), Defaults()) << '"' << word << '"';
    }
    for (auto& [name, value] : env)
        value = name == "CORV_USER_OVERRIDE" ? "YES" : "";
    EXPECT_EQ(Seen(env), Defaults());
}

TEST_P(SnapshotRunScript, FollowsOverrideOfRootOrProgram) {
    Installation::AddProgram(Other() + "/cv_snapshot", environmentPrinter);
    Variables expected = Defaults();
    expected["CORV_SNAPSHOT"] = Other();
    EXPECT_EQ(Seen({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_SNAPSHOT", Other()}}), expected);
    expected["CORV_ROOT"] = Other();
    expected["LD_LIBRARY_PATH"] = PathBelow(Other());
    EXPECT_EQ(Seen({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_ROOT", Other()}}), expected);
}

TEST_P(SnapshotRunScript, AppendsSearchPathOfCallerOrUser) {
    ExpectPath({{"LD_LIBRARY_PATH", ""}}, false, "");
    for (const char* path :
         {"/opt/mpi lib:/opt/größe", "/*", "/a%s", "/a\\n", "-n", "/ two  spaces "}) {
        const std::string rest = std::string(":") + path;
        ExpectPath({{"LD_LIBRARY_PATH", path}}, false, rest);
        ExpectPath({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_LD_PATH", path}}, true, rest);
    }
    Variables env = {{"LD_LIBRARY_PATH", "/callers"}, {"CORV_USER_LD_PATH", "/my lib"}};
    for (const char* word : {"", "yes", "NO"}) {
        env["CORV_USER_OVERRIDE"] = word;
        ExpectPath(env, false, ":/callers");
    }
    env["CORV_USER_OVERRIDE"] = "YES";
    ExpectPath(env, true, ":/my lib");
    env["CORV_USER_LD_PATH"] = "";
    ExpectPath(env, false, ":/callers");
}

INSTANTIATE_TEST_SUITE_P(On, SnapshotRunScript, testing::ValuesIn(Grounds()), GroundName);

using TemplateLibraryPath = SnapshotRunScript;

// The loader takes an empty component for the working directory.
TEST_P(TemplateLibraryPath, HasNoEmptyComponent) {
    for (const char* path : {":/a:/b", "/a:/b:", "/a::/b", "::/a:::/b::", ":"}) {
        const std::string rest = path == std::string(":") ? "" : ":/a:/b";
        ExpectPath({{"LD_LIBRARY_PATH", path}}, false, rest);
        ExpectPath({{"CORV_USER_OVERRIDE", "YES"}, {"CORV_USER_LD_PATH", path}}, true, rest);
    }
}

INSTANTIATE_TEST_SUITE_P(On, TemplateLibraryPath, testing::ValuesIn(Grounds({Origin::Product})),
                         GroundName);

}  // namespace
}  // namespace hx_test
