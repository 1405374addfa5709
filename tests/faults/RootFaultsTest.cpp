// Setups as root with read-only or full directories.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <set>

#include "apps/RootSetup.h"
#include "faults/Messages.h"
#include "harness/Effort.h"
#include "harness/Expect.h"
#include "machine/ThrowawayRoot.h"

namespace {

using hx_test::ExpectHolds;

void MountReadOnly(const char* directory) {
    ASSERT_EQ(mount(directory, directory, nullptr, MS_BIND, nullptr), 0) << directory;
    ASSERT_EQ(mount(nullptr, directory, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
}

// Removes the topmost mount.
void Unmount(const char* directory) {
    ASSERT_EQ(umount2(directory, MNT_DETACH), 0) << directory;
}

struct ReadOnlyDirectory {
    const char* directory;
    int status;
    const char* out;  // a part
    std::string err;  // a part
};

hx_test::ProcessResult RunWithReadOnly(const char* directory, RootMode mode) {
    MountReadOnly(directory);
    const auto result = RunRootSetup({"--yes"}, {}, mode);
    Unmount(directory);
    return result;
}

std::string CannotPlace(const std::string& path) {
    return "cv_install: cannot place \"" + path +
           "\": Read-only file system\n    Make sure that its file system is writable and not "
           "full, then run the setup again.\n" +
           changedNothing;
}

const std::string cannotLock = CannotLock("/run/corvane26_setup.lock", "Read-only file system");
const std::string incompleteUnit =
    "cv_install: \"/etc/systemd/system/corvane26_service.service" + isIncomplete;

const ReadOnlyDirectory readOnlyInPlace[] = {
    {"/etc", 1, "Error, unable to create Corvane service group.\n", ScriptFailed(1)},
    {"/usr/bin", 1, "Error, creating /usr/bin/corvane26 symbolic link\n", ScriptFailed(1)},
    // The script reports it and continues.
    {"/etc/systemd/system", 10, "Error, updating Corvane Compute Servive systemd script\n",
     incompleteUnit},
    {"/run", 2, "", cannotLock},
    {"/tmp", 5, "", noScript},
    {"/var/log", 0, "Corvane'26 Installation script completed successfully!\n",
     CannotOpenLog("/var/log/corvane26_setup.log")},
};

// Those with which the setup completes come last.
const ReadOnlyDirectory readOnlyStaged[] = {
    {"/etc", 2, "", "cv_install: cannot create group \"corvsrvc\""},
    {"/usr/bin", 2, "", CannotPlace("/usr/bin")},
    {"/etc/systemd/system", 10, "", incompleteUnit + changedNothing},
    {"/run", 2, "", cannotLock},
    {"/var", 2, "", CannotPlace("/var")},
    // The private /tmp is writable.
    {"/tmp", 0, "  Next step: ", scratchNotWritable},
    {"/var/log", 0, "  Next step: ", CannotOpenLog("/var/log/corvane26_setup.log")},
};

// What a failed setup must leave as it is.
std::string StateOfMachine() {
    return Shell(
        "cat /etc/passwd /etc/group /etc/shadow; ls -A /etc /etc/systemd/system /usr/bin /var; "
        "ls /var/corvane");
}

void ExpectWithReadOnly(const ReadOnlyDirectory& expected, RootMode mode) {
    const auto result = RunWithReadOnly(expected.directory, mode);
    EXPECT_EQ(result.status, expected.status) << result.out << result.err;
    ExpectHolds(result.out, expected.out);
    ExpectHolds(result.err, expected.err);
}

TEST(RootFaults, CompletesInPlaceAfterReadOnlyDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        for (const ReadOnlyDirectory& expected : readOnlyInPlace) {
            SCOPED_TRACE(expected.directory);
            LayOutRootSetup();
            ExpectWithReadOnly(expected, RootMode::InPlace);
            const auto next = RunRootSetup({"--yes"}, {}, RootMode::InPlace);
            EXPECT_EQ(next.status, 0) << next.out << next.err;
        }
    });
}

// The machine is the same for each setup until one completes.
TEST(RootFaults, ChangesNothingWithReadOnlyDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const std::string before = StateOfMachine();
        for (const ReadOnlyDirectory& expected : readOnlyStaged) {
            SCOPED_TRACE(expected.directory);
            ExpectWithReadOnly(expected, RootMode::Staged);
            if (expected.status != 0) {
                EXPECT_EQ(StateOfMachine(), before);
            }
        }
    });
}

// The install directory is created before the script runs.
TEST(RootFaults, StopsBeforeScriptWithReadOnlyVarInPlace) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const auto result = RunWithReadOnly("/var", RootMode::InPlace);
        EXPECT_EQ(result.status, 2);
        ExpectHolds(result.err,
                    "Corvane Install: Error\n    Unable to mkdir \"/var/corvane\"\n"
                    "    Read-only file system\n");
        EXPECT_EQ(Shell("getent passwd corvsrvc"), "");
    });
}

TEST(RootFaults, CompletesWithFullLog) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        ASSERT_EQ(mount("tmpfs", "/var/log", "tmpfs", 0, "size=4k"), 0);
        const auto result = RunRootSetup({"--yes"});
        EXPECT_EQ(result.status, 0) << result.err;
        ExpectHolds(result.err, "/var/log/corvane26_setup" + logIsFull);
    });
}

// The disk grows until everything fits.
void ExpectStatusesOfFullDisk(RootMode mode, const std::set<int>& expected) {
    const int step = hx_test::TriesEveryFault() ? 4 : 16;
    std::set<int> statuses;
    for (int kilobytes = 4; !statuses.contains(0); kilobytes += step) {
        LayOutRootSetup();
        std::filesystem::create_directory("/var/corvane");
        const std::string options = "mode=775,size=" + std::to_string(kilobytes) + "k";
        ASSERT_EQ(mount("tmpfs", "/var/corvane", "tmpfs", 0, options.c_str()), 0);
        const std::string before = StateOfMachine();
        const auto result = RunRootSetup({"--yes"}, {}, mode);
        EXPECT_EQ(result.status == 0, result.out.find("Next step") != std::string::npos);
        if (mode == RootMode::Staged && result.status != 0) {
            ExpectHolds(result.err, ": No space left on device\n");
            ExpectHolds(result.err, changedNothing);
            EXPECT_EQ(StateOfMachine(), before);
        }
        statuses.insert(result.status);
        Unmount("/var/corvane");
        ASSERT_LT(kilobytes, 400);
    }
    EXPECT_EQ(statuses, expected);
}

TEST(RootFaults, ReportsFullInstallDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        ExpectStatusesOfFullDisk(RootMode::Staged, {0, 2});
        ExpectStatusesOfFullDisk(RootMode::InPlace, {0, 1, 2});
    });
}

}  // namespace
