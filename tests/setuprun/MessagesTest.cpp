// How failures and warnings are told, and how a run pauses.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

using hx_test::RunInChild;
using hx_test::World;

constexpr const char* PauseText = "[Press \"Enter\" key to continue]";

// Runs `look` on a run with these options, with this text on the console.
hx_test::ProcessResult OnConsole(const std::string& input,
                                 const std::function<void(CInstallBase&)>& look,
                                 const std::vector<std::string>& options = {}) {
    World world;
    world.input = input;
    return RunInChild(world, [&] {
        std::vector<std::string> words = {"cv_install"};
        words.insert(words.end(), options.begin(), options.end());
        Arguments arguments(words);
        CInstallBase run(true, arguments.argc(), arguments.argv());
        look(run);
        EndWithoutLeakCheck();
    });
}

std::string NextLine() {
    char line[1024] = "";
    return std::fgets(line, sizeof line, stdin) == nullptr ? "end" : line;
}

TEST(InstallError, WithoutANumberWritesTwoLines) {
    const auto result = RunInChild({}, [] { CInstallBase::InstallError("No luck", 2, 0); });
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Corvane Install: Error\n    No luck\n");
}

TEST(InstallError, WithANumberWritesThreeLines) {
    const auto result = RunInChild({}, [] { CInstallBase::InstallError("No luck", 14, ENOENT); });
    EXPECT_EQ(result.status, 14);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Corvane Install: Error\n    No luck\n    No such file or directory\n");
}

TEST(InstallError, EndsWithAnyStatus) {
    for (const int status : {0, 1, 13, 255}) {
        const auto result = RunInChild({}, [=] { CInstallBase::InstallError("x", status, 0); });
        EXPECT_EQ(result.status, status);
    }
}

TEST(InstallError, WritesTheMessageAsUtf8AndNotAsAFormat) {
    const auto result = RunInChild(
        {}, [] { CInstallBase::InstallError(QString::fromUtf8("100% of größe %s %n %d"), 1, 0); });
    EXPECT_EQ(result.err, "Corvane Install: Error\n    100% of größe %s %n %d\n");
}

TEST(InstallError, ComesAfterWhatWasWrittenToStdout) {
    const auto result = RunInChild({}, [] {
        dup2(1, 2);
        std::printf("a question ");
        CInstallBase::InstallError("No luck", 2, 0);
    });
    EXPECT_EQ(result.out, "a question Corvane Install: Error\n    No luck\n");
}

TEST(InstallError, LeavesThroughExitWithoutDestroyingTheStack) {
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

TEST(InstallWarning, WritesTheSameWordsAndReturns) {
    const auto result = RunInChild({}, [] {
        CInstallBase::InstallWarning("Look out", 0);
        CInstallBase::InstallWarning(QString::fromUtf8("50% größe"), EACCES);
        std::printf("went on");
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "went on");
    EXPECT_EQ(result.err,
              "Corvane Install: Warning\n    Look out\n"
              "Corvane Install: Warning\n    50% größe\n    Permission denied\n");
}

TEST(InstallWarning, ComesAfterWhatWasWrittenToStdout) {
    const auto result = RunInChild({}, [] {
        dup2(1, 2);
        std::printf("before ");
        CInstallBase::InstallWarning("Look out", 0);
        std::printf("after");
    });
    EXPECT_EQ(result.out, "before Corvane Install: Warning\n    Look out\nafter");
}

TEST(InstallSeparator, WritesSixtyHyphens) {
    const auto result = RunInChild({}, [] { CInstallBase::InstallSeparator(); });
    EXPECT_EQ(result.out, std::string(60, '-') + "\n");
    EXPECT_EQ(result.err, "");
}

TEST(InstallPause, WaitsForALineAndThrowsItAway) {
    const auto result = OnConsole("anything\nnext\n", [](CInstallBase& run) {
        run.InstallPause();
        EXPECT_EQ(NextLine(), "next\n");
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, PauseText);
    EXPECT_EQ(result.err, "");
}

TEST(InstallPause, LeavesWhatDoesNotFitForTheNextRead) {
    const std::string rest(45, 'y');
    const auto result =
        OnConsole(std::string(255, 'x') + rest + "\nnext\n", [&](CInstallBase& run) {
            run.InstallPause();
            EXPECT_EQ(NextLine(), rest + "\n");
        });
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST(InstallPause, TakesAFullBufferOnly) {
    const auto result = OnConsole(std::string(300, 'x') + "\nnext\n", [](CInstallBase& run) {
        run.InstallPause();
        run.InstallPause();
        EXPECT_EQ(NextLine(), "next\n");
    });
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST(InstallPause, ReturnsOnAClosedConsole) {
    const auto result = OnConsole("", [](CInstallBase& run) { run.InstallPause(); });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, PauseText);
}

TEST(InstallPause, ShowsItsTextBeforeItWaits) {
    const auto result = OnConsole("\n", [](CInstallBase& run) {
        run.InstallPause();
        _exit(0);
    });
    EXPECT_EQ(result.out, PauseText);
}

TEST(InstallPause, DoesNothingOnAClusterNode) {
    const auto result = OnConsole("kept\n",
                                  [](CInstallBase& run) {
                                      run.InstallPause();
                                      EXPECT_EQ(NextLine(), "kept\n");
                                  },
                                  {"--cluster-node"});
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.out, "");
}

TEST(OperationsKeptForOldCallers, DoNothing) {
    const auto result = OnConsole("kept\n", [](CInstallBase& run) {
        run.PromptQueueAllow();
        run.VerifyCRuntime();
        EXPECT_EQ(NextLine(), "kept\n");
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

}  // namespace
