// Setups by root on a machine whose directories cannot be written to, or hold no more.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <set>

#include "apps/RootSetup.h"
#include "harness/Expect.h"
#include "machine/ThrowawayRoot.h"

namespace {

using hx_test::ExpectHolds;

void MakeReadOnly(const char* directory) {
    ASSERT_EQ(mount(directory, directory, nullptr, MS_BIND, nullptr), 0) << directory;
    ASSERT_EQ(mount(nullptr, directory, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
}

// In each scenario the bind mount lies on top, and is taken away with MakeWritable.
void MakeWritable(const char* directory) {
    ASSERT_EQ(umount2(directory, MNT_DETACH), 0) << directory;
}

hx_test::ProcessResult RunWithReadOnly(const char* directory) {
    LayOutRootSetup();
    MakeReadOnly(directory);
    const auto result = RunRootSetup({"--yes"});
    MakeWritable(directory);
    return result;
}

void ExpectFurtherSetupCompletes() {
    const auto result = RunRootSetup({"--yes"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

struct ReadOnlyDirectory {
    const char* directory;
    int status;
    const char* out;  // a part
    const char* err;  // a part
};

const ReadOnlyDirectory kReadOnly[] = {
    {"/etc", 1, "Error, unable to create Corvane service group.\n",
     " failed with status 1, its message stands above\n"},
    {"/usr/bin", 1, "Error, creating /usr/bin/corvane26 symbolic link\n",
     " failed with status 1, its message stands above\n"},
    // The script tells it and goes on to its end.
    {"/etc/systemd/system", 10, "Error, updating Corvane Compute Servive systemd script\n",
     "cv_install: \"/etc/systemd/system/corvane26_service.service\" is not complete, or cannot be "
     "read\n"},
    {"/tmp", 5, "", "the commit script could not be written, nothing has been changed\n"},
    {"/var/log", 0, "Corvane'26 Installation script completed successfully!\n",
     "there will be no log, /var/log/corvane26_setup.log cannot be opened: Read-only file "
     "system\n"},
};

TEST(RootFaults, AReadOnlyDirectoryIsToldAndAFurtherSetupCompletes) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        for (const ReadOnlyDirectory& expected : kReadOnly) {
            SCOPED_TRACE(expected.directory);
            const auto result = RunWithReadOnly(expected.directory);
            EXPECT_EQ(result.status, expected.status) << result.out << result.err;
            ExpectHolds(result.out, expected.out);
            ExpectHolds(result.err, expected.err);
            ExpectFurtherSetupCompletes();
        }
    });
}

// The install directory is made first.
TEST(RootFaults, AReadOnlyVarEndsTheSetupBeforeItsScript) {
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

TEST(RootFaults, AFullLogIsToldAndEnds) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        ASSERT_EQ(mount("tmpfs", "/var/log", "tmpfs", 0, "size=4k"), 0);
        const auto result = RunRootSetup({"--yes"});
        EXPECT_EQ(result.status, 0) << result.err;
        ExpectHolds(result.err,
                    "cv_install: the log /var/log/corvane26_setup.log ends here, it cannot be "
                    "written to: No space left on device\n");
    });
}

// The disc grows until it holds everything.
TEST(RootFaults, AFullInstallDirectoryNeverEndsWell) {
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
            MakeWritable("/var/corvane");
            ASSERT_LT(kilobytes, 400);
        }
        EXPECT_EQ(statuses, (std::set<int>{0, 1, 2}));
    });
}

}  // namespace
