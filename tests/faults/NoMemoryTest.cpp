// Setups in which an allocation fails.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "apps/UserSetup.h"
#include "faults/FaultyRun.h"
#include "harness/Effort.h"

namespace {

namespace fs = std::filesystem;

class NoMemory : public testing::Test {
protected:
    void SetUp() override {
#ifdef HX_TEST_KEEP_MALLOC
        GTEST_SKIP() << "a sanitizer replaces malloc";
#endif
        HX_REQUIRE_NAMESPACES();
    }

    // Runs a setup whose allocation of this number fails, in a clean product directory.
    hx_test::ProcessResult Run(int number) {
        ClearSetup(m_setup);
        fs::remove(m_setup.Root() + "/reached");
        const std::vector<std::string> variables = {"HX_TEST_NO_MEMORY=:" + std::to_string(number),
                                                    "HX_TEST_REACHED=/tmp/reached"};
        // The exit status is 137 if the setup hangs.
        std::vector<std::string> command = {"/usr/bin/timeout", "--signal=KILL", "30"};
        const std::vector<std::string> setup = m_setup.Command(
            variables, {"--setup", "--user-mode", "--yes", "-m", "777", "-s", "5", "-d", "/tmp"});
        command.insert(command.end(), setup.begin(), setup.end());
        return m_setup.RunProgram(command);
    }

    bool WasReached() const {
        return fs::exists(m_setup.Root() + "/reached");
    }

    bool IsComplete() const {
        return m_setup.Has("corvane26_snapshot") &&
               m_setup.File("QueueLimits").ends_with("Scratch: /tmp\nDiskPerThreadGB: 5\n");
    }

    UserSetup m_setup;
};

// Empty if the process has ended.
std::string CommandLineOf(const fs::path& process) {
    char text[512] = {};
    FILE* file = std::fopen((process / "cmdline").c_str(), "r");
    if (file == nullptr)
        return "";
    const size_t length = std::fread(text, 1, sizeof text, file);
    std::fclose(file);
    return {text, length};
}

bool IsRunning(const std::string& script) {
    const std::string name = fs::path(script).filename();
    const fs::directory_iterator processes("/proc");
    return std::any_of(begin(processes), end(processes), [&](const fs::directory_entry& process) {
        return CommandLineOf(process.path()).find(name) != std::string::npos;
    });
}

bool EndsSoon(const std::string& script) {
    for (int i = 0; i < 100 && IsRunning(script); ++i)
        usleep(20000);
    return !IsRunning(script);
}

// The loader, the C library, or Qt can end the program without a message, before the script.
bool EndedByLibraries(const hx_test::ProcessResult& result) {
    return result.status == 1 || result.status == 127 || result.status == 128 + SIGABRT ||
           result.status == 128 + SIGSEGV;
}

// A call that lacks memory is reported like its other failures; a lost value is rejected as empty.
void ExpectReported(const hx_test::ProcessResult& result) {
    const std::set<int> statuses = {2, 4, 5, 6, 10};
    EXPECT_TRUE(statuses.contains(result.status)) << result.status;
    const bool reported = result.err.find("cv_install: ") != std::string::npos ||
                          result.err.find("Corvane Install: Error\n") != std::string::npos;
    EXPECT_TRUE(reported) << result.err;
}

TEST_F(NoMemory, EndsSetupWithMessageOrNotAtAll) {
    const int stride = hx_test::TriesEveryFault() ? 1 : 211;
    int ended = 0;
    for (int number = 1;; number += stride) {
        const auto result = Run(number);
        SCOPED_TRACE("allocation " + std::to_string(number) + ", status " +
                     std::to_string(result.status) + "\n" + result.err);
        if (!WasReached())
            break;
        if (result.status == 0) {
            EXPECT_TRUE(IsComplete());
        } else if (EndedByLibraries(result)) {
            EXPECT_FALSE(m_setup.Has("corvanerc"));
        } else {
            ExpectReported(result);
            ++ended;
        }
        for (const std::string& script : m_setup.CommitScripts())
            EXPECT_TRUE(EndsSoon(script));
    }
    EXPECT_GT(ended, 5);
}

}  // namespace
