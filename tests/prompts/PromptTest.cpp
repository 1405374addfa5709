#include "prompts/PromptTest.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "harness/Pattern.h"
#include "harness/Terminal.h"

// Of the leak checker, where there is one.
extern "C" __attribute__((weak)) void __lsan_disable();
extern "C" __attribute__((weak)) void __lsan_enable();

namespace hx_test {
namespace {

constexpr int ConversationBroken = 97;
constexpr int ExpectationFailed = 99;

// Follows the input of the test, to detect a prompt that reads too much.
const std::string Ahead = "not for this prompt\n";

// Some objects of a setup are never freed, by design. Even a suppressed report of them costs time
// and a line on stderr.
void IgnoreLeaks(bool ignore) {
    const auto call = ignore ? __lsan_disable : __lsan_enable;
    if (call != nullptr)
        call();
}

// Protects the test and the disk from a prompt that asks indefinitely.
void LimitResources() {
    alarm(60);
    const rlimit size = {1 << 23, 1 << 23};
    setrlimit(RLIMIT_FSIZE, &size);
}

void ReadFromPipe(const std::string& text) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    dup2(ends[0], 0);
    close(ends[0]);
    close(ends[1]);
}

std::string RestOfInput() {
    std::string rest;
    for (int c = std::getchar(); c != EOF; c = std::getchar())
        rest += static_cast<char>(c);
    return rest;
}

// A terminal's end key ends the input at the start of a line. After text, it only delivers the
// text.
std::string Keys(const std::string& typed) {
    const bool afterText = typed.size() > 1 && typed[typed.size() - 2] != '\n';
    return typed.ends_with(End) && afterText ? typed + End : typed;
}

bool Talk(Terminal& terminal, const std::vector<Turn>& turns, const std::string& ahead) {
    for (const Turn& turn : turns) {
        if (!terminal.WaitFor(turn.output))
            return false;
        terminal.Send(Keys(turn.typed));
    }
    terminal.Send(ahead + End);
    return true;
}

std::string AllOutput(const std::vector<Turn>& turns) {
    std::string output;
    for (const Turn& turn : turns)
        output += turn.output;
    return output;
}

bool InputEnds(const std::vector<Turn>& turns) {
    return std::any_of(turns.begin(), turns.end(),
                       [](const Turn& turn) { return turn.typed.ends_with(End); });
}

}  // namespace

PromptTest::PromptTest() {
    m_world.identity = World::Identity::User;
    std::filesystem::create_directory(m_home / "bin");
    // The machine's own directory must not become the install directory.
    std::filesystem::permissions(Replace("/var/corvane"), std::filesystem::perms(0555));
}

std::string PromptTest::Replace(const std::string& path) {
    std::string name = path;
    std::replace(name.begin(), name.end(), '/', '_');
    std::filesystem::create_directory(m_home / name);
    if (std::filesystem::exists(path))
        m_world.binds.emplace_back(m_home / name, path);
    return m_home / name;
}

void PromptTest::PreviousSetup(const std::string& queueLimits) const {
    WriteFile(m_home / "QueueLimits", queueLimits);
}

void PromptTest::AddProgram(const std::string& name, const std::string& script) const {
    const std::string path = m_home / ("bin/" + name);
    WriteFile(path, "#!/bin/sh\n" + script);
    std::filesystem::permissions(path, std::filesystem::perms(0755));
}

void PromptTest::FreeBlocks(const std::string& blocks) const {
    AddProgram("df", "printf '%s\\n' \"$@\" > '" + m_home / "df_arguments" + "'\n" +
                         "echo Filesystem 1024-blocks Used Available Capacity Mounted on\n" +
                         "echo /dev/sda1 976762584 10485760 " + blocks + " 2% /var\n");
}

void PromptTest::Act(const std::function<void(CInstallBase&)>& body, const std::string& unread) {
    setenv("PATH", (m_home / "bin:" + std::getenv("PATH")).c_str(), 1);
    std::vector<std::string> words = m_options;
    words.insert(words.begin(), m_home / "cv_install");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    IgnoreLeaks(true);
    CInstallBase run(true, static_cast<int>(words.size()), argv.data());
    IgnoreLeaks(false);
    EXPECT_EQ(run.m_installDir.toStdString(), m_home.path().string());
    body(run);
    std::fflush(stdout);
    EXPECT_EQ(RestOfInput(), unread);
}

ProcessResult PromptTest::OverPipe(const std::vector<Turn>& turns, const std::function<void()>& act,
                                   const std::string& ahead) {
    std::string input;
    for (const Turn& turn : turns)
        input += turn.typed;
    std::erase(input, End[0]);
    return RunInChild(m_world, [&] {
        LimitResources();
        ReadFromPipe(input + ahead);
        act();
    });
}

ProcessResult PromptTest::OverTerminal(const std::vector<Turn>& turns,
                                       const std::function<void()>& act, const std::string& ahead) {
    ProcessResult result = RunInChild(m_world, [&] {
        LimitResources();
        int status = ConversationBroken;
        {
            Terminal terminal(Terminal::Mode::Bytes, [&] {
                act();
                std::fflush(nullptr);
                if (HasFailure())
                    std::exit(ExpectationFailed);
            });
            if (Talk(terminal, turns, ahead))
                status = terminal.Finish();
            std::fwrite(terminal.Output().data(), 1, terminal.Output().size(), stdout);
        }
        std::fflush(nullptr);
        // The process on the terminal has searched for leaks, which takes long.
        _exit(status);
    });
    // A terminal receives both streams. An error is at the end.
    const size_t output = std::min(AllOutput(turns).size(), result.out.size());
    if (!m_error.empty()) {
        result.err += result.out.substr(output);
        result.out.resize(output);
    }
    return result;
}

void PromptTest::Converse(const std::vector<Turn>& turns,
                          const std::function<void(CInstallBase&)>& body) {
    const std::string ahead = InputEnds(turns) ? "" : Ahead;
    const auto act = [&] { Act(body, m_unread + ahead); };
    const ProcessResult result =
        GetParam() == Console::Pipe ? OverPipe(turns, act, ahead) : OverTerminal(turns, act, ahead);
    EXPECT_EQ(result.status, m_status);
    EXPECT_EQ(result.out, AllOutput(turns));
    EXPECT_TRUE(IsMatch(result.err, m_error)) << result.err;
}

}  // namespace hx_test
