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

std::string CannotWriteTo(const std::string& path) {
    return "cv_install: cannot write to directory \"" + path +
           "\": Read-only file system\n    Remount its file system as writable, then run the setup "
           "again.\n";
}

const std::string cannotLock = CannotLock("/run/corvane26_setup.lock", "Read-only file system");
const ReadOnlyDirectory readOnlyInPlace[] = {
    {"/etc", 65, "", CannotWriteTo("/etc")},
    {"/usr/bin", 65, "", CannotWriteTo("/usr/bin") + changedNothing},
    {"/etc/systemd/system", 65, "", CannotWriteTo("/etc/systemd/system")},
    {"/var", 65, "", CannotWriteTo("/var")},
    {"/run", 2, "", cannotLock},
    {"/tmp", 5, "", noScript},
    {"/var/log", 0, "Corvane'26 Installation script completed successfully!\n",
     CannotOpenLog("/var/log/corvane26_setup.log")},
};

// Those with which the setup completes come last.
const ReadOnlyDirectory readOnlyStaged[] = {
    {"/etc", 65, "", CannotWriteTo("/etc")},
    {"/usr/bin", 65, "", CannotWriteTo("/usr/bin") + changedNothing},
    {"/etc/systemd/system", 65, "", CannotWriteTo("/etc/systemd/system")},
    {"/run", 2, "", cannotLock},
    {"/var", 65, "", CannotWriteTo("/var")},
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

// Lets the disk of the install directory fill up when the commit script first calls sed.
void FillDiskDuringScript(int kilobytesLeft) {
    constexpr int size = 1024;
    std::filesystem::create_directories("/srv/disk");
    const std::string options = "mode=775,size=" + std::to_string(size) + "k";
    ASSERT_EQ(mount("tmpfs", "/srv/disk", "tmpfs", 0, options.c_str()), 0);
    ASSERT_EQ(mount("/srv/disk", "/var/corvane", nullptr, MS_BIND, nullptr), 0);
    if (!std::filesystem::exists("/usr/bin/sed.real"))
        std::filesystem::rename("/usr/bin/sed", "/usr/bin/sed.real");
    std::filesystem::remove("/usr/bin/sed");
    hx_test::WriteFile("/usr/bin/sed", "#!/bin/sh\n[ -e /srv/disk/filler ] || head -c " +
                                           std::to_string(size - kilobytesLeft) +
                                           "k /dev/zero > /srv/disk/filler\n"
                                           "exec /usr/bin/sed.real \"$@\"\n");
    std::filesystem::permissions("/usr/bin/sed", std::filesystem::perms(0755));
}

// The disk grows until everything fits.
void ExpectStatusesOfFullDisk(RootMode mode, const std::set<int>& expected) {
    const int step = hx_test::TriesEveryFault() ? 4 : 16;
    std::set<int> statuses;
    for (int kilobytes = 4; !statuses.contains(0); kilobytes += step) {
        LayOutRootSetup();
        std::filesystem::create_directory("/var/corvane");
        FillDiskDuringScript(kilobytes);
        const std::string before = StateOfMachine();
        const auto result = RunRootSetup({"--yes"}, {}, mode);
        std::filesystem::remove("/srv/disk/filler");
        EXPECT_EQ(result.status == 0, result.out.find("Next step") != std::string::npos);
        if (mode == RootMode::Staged && result.status != 0) {
            ExpectHolds(result.err, ": No space left on device\n");
            ExpectHolds(result.err, changedNothing);
            EXPECT_EQ(StateOfMachine(), before);
        }
        statuses.insert(result.status);
        Unmount("/var/corvane");
        Unmount("/srv/disk");
        ASSERT_LT(kilobytes, 400);
    }
    EXPECT_EQ(statuses, expected);
}

TEST(RootFaults, ReportsFullInstallDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        ExpectStatusesOfFullDisk(RootMode::Staged, {0, 2});
        ExpectStatusesOfFullDisk(RootMode::InPlace, {0, 1});
        // A disk that is full before.
        LayOutRootSetup();
        std::filesystem::create_directory("/var/corvane");
        ASSERT_EQ(mount("tmpfs", "/var/corvane", "tmpfs", 0, "mode=775,size=16k"), 0);
        for (const char* option : {"--setup", "--dry-run", "--if-needed"}) {
            const auto result = RunRootSetup({"--yes", option});
            EXPECT_EQ(result.status, 65) << option;
            ExpectHolds(result.err, "not enough space in directory \"/var/corvane\": ");
        }
    });
}

}  // namespace
