// The options of the main run script that only print.
#include "product/RunScript.h"

namespace hx_test {
namespace {

struct Listing {
    const char* option;
    const char* name;
    std::string file;
};

class MainRunScriptPrinting : public MainRunScriptTest {
protected:
    std::vector<Listing> Listings() const {
        return {{"--ldd-analysis", "abinitio", installation.Program("linux x86-64/cv_abinitio")},
                {"--ldd-common", "monitor", installation.Program("cv_monitor")},
                {"--ldd-so", "HXInstallBase", installation.Program("libHXInstallBase.so")}};
    }
};

TEST_P(MainRunScriptPrinting, RootPathPrintsTheBinariesDirectory) {
    for (const char* spelling : {"-r", "--root-path"}) {
        const ProcessResult result = Corvane({spelling});
        EXPECT_EQ(result.out, "CORV_ROOT=" + installation.root() + "\n") << spelling;
        EXPECT_EQ(result.status, 0) << spelling;
    }
}

TEST_P(MainRunScriptPrinting, LibraryPathPrintsTheVariable) {
    const std::string root = installation.root();
    for (const char* spelling : {"-l", "--library-path"}) {
        const ProcessResult result = Corvane({spelling});
        EXPECT_EQ(result.out,
                  "LD_LIBRARY_PATH=" + root + ":" + root + "/ssl-compat:" + root + "/Qt-6.5/lib\n")
            << spelling;
        EXPECT_EQ(result.status, 0) << spelling;
    }
}

TEST_P(MainRunScriptPrinting, AHalfInstalledProductStillAnswersQuietly) {
    WriteFile(installation.Program("cv_arch"), "not executable");
    std::filesystem::permissions(installation.Program("cv_arch"), std::filesystem::perms(0644));
    for (const bool present : {true, false}) {
        if (!present)
            std::filesystem::remove(installation.Program("cv_arch"));
        const ProcessResult result = Corvane({"--root-path"});
        EXPECT_EQ(result.out, "CORV_ROOT=" + installation.root() + "\n");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Corvane({"--printenv", "CORV_CPUDIR"}, {{"CV_CPUDIR", "stale"}}).out, "\n");
    }
}

TEST_P(MainRunScriptPrinting, TheLddOptionsShowAndListTheirFile) {
    for (const auto& [option, name, file] : Listings()) {
        const ProcessResult result = Corvane({option, name});
        EXPECT_EQ(result.out, "ldd " + file + "\nlisting of <" + file + ">\n") << option;
        EXPECT_EQ(result.status, 0) << option;
    }
}

TEST_P(MainRunScriptPrinting, TheLddOptionsEndWithZeroEvenIfLddFails) {
    for (const auto& [option, name, file] : Listings()) {
        const ProcessResult result = Corvane({option, name}, {{"STANDIN_STATUS", "1"}});
        EXPECT_NE(result.out.find("listing of"), std::string::npos) << option;
        EXPECT_EQ(result.status, 0) << option;
    }
}

TEST_P(MainRunScriptPrinting, HelpNamesEveryOption) {
    const Words options = {"--setup",      "--monitor",
                           "--snapshot",   "--arch",
                           "--submit",     "--foreground-submit",
                           "--unpack",     "--process-commands",
                           "--convert",    "--select",
                           "--inuse",      "--control",
                           "--service",    "--library-path",
                           "--root-path",  "--printenv",
                           "--ldd",        "--ldd-analysis",
                           "--ldd-common", "--ldd-so",
                           "--setenv",     "--help"};
    for (const char* spelling : {"-h", "--help"}) {
        const ProcessResult result = Corvane({spelling});
        for (const auto& option : options)
            EXPECT_NE(result.out.find("\n  " + option + " "), std::string::npos) << option;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
    }
}

TEST_P(MainRunScriptPrinting, HelpNamesWhatGoesWithAnOption) {
    const std::string help = Corvane({"--help"}).out;
    for (const char* line :
         {"\n      --background\n", "\n      --foreground\n", "\n      --external-default-queue\n",
          "\n      --external-queue <queue_name>\n", "\n      --verbose <level>\n",
          "\n  --submit [opt] <path> : ", "\n  --convert <old> <new> : ",
          "\n  --inuse [--status]   : ", "\n  --inuse [--add|--remove] : "})
        EXPECT_NE(help.find(line), std::string::npos) << line;
}

TEST_P(MainRunScriptPrinting, ThePrintingOptionsStartNothing) {
    for (const char* option : {"--help", "--root-path", "--library-path", "--printenv",
                               "--ldd-analysis", "--ldd-common", "--ldd-so"}) {
        EXPECT_EQ(Corvane({option}).out.find("cv_builder"), std::string::npos) << option;
        EXPECT_FALSE(std::filesystem::exists(installation.Program("select.asked"))) << option;
    }
}

INSTANTIATE_TEST_SUITE_P(On, MainRunScriptPrinting, testing::ValuesIn(kGrounds), GroundName);

}  // namespace
}  // namespace hx_test
