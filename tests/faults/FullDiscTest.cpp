// Setups on discs that fill up at every possible point, are read-only, or are not there.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "faults/Messages.h"
#include "faults/SmallMachine.h"
#include "harness/Child.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"

namespace fs = std::filesystem;
using hx_test::ExpectHolds;
using hx_test::ProcessResult;
using hx_test::SmallMachine;
using hx_test::World;

namespace {

const World kRoot{.identity = World::Identity::Root};
constexpr int kPage = 4;  // kB, what a disc of this kind gives at a time

void ExpectWell(const ProcessResult& result) {
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

class Discs : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
};

// Each ends in its own way, by what the space was not enough for.
void ExpectToldAsIncomplete(const ProcessResult& result) {
    switch (result.status) {
        case 1:
            ExpectHolds(result.out, "\nError, ");
            ExpectHolds(result.err, " failed with status 1, its message stands above\n");
            return;
        case 2:
            ExpectHolds(result.err, "Nothing but the Q-Chem files and submission scripts");
            ExpectHolds(result.err, "is not complete, or cannot be read\n");
            return;
        case 10:
            ExpectHolds(result.err, "is not complete, or cannot be read\n");
            return;
        default:
            ADD_FAILURE() << "status " << result.status << "\n" << result.out << result.err;
    }
}

// With room again, a further setup completes the first, or says what to take away before the next.
void ExpectMended(const SmallMachine& machine, const std::map<std::string, std::string>& whole) {
    SmallMachine::Remount(SmallMachine::InstallDirectory, "size=1m");
    for (const char* pages : {"resources", "icons"}) {
        const ProcessResult again = machine.Setup();
        ExpectWell(again);
        const std::string directory = std::string("/mnt/corvanerc/corvane26server/") + pages;
        if (again.err.find("move the directory \"" + directory + "\" away") != std::string::npos)
            fs::remove_all(directory);
    }
    const ProcessResult last = machine.Setup();
    ExpectWell(last);
    EXPECT_EQ(last.err, "");
    EXPECT_TRUE(SmallMachine::Made() == whole);
}

TEST_F(Discs, AFullInstallDirectoryIsToldWhereverItFillsUp) {
    ExpectWell(hx_test::RunInChild(kRoot, [] {
        const SmallMachine roomy("1m", "1m");
        ExpectWell(roomy.Setup());
        const auto all = SmallMachine::Made();
        std::set<int> statuses;
        for (int pages = 1; !statuses.contains(0); ++pages) {
            const SmallMachine machine(std::to_string(pages * kPage) + "k", "1m");
            SCOPED_TRACE(std::to_string(pages) + " pages");
            const ProcessResult result = machine.Setup();
            statuses.insert(result.status);
            if (result.status == 0) {
                EXPECT_TRUE(SmallMachine::Made() == all);
                break;
            }
            ExpectToldAsIncomplete(result);
            ExpectMended(machine, all);
            ASSERT_LT(pages, 100);
        }
        EXPECT_EQ(statuses, (std::set<int>{0, 1, 2, 10}));
    }));
}

// The log lies there too.
TEST_F(Discs, AFullTmpEitherStopsTheSetupBeforeItsScriptRunsOrEndsItsLog) {
    ExpectWell(hx_test::RunInChild(kRoot, [] {
        std::set<int> statuses;
        bool logEnded = false;
        for (int pages = 1; !statuses.contains(0) || logEnded; ++pages) {
            const SmallMachine machine("1m", std::to_string(pages * kPage) + "k");
            SCOPED_TRACE(std::to_string(pages) + " pages");
            const ProcessResult result = machine.Setup();
            statuses.insert(result.status);
            logEnded = result.err.find(
                           ".log ends here, it cannot be written to: No space left on "
                           "device\n") != std::string::npos;
            if (result.status == 0) {
                EXPECT_TRUE(fs::exists("/mnt/QueueLimits"));
                EXPECT_TRUE(logEnded || result.err.empty()) << result.err;
            } else {
                EXPECT_EQ(result.status, 5);
                ExpectHolds(result.err, kNoScript);
                EXPECT_TRUE(SmallMachine::Made().empty());
            }
            ASSERT_LT(pages, 100);
        }
        EXPECT_EQ(statuses, (std::set<int>{0, 5}));
    }));
}

TEST_F(Discs, AReadOnlyTmpLeavesNothingChanged) {
    ExpectWell(hx_test::RunInChild(kRoot, [] {
        const SmallMachine machine("1m", "1m");
        SmallMachine::CloseForWriting("/tmp");
        const ProcessResult result = machine.Setup();
        EXPECT_EQ(result.status, 5);
        ExpectHolds(result.err, "there will be no log, /tmp/corvane26_setup_");
        ExpectHolds(result.err, "Writing Commit Script: mkstemp failed, Read-only file system\n" +
                                    std::string(kNoScript));
        EXPECT_TRUE(SmallMachine::Made().empty());
    }));
}

TEST_F(Discs, ATmpOfAnotherUserLeavesNothingChanged) {
    ExpectWell(hx_test::RunInChild(kRoot, [] {
        const SmallMachine machine("1m", "1m");
        EXPECT_EQ(chmod("/tmp", 0555), 0);
        const ProcessResult result = machine.Setup();
        EXPECT_EQ(result.status, 5);
        ExpectHolds(result.err, "mkstemp failed, Permission denied\n" + std::string(kNoScript));
        EXPECT_TRUE(SmallMachine::Made().empty());
    }));
}

// A root directory without /tmp.
void EnterRootWithoutTmp() {
    const std::string root = "/media";
    ASSERT_EQ(mount("tmpfs", root.c_str(), "tmpfs", 0, "size=1m"), 0);
    for (const auto& entry : fs::directory_iterator("/")) {
        const fs::path inside = root / entry.path().filename();
        if (entry.path() == "/tmp" || entry.path() == root)
            continue;
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), inside);
        } else if (entry.is_directory()) {
            fs::create_directory(inside);
            ASSERT_EQ(
                mount(entry.path().c_str(), inside.c_str(), nullptr, MS_BIND | MS_REC, nullptr), 0);
        }
    }
    // Not chroot, within which no user namespace could be made for the ordinary user.
    const std::string former = root + "/former";
    fs::create_directory(former);
    ASSERT_EQ(syscall(SYS_pivot_root, root.c_str(), former.c_str()), 0);
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(Discs, AMissingTmpLeavesNothingChanged) {
    ExpectWell(hx_test::RunInChild(kRoot, [] {
        const SmallMachine machine("1m", "1m");
        EnterRootWithoutTmp();
        const ProcessResult result = machine.Setup();
        EXPECT_EQ(result.status, 5) << result.err;
        ExpectHolds(result.err, "The scratch directory \"/tmp\" cannot be found");
        ExpectHolds(result.err,
                    "mkstemp failed, No such file or directory\n" + std::string(kNoScript));
        EXPECT_TRUE(SmallMachine::Made().empty());
    }));
}

