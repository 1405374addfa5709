// Setups as root with read-only or full directories.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <set>

#include "apps/RootSetup.h"
#include "faults/Messages.h"
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

hx_test::ProcessResult RunWithReadOnly(const char* directory) {
    LayOutRootSetup();
    MountReadOnly(directory);
    const auto result = RunRootSetup({"--yes"});
    Unmount(directory);
    return result;
}

void ExpectNextSetupCompletes() {
    const auto result = RunRootSetup({"--yes"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

struct ReadOnlyDirectory {
    const char* directory;
    int status;
    const char* out;  // a part
    std::string err;  // a part
};

const ReadOnlyDirectory readOnlyDirectories[] = {
    {"/etc", 1, "Error, unable to create Corvane service group.\n", ScriptFailed(1)},
    {"/usr/bin", 1, "Error, creating /usr/bin/corvane26 symbolic link\n", ScriptFailed(1)},
    // The script reports it and continues.
    {"/etc/systemd/system", 10, "Error, updating Corvane Compute Servive systemd script\n",
     "cv_install: \"/etc/systemd/system/corvane26_service.service" + isIncomplete},
    {"/run", 2, "", CannotLock("/run/corvane26_setup.lock", "Read-only file system")},
    {"/tmp", 5, "", noScript},
    {"/var/log", 0, "Corvane'26 Installation script completed successfully!\n",
     CannotOpenLog("/var/log/corvane26_setup.log")},
};

TEST(RootFaults, CompletesAfterReadOnlyDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        for (const ReadOnlyDirectory& expected : readOnlyDirectories) {
            SCOPED_TRACE(expected.directory);
            const auto result = RunWithReadOnly(expected.directory);
            EXPECT_EQ(result.status, expected.status) << result.out << result.err;
            ExpectHolds(result.out, expected.out);
            ExpectHolds(result.err, expected.err);
            ExpectNextSetupCompletes();
        }
    });
}

// The install directory is created before the script runs.
TEST(RootFaults, StopsBeforeScriptWithReadOnlyVar) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const auto result = RunWithReadOnly("/var");
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
TEST(RootFaults, ReportsFullInstallDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        std::set<int> statuses;
        for (int kilobytes = 4; !statuses.contains(0); kilobytes += 4) {
            LayOutRootSetup();
            std::filesystem::create_directory("/var/corvane");
            const std::string options = "mode=775,size=" + std::to_string(kilobytes) + "k";
            ASSERT_EQ(mount("tmpfs", "/var/corvane", "tmpfs", 0, options.c_str()), 0);
            const auto result = RunRootSetup({"--yes"});
            EXPECT_EQ(result.status == 0, result.err.find("cv_install: ") == std::string::npos)
                << result.err;
            statuses.insert(result.status);
            Unmount("/var/corvane");
            ASSERT_LT(kilobytes, 400);
        }
        EXPECT_EQ(statuses, (std::set<int>{0, 1, 2}));
    });
}

}  // namespace
