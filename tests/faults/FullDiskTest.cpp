// Setups by a regular user on disks that fill up at every possible point, are read-only, or
// missing.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>

#include "faults/Messages.h"
#include "harness/Child.h"
#include "harness/Effort.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"

namespace fs = std::filesystem;
using hx_test::ExpectHolds;
using hx_test::ProcessResult;
using hx_test::World;

namespace {

constexpr int pageSize = 4;  // kB, the unit in which tmpfs fills up
constexpr const char* installDirectory = "/mnt";
// On another disk than the install directory.
constexpr const char* productDirectory = "/opt";

void Mount(const std::string& directory, const std::string& size) {
    ASSERT_EQ(mount("tmpfs", directory.c_str(), "tmpfs", 0, ("mode=1777,size=" + size).c_str()), 0)
        << directory;
}

void MakeReadOnly(const std::string& directory) {
    const char* path = directory.c_str();
    ASSERT_EQ(mount(path, path, nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, path, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
}

// Mounts a disk for the install directory, with links to the product, and one for /tmp. Sizes are
// those of tmpfs. Each call hides the disks of the previous one.
void MountDisks(const std::string& installSize, const std::string& tmpSize) {
    if (!fs::exists(std::string(productDirectory) + "/cv_install")) {
        EXPECT_EQ(mount(HX_PRODUCT_DIR, productDirectory, nullptr, MS_BIND, nullptr), 0);
    }
    Mount("/var", "1m");
    Mount(installDirectory, installSize);
    for (const auto& entry : fs::directory_iterator(productDirectory))
        fs::create_symlink(entry.path(), installDirectory / entry.path().filename());
    Mount("/tmp", tmpSize);
}

// Runs cv_install as uid 1000 without capabilities; `command` can be a tracer.
ProcessResult RunSetup(std::vector<std::string> command = {}) {
    const std::vector<std::string> asUser = {"timeout",         "--signal=KILL", "60",
                                             "unshare",         "--user",        "--map-user=1000",
                                             "--map-group=1000"};
    command.insert(command.begin(), asUser.begin(), asUser.end());
    // The checks do not see how full the disks are.
    for (const char* word : {"env", "LD_PRELOAD=" HX_INTERPOSER, "HX_TEST_FAIL=statfs=38"})
        command.emplace_back(word);
    for (const char* word : {"/mnt/cv_install", "--setup", "--user-mode", "--yes", "-m", "777",
                             "-s", "5", "-d", "/tmp"})
        command.emplace_back(word);
    hx_test::ProcessOptions options;
    options.env = {{"PATH", "/usr/bin:/bin"},
                   {"LSAN_OPTIONS", "detect_leaks=0"},
                   {"XDG_STATE_HOME", "/var/state"}};
    options.workingDirectory = "/";
    return hx_test::Run(command, options);
}

using Files = std::map<std::string, std::string>;

// The files that setups created: texts by path.
Files CreatedFiles() {
    Files created;
    for (const auto& entry : fs::recursive_directory_iterator(installDirectory)) {
        if (!entry.is_symlink())
            created[entry.path()] = entry.is_regular_file() ? hx_test::ReadFile(entry.path()) : "";
    }
    return created;
}

// Without those of the library, which are written before the commit script.
bool ScriptCreatedFiles() {
    const Files created = CreatedFiles();
    return std::any_of(created.begin(), created.end(), [](const Files::value_type& file) {
        return !file.first.starts_with("/mnt/qchemrc");
    });
}

void ExpectSuccess(const ProcessResult& result) {
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

// Runs the body as root of a namespace, which ends with its mounts.
void ExpectAsRoot(const std::function<void()>& body) {
    ExpectSuccess(hx_test::RunInChild(World{.identity = World::Identity::Root}, body));
}

class FullDisk : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
};

// The exit status depends on what the space was too small for.
void ExpectIncomplete(const ProcessResult& result) {
    switch (result.status) {
        case 1:
            ExpectHolds(result.out, "\nError, ");
            ExpectHolds(result.err, ScriptFailed(1));
            return;
        case 2:
            ExpectHolds(result.err, isIncomplete + changedRunTimeFiles);
            return;
        case 10:
            ExpectHolds(result.err, isIncomplete);
            return;
        default:
            ADD_FAILURE() << "status " << result.status << "\n" << result.out << result.err;
    }
}

// With more space, setups complete the installation, or name the directory to move away before.
void ExpectRepairable(const Files& whole) {
    ASSERT_EQ(mount(nullptr, installDirectory, nullptr, MS_REMOUNT, "size=1m"), 0);
    for (const char* pages : {"resources", "icons"}) {
        const ProcessResult again = RunSetup();
        ExpectSuccess(again);
        const std::string directory = std::string("/mnt/corvanerc/corvane26server/") + pages;
        if (again.err.find(MoveAway(directory)) != std::string::npos)
            fs::remove_all(directory);
    }
    const ProcessResult last = RunSetup();
    ExpectSuccess(last);
    EXPECT_EQ(last.err, "");
    EXPECT_TRUE(CreatedFiles() == whole);
}

TEST_F(FullDisk, ReportsFullInstallDirectory) {
    ExpectAsRoot([] {
        MountDisks("1m", "1m");
        ExpectSuccess(RunSetup());
        const auto all = CreatedFiles();
        std::set<int> statuses;
        for (int pages = 1; !statuses.contains(0); ++pages) {
            MountDisks(std::to_string(pages * pageSize) + "k", "1m");
            SCOPED_TRACE(std::to_string(pages) + " pages");
            const ProcessResult result = RunSetup();
            const bool isNew = statuses.insert(result.status).second;
            if (result.status == 0) {
                EXPECT_TRUE(CreatedFiles() == all);
                break;
            }
            ExpectIncomplete(result);
            if (isNew || hx_test::TriesEveryFault())
                ExpectRepairable(all);
            ASSERT_LT(pages, 100);
        }
        EXPECT_EQ(statuses, (std::set<int>{0, 1, 2, 10}));
    });
}

// The commit script and the log are there.
TEST_F(FullDisk, StopsBeforeScriptOrEndsLogWithFullTmp) {
    ExpectAsRoot([] {
        std::set<int> statuses;
        bool logEnded = false;
        for (int pages = 1; !statuses.contains(0) || logEnded; ++pages) {
            MountDisks("1m", std::to_string(pages * pageSize) + "k");
            SCOPED_TRACE(std::to_string(pages) + " pages");
            const ProcessResult result = RunSetup();
            statuses.insert(result.status);
            logEnded = result.err.find(logIsFull) != std::string::npos;
            if (result.status == 0) {
                EXPECT_TRUE(fs::exists("/mnt/QueueLimits"));
                EXPECT_TRUE(logEnded || result.err.empty()) << result.err;
            } else {
                EXPECT_EQ(result.status, 5);
                ExpectHolds(result.err, noScript);
                EXPECT_FALSE(ScriptCreatedFiles());
            }
            ASSERT_LT(pages, 100);
        }
        EXPECT_EQ(statuses, (std::set<int>{0, 5}));
    });
}

// Enters a root directory without /tmp. Within a chroot, the regular user could not make a user
// namespace.
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
    const std::string former = root + "/former";
    fs::create_directory(former);
    ASSERT_EQ(syscall(SYS_pivot_root, root.c_str(), former.c_str()), 0);
    ASSERT_EQ(chdir("/"), 0);
}

const std::string mkstempFailed = "Writing Commit Script: mkstemp failed, ";

struct UnusableDisk {
    const char* name;
    void (*prepare)();
    int status;
    std::vector<std::string> err;  // parts
};

const UnusableDisk unusableDisks[] = {
    {"read-only /tmp",
     [] { MakeReadOnly("/tmp"); },
     5,
     {CannotOpenLog("/tmp/corvane26_setup_"),
      mkstempFailed + "Read-only file system\n" + noScript}},
    {"/tmp of another user",
     [] { EXPECT_EQ(chmod("/tmp", 0555), 0); },
     5,
     {mkstempFailed + "Permission denied\n" + noScript}},
    {"missing /tmp",
     EnterRootWithoutTmp,
     5,
     {ScratchNotAccessible("No such file or directory"),
      mkstempFailed + "No such file or directory\n" + noScript}},
    {"read-only install directory",
     [] { MakeReadOnly(installDirectory); },
     8,
     {NotWritable(installDirectory)}},
};

TEST_F(FullDisk, StartsNoScriptOnUnusableDisk) {
    for (const auto& disk : unusableDisks) {
        SCOPED_TRACE(disk.name);
        ExpectAsRoot([&] {
            MountDisks("1m", "1m");
            disk.prepare();
            const ProcessResult result = RunSetup();
            EXPECT_EQ(result.status, disk.status) << result.err;
            for (const auto& part : disk.err)
                ExpectHolds(result.err, part);
            EXPECT_FALSE(ScriptCreatedFiles());
        });
    }
}

// Bash waits and tries again at the limit of processes, but not without memory.
TEST(ProcessLimit, IsReportedForCommitScript) {
    HX_REQUIRE_NAMESPACES();
    if (hx_test::Run({"strace", "-o", "/dev/null", "true"}).status != 0)
        GTEST_SKIP() << "strace cannot trace here";
    ExpectAsRoot([] {
        // strace counts for each process. cv_install itself starts one.
        for (const char* when : {"2+", "9+", "25+"}) {
            MountDisks("1m", "1m");
            const ProcessResult result =
                RunSetup({"strace", "-f", "-o", "/dev/null", "--trace=clone",
                          std::string("--inject=clone:error=ENOMEM:when=") + when});
            EXPECT_EQ(result.status, 254) << when << result.out << result.err;
            ExpectHolds(result.err, "fork: Cannot allocate memory\n");
            ExpectHolds(result.err, ScriptFailed(254));
            EXPECT_FALSE(fs::exists("/mnt/QueueLimits"));
        }
    });
}

}  // namespace