TEST_F(Discs, AReadOnlyInstallDirectoryEndsTheSetupBeforeItsFirstFile) {
    ExpectWell(hx_test::RunInChild(kRoot, [] {
        const SmallMachine machine("1m", "1m");
        SmallMachine::CloseForWriting(SmallMachine::InstallDirectory);
        const ProcessResult result = machine.Setup();
        EXPECT_EQ(result.status, 8);
        ExpectHolds(result.err, "cv_install: \"/mnt\" may not be written to, ");
        EXPECT_TRUE(SmallMachine::Made().empty());
    }));
}

// Bash waits and tries again when the limit of processes is reached, but not without memory.
TEST_F(Discs, AScriptThatGetsNoMoreProcessesIsTold) {
    if (hx_test::Run({"strace", "-o", "/dev/null", "true"}).status != 0)
        GTEST_SKIP() << "strace cannot trace here";
    ExpectWell(hx_test::RunInChild(kRoot, [] {
        // The count is that of each process: cv_install itself starts one.
        for (const char* when : {"2+", "9+", "25+"}) {
            const SmallMachine machine("1m", "1m");
            const ProcessResult result =
                machine.SetupBehind({"strace", "-f", "-o", "/dev/null", "--trace=clone",
                                     std::string("--inject=clone:error=ENOMEM:when=") + when});
            EXPECT_EQ(result.status, 254) << when << result.out << result.err;
            ExpectHolds(result.err, "fork: Cannot allocate memory\n");
            ExpectHolds(result.err, " failed with status 254, its message stands above\n");
            EXPECT_FALSE(fs::exists("/mnt/QueueLimits"));
        }
    }));
}

}  // namespace
