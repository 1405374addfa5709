// Replays the session that README.md shows, on a machine of 8 cores, 15.6 GB of memory and 120 GB
// of free scratch space.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "apps/UserSetup.h"
#include "docs/Texts.h"
#include "harness/Pattern.h"
#include "harness/Terminal.h"

namespace {

namespace fs = std::filesystem;
using hx_test::Terminal;

// Replaces omitted lines in the README.
const std::string cut = "…";

// The questions, and the answers that the README shows.
const std::pair<std::string, std::string> answers[] = {
    {"Job thread limit [", "2"},
    {"Memory usage limit per job [", ""},
    {"Scratch directory [", "/home/ada/scratch"},
    {"Scratch limit per job [", ""},
    {"LSF.\r\n>", "2"},
    {"  2) Slurm\r\n>", "2"},
    {"Partition to which CORVANE jobs will be submitted [", "gpu"},
    {"Location of sbatch command [", ""},
    {"Location of scancel command [", ""},
    {"Enter to continue: ", ""},
};

class Session : public testing::Test {
protected:
    void SetUp() override {
        HX_REQUIRE_NAMESPACES();
        const std::string root = m_setup.Root();
        fs::create_directories(root + "/home/ada/scratch");
        fs::rename(root + "/product", root + "/home/ada/corvane");
        std::string processors;
        for (int i = 0; i < 8; ++i) {
            processors += "processor\t: " + std::to_string(i) +
                          "\nphysical id\t: 0\ncore id\t\t: " + std::to_string(i) +
                          "\ncpu cores\t: 8\n\n";
        }
        hx_test::WriteFile(root + "/cpuinfo", processors);
        fs::create_directory(root + "/bin");
        hx_test::WriteFile(root + "/bin/df",
                           "#!/bin/sh\n"
                           "echo Filesystem 1024-blocks Used Available Capacity Mounted on\n"
                           "echo /dev/sda2 244000000 118000000 126000000 49% /home\n");
        hx_test::WriteFile(root + "/bin/sinfo", "#!/bin/sh\necho gpu\n");
        for (const char* name : {"/bin/df", "/bin/sinfo"})
            fs::permissions(root + name, fs::perms::owner_all);
        m_setup.Bind(root + "/bin/sinfo", "/usr/bin/sinfo");
        m_setup.Bind(root + "/cpuinfo", "/proc/cpuinfo");
        m_setup.Bind(root + "/home", "/home");
    }

    // Returns a command line of the session on the fake machine.
    std::vector<std::string> OnMachine(const std::string& line) const {
        const auto answer = [](int name, long value) {
            return std::to_string(name) + "=" + std::to_string(value);
        };
        return {"/usr/bin/env", "PATH=/tmp/bin:/usr/bin:/bin",
                // The disk of this machine may be smaller.
                "HX_TEST_FAIL=statfs=38",
                "HX_TEST_SYSCONF=" + answer(_SC_NPROCESSORS_CONF, 8) + "," +
                    answer(_SC_PHYS_PAGES, 4096512) + "," + answer(_SC_PAGESIZE, 4096),
                "/bin/sh", "-c", "exec env LD_PRELOAD=/tmp/interposer.so " + line};
    }

    // Answers the questions at a terminal, and returns its output.
    std::string Converse(const std::string& line) {
        Terminal terminal(Terminal::Mode::Person, [&] { m_setup.Become(OnMachine(line)); });
        for (const auto& [question, answer] : answers) {
            EXPECT_TRUE(terminal.WaitFor(question)) << question;
            terminal.Send(answer + "\n");
        }
        EXPECT_EQ(terminal.Finish(), 0);
        return hx_test::ReplaceMatches(terminal.Output(), "\r\n", "\n");
    }

    // Returns the session, each command after a "$ ".
    std::string Record(const std::vector<std::string>& commands) {
        std::string session;
        for (const std::string& line : commands) {
            session += "$ " + line + "\n";
            session += line.find("--setup") != std::string::npos
                           ? Converse(line)
                           : m_setup.RunProgram({"/bin/sh", "-c", "exec " + line}).out;
        }
        return session;
    }

    UserSetup m_setup;
};

// Drops what differs between runs: the names of temporary files, and headings, whose place depends
// on how far bash has read. The README has no spaces at the ends of lines.
std::vector<std::string> ComparableLines(const std::string& text) {
    const std::string named = hx_test::ReplaceMatches(
        text, "/corvane26_(commit|setup)_[A-Za-z0-9]{6}", "/corvane26_$1_XXXXXX");
    const std::string plain = hx_test::ReplaceMatches(named, "==> [^\n]*\n", "");
    return hx_docs::Lines(hx_test::ReplaceMatches(plain, " +\n", "\n"));
}

TEST_F(Session, MatchesReadme) {
    const std::string readme = hx_test::ReadFile(HX_README);
    const std::string shown = hx_docs::Between(readme, "```console\n", "```\n");
    std::vector<std::string> commands;
    for (const hx_test::Match& match : hx_test::AllMatches("\n" + shown, "\n\\$ ([^\n]*)"))
        commands.push_back(match[1]);
    ASSERT_GE(commands.size(), 2U);
    const std::string recorded = Record(commands);

    const std::vector<std::string> lines = ComparableLines(recorded);
    auto line = lines.begin();
    bool maySkip = false;
    for (const std::string& wanted : ComparableLines(shown)) {
        if (wanted == cut) {
            ASSERT_NE(line, lines.end());
            ++line;
            maySkip = true;
            continue;
        }
        if (maySkip)
            line = std::find(line, lines.end(), wanted);
        maySkip = false;
        ASSERT_NE(line, lines.end()) << "\"" << wanted << "\" is not in\n" << recorded;
        ASSERT_EQ(*line, wanted) << recorded;
        ++line;
    }
    EXPECT_EQ(line, lines.end()) << "the README ends before\n" << *line;
}

}  // namespace
