// The files that cv_install writes itself, before the commit script.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "apps/Leaks.h"
#include "apps/UserSetup.h"
#include "harness/Terminal.h"

namespace {

namespace fs = std::filesystem;
using hx_test::Terminal;

const std::string separator = std::string(60, '-') + "\n";

std::string ExpectedScript(const std::string& name) {
    return hx_test::ReadFile(HX_EXPECTED_DIR "/generated/" + name);
}

class RunTimeFiles : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    hx_test::ProcessResult Run(std::vector<std::string> further = {}) {
        std::vector<std::string> arguments = {"--setup", "--user-mode", "--yes"};
        arguments.insert(arguments.end(), further.begin(), further.end());
        return m_setup.Run(arguments);
    }

    void ExpectNoCommit() {
        EXPECT_TRUE(m_setup.CommitScripts().empty());
        EXPECT_FALSE(m_setup.Has("corvanerc"));
        EXPECT_FALSE(m_setup.Has("QueueLimits"));
    }

    UserSetup m_setup;
};

TEST_F(RunTimeFiles, QChemGetsTheAnswers) {
    const auto result = Run({"-m", "777", "-s", "5", "-d", "/tmp/a b"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(m_setup.File("qchemrc/qchemrc"),
              "$rem\nAO2MO_DISK        5\nMEM_TOTAL       777\n$end\n");
    EXPECT_EQ(m_setup.File("qchemrc/qcscratch"), "/tmp/a b");
    EXPECT_EQ(ModeOf(m_setup.Outside("qchemrc")), 0755U);
    EXPECT_EQ(ModeOf(m_setup.Outside("qchemrc/qchemrc")), 0644U);
    EXPECT_EQ(ModeOf(m_setup.Outside("qchemrc/qcscratch")), 0644U);
}

TEST_F(RunTimeFiles, TheReportsComeBeforeTheCommit) {
    const auto result = Run({"-m", "777", "-s", "5", "-d", "/tmp"});
    const std::string reports = separator + "  Scratch limit per job: 5 GB\n" + separator +
                                "  Memory limit per job: 777 MB\n" + separator +
                                "  Scratch storage directory: /tmp\nCommit script: /tmp/";
    EXPECT_NE(result.out.find(reports), std::string::npos) << result.out;
}

TEST_F(RunTimeFiles, AFurtherSetupWritesTheNewAnswers) {
    ASSERT_EQ(Run({"-m", "777"}).status, 0);
    ASSERT_EQ(Run({"-m", "888"}).status, 0);
    EXPECT_NE(m_setup.File("qchemrc/qchemrc").find("\nMEM_TOTAL       888\n"), std::string::npos);
}

TEST_F(RunTimeFiles, AClusterNodeGetsThemToo) {
    ASSERT_EQ(Run({"--cluster-node"}).status, 0);
    EXPECT_TRUE(m_setup.Has("qchemrc/qchemrc"));
    EXPECT_EQ(m_setup.File("qchemrc/qcscratch"), "/tmp");
}

TEST_F(RunTimeFiles, TheRunScriptNamesTheirDirectory) {
    ASSERT_EQ(Run().status, 0);
    EXPECT_EQ(m_setup.RunProgram({m_setup.Inside("corvane26"), "--printenv", "CORV_QCHEMRC"}).out,
              m_setup.Inside("qchemrc") + "\n");
}

TEST_F(RunTimeFiles, SubmissionScriptsAreWrittenOnlyWhenAskedFor) {
    ASSERT_EQ(Run().status, 0);
    EXPECT_FALSE(m_setup.Has("corvane26_samba"));
    EXPECT_FALSE(m_setup.Has("corvane26_ssh"));
    const auto result = Run({"--submission-scripts"});
    ASSERT_EQ(result.status, 0) << result.err;
    for (const std::string name : {"corvane26_samba", "corvane26_ssh"}) {
        EXPECT_EQ(m_setup.File(name), ExpectedScript(name));
        EXPECT_EQ(ModeOf(m_setup.Outside(name)), 0755U);
        EXPECT_NE(result.out.find("  " + m_setup.Inside(name) + " script created...\n"),
                  std::string::npos);
    }
}

TEST_F(RunTimeFiles, AnEditedSubmissionScriptStaysUntilItIsAskedForAgain) {
    ASSERT_EQ(Run({"--submission-scripts"}).status, 0);
    hx_test::WriteFile(m_setup.Outside("corvane26_ssh"), "edited");
    ASSERT_EQ(Run().status, 0);
    EXPECT_EQ(m_setup.File("corvane26_ssh"), "edited");
    ASSERT_EQ(Run({"--submission-scripts"}).status, 0);
    EXPECT_EQ(m_setup.File("corvane26_ssh"), ExpectedScript("corvane26_ssh"));
}

TEST_F(RunTimeFiles, WithoutThemThereIsNoCommit) {
    hx_test::WriteFile(m_setup.Outside("qchemrc"), "in the way");
    const auto result = Run();
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "Corvane Install: Error\n"
              "    Unable to open file \"/tmp/product/qchemrc/qchemrc\" for write\n"
              "    Not a directory\n");
    ExpectNoCommit();
}

TEST_F(RunTimeFiles, ASubmissionScriptThatCannotBeOpenedEndsWithTheErrorsNumber) {
    fs::create_directory(m_setup.Outside("corvane26_ssh"));
    const auto result = Run({"--submission-scripts"});
    EXPECT_EQ(result.status, EISDIR);
    EXPECT_EQ(result.err,
              "Corvane Install: Error\n"
              "    Unable to open \"/tmp/product/corvane26_ssh\" for write\n");
    EXPECT_TRUE(m_setup.Has("qchemrc/qcscratch"));
    EXPECT_TRUE(m_setup.Has("corvane26_samba"));
    ExpectNoCommit();
}

// No questions are left open, and the pauses are those of the writers.
TEST_F(RunTimeFiles, AClosedConsoleAtAPauseEndsTheSetup) {
    const std::vector<std::string> questions = {"Job thread limit [",
                                                "Memory usage limit per job [",
                                                "[Press ",
                                                "Scratch directory [",
                                                "[Press ",
                                                "Scratch limit per job [",
                                                "[Press ",
                                                "[Press "};
    const std::vector<std::string> reports = {
        "  Scratch limit per job: ", "  Memory limit per job: ", "  Scratch storage directory: ",
        "corvane26_samba script ", "corvane26_ssh script "};
    for (size_t last = 0; last < reports.size(); ++last) {
        Terminal terminal(Terminal::Mode::Person, [&] {
            m_setup.Become(m_setup.Command(
                {"--setup", "--user-mode", "--internal-default-queue", "--submission-scripts"}));
        });
        for (const std::string& question : questions) {
            ASSERT_TRUE(terminal.WaitFor(question)) << terminal.Output();
            terminal.Send("\n");
        }
        for (size_t i = 0; i <= last; ++i) {
            ASSERT_TRUE(terminal.WaitFor(reports[i])) << terminal.Output();
            ASSERT_TRUE(terminal.WaitFor("[Press "));
            terminal.Send(i == last ? "\x04" : "\n");
        }
        EXPECT_TRUE(terminal.WaitFor(
            "cv_install: setup canceled: end of input at a pause\r\n    At most, Q-Chem "
            "files and submission scripts were changed.\r\n"));
        EXPECT_EQ(terminal.Finish(), 7);
        EXPECT_TRUE(terminal.IsSane());
        ExpectNoCommit();
    }
}

// A run by root of a namespace, over an empty /var, that cannot start its commit script: what
// stands then is what cv_install itself has made. The machine's own directories cannot be written
// to.
class RootRunTimeFiles : public RunTimeFiles {
protected:
    hx_test::ProcessResult RunAsRoot(mode_t mask) {
        hx_test::WriteFile(m_setup.Root() + "/no_bash", "");
        fs::create_directory(m_var / "log");
        return hx_test::RunInChild({.identity = hx_test::World::Identity::Root}, [&] {
            for (const char* directory : {"/usr", "/etc"})
                ASSERT_TRUE(MakeReadOnly(directory));
            const std::string bash = fs::canonical("/bin/bash").string();
            ASSERT_EQ(mount((m_setup.Root() + "/no_bash").c_str(), bash.c_str(), nullptr, MS_BIND,
                            nullptr),
                      0);
            ASSERT_EQ(mount(m_var.path().c_str(), "/var", nullptr, MS_BIND, nullptr), 0);
            ASSERT_EQ(mount(m_setup.Root().c_str(), "/tmp", nullptr, MS_BIND, nullptr), 0);
            std::vector<std::string> command =
                m_setup.Command({"--setup", "--yes", "--submission-scripts"});
            std::vector<char*> argv;
            for (std::string& word : command)
                argv.push_back(word.data());
            argv.push_back(nullptr);
            setenv("LSAN_OPTIONS", LeakOptions("/tmp/lsan.supp").c_str(), 1);
            umask(mask);
            execv(argv[0], argv.data());
        });
    }

    hx_test::TempDir m_var;

private:
    static bool MakeReadOnly(const char* directory) {
        return mount(directory, directory, nullptr, MS_BIND, nullptr) == 0 &&
               mount(nullptr, directory, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
    }
};

TEST_F(RootRunTimeFiles, ANewInstallDirectoryHasTheModeOfTheSharedTree) {
    for (const mode_t mask : {022U, 077U}) {
        fs::remove_all(m_var / "corvane");
        const auto result = RunAsRoot(mask);
        EXPECT_EQ(result.status, 6) << result.out << result.err;
        EXPECT_EQ(ModeOf(m_var / "corvane"), 0775U);
        EXPECT_EQ(ModeOf(m_var / "corvane/qchemrc"), 0755U);
        EXPECT_EQ(ModeOf(m_var / "corvane/qchemrc/qchemrc"), 0644U);
        EXPECT_EQ(ModeOf(m_var / "corvane/qchemrc/qcscratch"), 0644U);
        EXPECT_EQ(ModeOf(m_var / "corvane/corvane26_samba"), 0755U);
        EXPECT_EQ(ModeOf(m_var / "corvane/corvane26_ssh"), 0755U);
    }
}

TEST_F(RootRunTimeFiles, AnExistingInstallDirectoryKeepsItsMode) {
    for (const mode_t mode : {0755U, 0700U}) {
        fs::remove_all(m_var / "corvane");
        fs::create_directory(m_var / "corvane");
        fs::permissions(m_var / "corvane", fs::perms(mode));
        EXPECT_EQ(RunAsRoot(022).status, 6);
        EXPECT_EQ(ModeOf(m_var / "corvane"), mode);
    }
}

TEST_F(RootRunTimeFiles, WithoutUserModeOnlyTheSeparatorsAreShown) {
    const auto result = RunAsRoot(022);
    const std::string frames = separator + separator + separator + separator + separator;
    EXPECT_NE(result.out.find(frames + "Commit script: "), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find("script created"), std::string::npos);
}

TEST_F(RootRunTimeFiles, AFileInTheDirectorysPlaceEndsTheSetup) {
    hx_test::WriteFile(m_var / "corvane", "in the way");
    const auto result = RunAsRoot(022);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "Corvane Install: Error\n    Unable to create \"/var/corvane/qchemrc\"\n"
              "    Not a directory\n");
    EXPECT_EQ(hx_test::ReadFile(m_var / "corvane"), "in the way");
}

}  // namespace
