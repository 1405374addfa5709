// The completion: its functions, called as bash calls them, and at a terminal.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "docs/Texts.h"
#include "harness/Child.h"
#include "harness/Terminal.h"

namespace {

const std::string completion = HX_BUILT_DOCS "/cv_install.bash";

// Returns what `function` offers for the last word.
std::set<std::string> Offered(const std::string& function, const std::vector<std::string>& words) {
    std::vector<std::string> command = {
        "bash",
        "--norc",
        "-c",
        "source \"$1\" || exit; function=$2; shift 2; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1))\n"
        "\"$function\"; printf '%s\\n' \"${COMPREPLY[@]}\"",
        "bash",
        completion,
        function};
    command.insert(command.end(), words.begin(), words.end());
    const auto run = hx_test::Run(command);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    std::set<std::string> offered;
    for (const std::string& line : hx_docs::Lines(run.out)) {
        if (!line.empty())
            offered.insert(line);
    }
    return offered;
}

using Set = std::set<std::string>;

TEST(Completion, OffersOptionsOfSetupHelp) {
    HX_REQUIRE_NAMESPACES();
    const Set options = hx_docs::OptionsOfHelp(hx_docs::HelpOfSetup());
    EXPECT_GT(options.size(), 15U);
    EXPECT_EQ(Offered("_cv_install", {"cv_install", ""}), options);
    EXPECT_EQ(Offered("_corvane26", {"corvane26", "--setup", ""}), options);
}

TEST(Completion, OffersOptionsOfRunScript) {
    Set options = hx_docs::OptionsOfRunScript();
    // The completion omits the short forms of long words.
    for (const char* word : {"-setup", "-monitor", "-ldd", "-setenv"})
        EXPECT_EQ(options.erase(word), 1U) << word;
    EXPECT_EQ(Offered("_corvane26", {"corvane26", "-"}), options);
    EXPECT_EQ(Offered("_corvane26", {"corvane26", "--submit", "--ext"}),
              (Set{"--external-default-queue", "--external-queue"}));
}

TEST(Completion, OffersOptionsThatBeginWithWord) {
    EXPECT_EQ(Offered("_cv_install", {"cv_install", "--sc"}),
              (Set{"--scancel", "--scratch-directory", "--scratch-limit"}));
    EXPECT_EQ(Offered("_cv_install", {"cv_install", "--yes", "--no-such"}), Set{});
}

TEST(Completion, OffersValuesOfTheOptionsKind) {
    EXPECT_EQ(Offered("_cv_install", {"cv_install", "-d", "/usr/sbi"}), Set{"/usr/sbin"});
    EXPECT_EQ(Offered("_cv_install", {"cv_install", "--service-group", "roo"}), Set{"root"});
    EXPECT_EQ(Offered("_cv_install", {"cv_install", "-u", "roo"}), Set{"root"});
    EXPECT_EQ(Offered("_cv_install", {"cv_install", "--json", "/etc/passw"}).count("/etc/passwd"),
              1U);
    EXPECT_EQ(Offered("_cv_install", {"cv_install", "--key", "/etc/passw"}).count("/etc/passwd"),
              1U);
    EXPECT_EQ(Offered("_cv_install", {"cv_install", "--queue", ""}),
              (Set{"internal", "none", "slurm", "torque"}));
    for (const char* option : {"-m", "--memory-limit", "-s", "-q", "-p"})
        EXPECT_EQ(Offered("_cv_install", {"cv_install", option, ""}), Set{}) << option;
}

TEST(Completion, WorksAtTerminal) {
    hx_test::Terminal terminal(hx_test::Terminal::Mode::Person, [] {
        setenv("PS1", "ready> ", 1);
        setenv("TERM", "dumb", 1);
        setenv("INPUTRC", "/dev/null", 1);
        setenv("HISTFILE", "", 1);
        // No typed command can be found.
        setenv("PATH", "/nowhere", 1);
        execl("/bin/bash", "bash", "--norc", "-i", nullptr);
        _exit(127);
    });
    ASSERT_TRUE(terminal.WaitFor("ready> ")) << terminal.Output();
    terminal.Send("source '" + completion + "'\n");
    ASSERT_TRUE(terminal.WaitFor("ready> ")) << terminal.Output();
    terminal.Send("cv_install --memo\t");
    ASSERT_TRUE(terminal.WaitFor("cv_install --memory-limit ")) << terminal.Output();
    terminal.Send("\x15 corvane26 --setup --cl\t");
    ASSERT_TRUE(terminal.WaitFor("--setup --cluster-node ")) << terminal.Output();
    terminal.Send("\x15 exit 0\n");
    EXPECT_EQ(terminal.Finish(), 0);
}

TEST(Completion, PassesShellcheck) {
    if (hx_test::Run({"sh", "-c", "command -v shellcheck"}).status != 0)
        GTEST_SKIP() << "shellcheck is not installed";
    const auto check = hx_test::Run({"shellcheck", completion});
    EXPECT_EQ(check.status, 0) << check.out;
}

}  // namespace
