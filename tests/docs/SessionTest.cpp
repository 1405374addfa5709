// Replays the sessions that the documents show.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "apps/RootSetup.h"
#include "apps/UserSetup.h"
#include "docs/Texts.h"
#include "harness/Pattern.h"
#include "harness/Terminal.h"
#include "machine/ThrowawayRoot.h"

namespace {

namespace fs = std::filesystem;
using hx_test::Terminal;

// Replaces omitted lines in the documents.
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

// A machine of 8 cores, 15.6 GB of memory and 120 GB of free scratch space.
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
// on how far bash has read. Drops what the machine decides: numbers of new accounts and the amount
// of memory. The documents have no spaces at the ends of lines.
std::vector<std::string> ComparableLines(const std::string& text) {
    constexpr std::pair<const char*, const char*> replaced[] = {
        {"/corvane26_(commit|setup)_[A-Za-z0-9]{6}", "/corvane26_$1_XXXXXX"},
        {"==> [^\n]*\n", ""},
        {" \\(([GU]ID) \\d+", " ($1 N"},
        {" MB = (\\d+) of \\d+ MB", " MB = $1 of N MB"},
        {" +\n", "\n"}};
    std::string plain = text;
    for (const auto& [pattern, replacement] : replaced)
        plain = hx_test::ReplaceMatches(plain, pattern, replacement);
    return hx_docs::Lines(plain);
}

// Returns the command lines after the prompt, "$" or "#".
std::vector<std::string> CommandsIn(const std::string& shown, const std::string& prompt) {
    std::vector<std::string> commands;
    for (const hx_test::Match& match :
         hx_test::AllMatches("\n" + shown, "\n" + prompt + " ([^\n]*)"))
        commands.push_back(match[1]);
    return commands;
}

void ExpectSession(const std::string& shown, const std::string& recorded) {
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
    if (!maySkip) {
        EXPECT_EQ(line, lines.end()) << "the document ends before\n" << *line;
    }
}

TEST_F(Session, MatchesReadme) {
    const std::string readme = hx_test::ReadFile(HX_README);
    const std::string shown = hx_docs::Between(readme, "```console\n", "```\n");
    const std::vector<std::string> commands = CommandsIn(shown, "\\$");
    ASSERT_GE(commands.size(), 2U);
    ExpectSession(shown, Record(commands));
}

// Stands for systemctl. The real one enables units.
constexpr const char* serviceManager = R"sh(#!/bin/sh
case $1 in
start|restart) : > /run/service;;
is-active) [ -e /run/service ] || { echo inactive; exit 3; }; echo active;;
enable) exec env SYSTEMD_OFFLINE=1 /usr/bin/systemctl.real "$@";;
esac
exit 0
)sh";

// A machine with the package, on which nothing is set up.
void LayOutPackage() {
    LayOutRootSetup();
    fs::remove_all("/usr/lib/corvane26");
    Shell("mv /opt/corvane26 /usr/lib/; mv /usr/bin/systemctl /usr/bin/systemctl.real");
    hx_test::WriteFile("/usr/bin/systemctl", serviceManager);
    hx_test::WriteFile("/usr/sbin/cv_install",
                       "#!/bin/sh\nexec /usr/lib/corvane26/cv_install \"$@\"\n");
    Shell("chmod 755 /usr/bin/systemctl /usr/sbin/cv_install");
}

TEST(GuideSession, MatchesFirstPage) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const std::string guide = hx_test::ReadFile(HX_DOCS "/administrator.md");
        const std::string shown = hx_docs::Between(guide, "```console\n", "```\n");
        const std::vector<std::string> commands = CommandsIn(shown, "#");
        ASSERT_GE(commands.size(), 4U);
        LayOutPackage();
        std::string recorded;
        for (const std::string& line : commands) {
            const auto result = hx_test::Run({"/bin/sh", "-c", "cd /; exec " + line});
            EXPECT_EQ(result.status, 0) << line;
            EXPECT_EQ(result.err, "") << line;
            recorded += "# " + line + "\n" + result.out;
        }
        ExpectSession(shown, recorded);
    });
}

}  // namespace
