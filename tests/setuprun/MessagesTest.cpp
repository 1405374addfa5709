// Errors, warnings, and pauses.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "Machine.h"

namespace {

using hx_test::RunInChild;
using hx_test::World;

constexpr const char* pauseText = "[Press \"Enter\" key to continue]";

// Runs `body` in a child with a closed pipe as stdout and one line in its buffer.
hx_test::ProcessResult WithClosedStdout(const std::function<void()>& body) {
    return RunInChild({}, [&] {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        dup2(ends[1], 1);
        close(ends[0]);
        close(ends[1]);
        std::signal(SIGPIPE, SIG_DFL);
        std::printf("a question\n");
        body();
    });
}

bool IsSigpipePending() {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

bool IsSigpipeBlocked() {
    sigset_t blocked;
    return sigprocmask(SIG_SETMASK, nullptr, &blocked) == 0 && sigismember(&blocked, SIGPIPE) == 1;
}

void BlockSigpipe() {
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    sigprocmask(SIG_BLOCK, &sigpipe, nullptr);
}

TEST(InstallError, PrintsMessageAndErrorText) {
    struct {
        const char* message;
        int status;
        int error;
        std::string text;
    } const cases[] = {{"No luck", 2, 0, "No luck\n"},
                       {"No luck", 14, ENOENT, "No luck\n    No such file or directory\n"},
                       {"x", 0, -5, "x\n    Unknown error -5\n"},
                       {"100% of größe %s %n %d", 13, 0, "100% of größe %s %n %d\n"},
                       {"x", 255, EACCES, "x\n    Permission denied\n"}};
    for (const auto& test : cases) {
        const auto result = RunInChild({}, [&] {
            CInstallBase::InstallError(QString::fromUtf8(test.message), test.status, test.error);
        });
        EXPECT_EQ(result.status, test.status);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "Corvane Install: Error\n    " + test.text);
    }
}

TEST(InstallError, FlushesStdoutFirst) {
    const auto result = RunInChild({}, [] {
        dup2(1, 2);
        std::printf("a question ");
        CInstallBase::InstallError("No luck", 2, 0);
    });
    EXPECT_EQ(result.out, "a question Corvane Install: Error\n    No luck\n");
}

TEST(InstallError, RunsExitHandlersWithoutDestroyingStack) {
    struct Witness {
        ~Witness() { std::printf("destroyed"); }
    };
    const auto result = RunInChild({}, [] {
        std::atexit([] { std::printf("exit handler"); });
        const Witness witness;
        CInstallBase::InstallError("x", 1, 0);
    });
    EXPECT_EQ(result.out, "exit handler");
}

TEST(InstallError, PrintsMessageWhenStdoutIsClosed) {
    const auto result = WithClosedStdout([] {
        std::atexit([] { std::printf("flushed by exit\n"); });
        CInstallBase::InstallError("No luck", 14, EACCES);
    });
    EXPECT_EQ(result.status, 14);
    EXPECT_EQ(result.err, "Corvane Install: Error\n    No luck\n    Permission denied\n");
}

TEST(InstallError, KeepsStatusWhenStderrIsClosed) {
    const auto result = WithClosedStdout([] {
        dup2(1, 2);
        CInstallBase::InstallError("No luck", 14, 0);
    });
    EXPECT_EQ(result.status, 14);
}

TEST(InstallWarning, PrintsMessageAndReturns) {
    const auto result = RunInChild({}, [] {
        CInstallBase::InstallWarning("Look out", 0);
        CInstallBase::InstallWarning(QString::fromUtf8("50% größe"), EACCES);
        std::printf("continued");
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "continued");
    EXPECT_EQ(result.err,
              "Corvane Install: Warning\n    Look out\n"
              "Corvane Install: Warning\n    50% größe\n    Permission denied\n");
}

TEST(InstallWarning, FlushesStdoutFirst) {
    const auto result = RunInChild({}, [] {
        dup2(1, 2);
        std::printf("before ");
        CInstallBase::InstallWarning("Look out", 0);
        std::printf("after");
    });
    EXPECT_EQ(result.out, "before Corvane Install: Warning\n    Look out\nafter");
}

TEST(InstallWarning, PrintsMessageWhenStdoutIsClosed) {
    const auto result = WithClosedStdout([] {
        CInstallBase::InstallWarning("Look out", 0);
        _exit(IsSigpipePending() || IsSigpipeBlocked() ? 1 : 0);
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "Corvane Install: Warning\n    Look out\n");
}

TEST(InstallWarning, DoesNotChangeSigpipeDisposition) {
    const auto result = WithClosedStdout([] {
        CInstallBase::InstallWarning("Look out", 0);
        _exit(write(1, "x", 1) == 1 ? 0 : 1);
    });
    EXPECT_EQ(result.status, 128 + SIGPIPE);
}

TEST(InstallWarning, KeepsBlockedSigpipeOfCaller) {
    for (const bool wasPending : {false, true}) {
        const auto result = WithClosedStdout([=] {
            BlockSigpipe();
            if (wasPending)
                raise(SIGPIPE);
            CInstallBase::InstallWarning("Look out", 0);
            _exit(IsSigpipeBlocked() && IsSigpipePending() == wasPending ? 0 : 1);
        });
        EXPECT_EQ(result.status, 0) << wasPending;
    }
}

TEST(InstallSeparator, PrintsSixtyHyphens) {
    const auto result = RunInChild({}, [] { CInstallBase::InstallSeparator(); });
    EXPECT_EQ(result.out, std::string(60, '-') + "\n");
    EXPECT_EQ(result.err, "");
}

// Runs `body` with this input, and expects this output and the next line of the input after it.
void ExpectConsole(const std::string& input, const std::function<void(CInstallBase&)>& body,
                   const std::string& output, const std::string& nextLine,
                   const std::vector<std::string>& words = {"cv_install"}) {
    World world;
    world.input = input;
    const auto result = RunInChild(world, [&] {
        Construct(words, body);
        char line[1024] = "";
        EXPECT_EQ(std::fgets(line, sizeof line, stdin) == nullptr ? "end" : line, nextLine);
        EndWithoutLeakCheck();
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.out, output);
    EXPECT_EQ(result.err, "");
}

void Pause(CInstallBase& run) {
    run.InstallPause();
}

TEST(InstallPause, DiscardsLine) {
    ExpectConsole("anything\nnext\n", Pause, pauseText, "next\n");
    ExpectConsole("", Pause, pauseText, "end");
}

TEST(InstallPause, Discards255BytesOfLongLine) {
    const std::string rest(45, 'y');
    ExpectConsole(std::string(255, 'x') + rest + "\nnext\n", Pause, pauseText, rest + "\n");
    ExpectConsole(std::string(255, 'x') + "\nnext\n", Pause, pauseText, "\n");
}

TEST(InstallPause, FlushesTextBeforeWaiting) {
    const auto result = RunInChild({}, [] {
        Construct({"cv_install"}, [](CInstallBase& run) {
            run.InstallPause();
            _exit(0);
        });
    });
    EXPECT_EQ(result.out, pauseText);
}

TEST(InstallPause, DoesNothingOnComputeNode) {
    ExpectConsole("kept\n", Pause, "", "kept\n", {"cv_install", "--cluster-node"});
}

TEST(CompatibilityOperations, DoNothing) {
    const auto call = [](CInstallBase& run) {
        run.PromptQueueAllow();
        run.VerifyCRuntime();
    };
    ExpectConsole("kept\n", call, "", "kept\n");
}

}  // namespace
