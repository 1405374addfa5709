// Setups as root in a chroot that is no mount point, below a shared mount. A private view of the
// machine is impossible there, and a mount would appear outside.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

#include <filesystem>

#include "apps/RootSetup.h"
#include "apps/SetupMachine.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

namespace fs = std::filesystem;
using namespace hx_test;

const std::string plainRoot = "/srv/outer/root";

// An overlay with a directory whose entries represent those of the throwaway root, so that nothing
// has to be copied.
void MakePlainRoot() {
    ASSERT_EQ(mount("tmpfs", "/srv", "tmpfs", 0, nullptr), 0);
    fs::create_directories("/srv/upper/root");
    for (const std::string name : {"usr", "etc", "var", "opt"}) {
        const std::string target = "/" + name;
        const std::string path = "/srv/upper/root" + target;
        fs::create_directory(path);
        ASSERT_EQ(
            setxattr(path.c_str(), "trusted.overlay.redirect", target.c_str(), target.size(), 0),
            0);
    }
    for (const std::string name : {"bin", "lib", "lib64", "sbin"})
        fs::create_symlink("usr/" + name, "/srv/upper/root/" + name);
    for (const char* name : {"proc", "dev", "sys", "run", "root", "home", "tmp"})
        fs::create_directory(std::string("/srv/upper/root/") + name);
    for (const char* path : {"/srv/work", "/srv/outer"})
        fs::create_directory(path);
    ASSERT_EQ(mount("overlay", "/srv/outer", "overlay", 0,
                    "redirect_dir=on,lowerdir=/,upperdir=/srv/upper,workdir=/srv/work"),
              0);
    ASSERT_EQ(mount(nullptr, "/srv/outer", nullptr, MS_SHARED, nullptr), 0);
    ASSERT_EQ(mount("proc", (plainRoot + "/proc").c_str(), "proc", 0, nullptr), 0);
    ASSERT_EQ(mknod((plainRoot + "/dev/null").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    fs::permissions(plainRoot + "/dev/null", fs::perms(0666));
    fs::permissions(plainRoot + "/tmp", fs::perms(01777));
}

ProcessResult RunInPlainRoot(const std::string& command) {
    return Run(
        {"chroot", plainRoot, "/bin/sh", "-c", "export LSAN_OPTIONS=detect_leaks=0; " + command});
}

const std::string setupInRoot = "/opt/corvane26/cv_install --setup --yes";

struct Risk {
    const char* name;
    const char* commands;
};

const Risk risks[] = {
    {"Member", "usermod --append --groups corvsrvc ann"},
    {"FileOfOther", "touch /var/corvane/file; chown bob /var/corvane/file"},
    {"WritableDirectory", "mkdir /var/corvane/open; chmod 777 /var/corvane/open"},
    {"ProcessOfAccount",
     "setpriv --reuid=corvsrvc --regid=corvsrvc --clear-groups sleep 60 > /dev/null 2>&1 &"},
};

TEST(PlainChroot, IsSetUpInPlaceWithoutMounts) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell("useradd ann; useradd bob");
        MakePlainRoot();
        const std::string mounts = ReadFile("/proc/self/mountinfo");
        EXPECT_NE(mounts.find("/srv/outer rw,relatime shared:"), std::string::npos) << mounts;

        const auto first = RunInPlainRoot(setupInRoot);
        EXPECT_EQ(first.status, 0) << first.out << first.err;
        ExpectHolds(first.err, "cv_install: warning: cannot prepare the setup in private: ");
        EXPECT_TRUE(fs::exists(plainRoot + "/var/corvane/corvane26"));
        EXPECT_FALSE(fs::exists("/var/corvane"));
        EXPECT_EQ(ReadFile("/proc/self/mountinfo"), mounts);

        for (const char* option : {" --dry-run", " --if-needed"}) {
            const auto dry = RunInPlainRoot(setupInRoot + option);
            EXPECT_EQ(dry.status, 67) << dry.out;
            ExpectHolds(dry.err, "cv_install: cannot find out what a setup would change: ");
        }
        EXPECT_EQ(ReadFile("/proc/self/mountinfo"), mounts);
    });
}

TEST(PlainChroot, IsRefusedWhenOthersCanWrite) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const Risk& risk : risks) {
        SCOPED_TRACE(risk.name);
        HX_EXPECT_SCENARIO([&] {
            LayOutRootSetup();
            Shell("useradd ann; useradd bob");
            MakePlainRoot();
            EXPECT_EQ(RunInPlainRoot(setupInRoot).status, 0);
            RunInPlainRoot(risk.commands);
            const std::string mounts = ReadFile("/proc/self/mountinfo");
            const std::string list =
                "find /srv/outer/root/etc /srv/outer/root/var/corvane -printf '%p %m %u %g %T@ %C@ "
                "%l\\n' | sort";
            const std::string before = Shell(list);
            const auto refused = RunInPlainRoot(setupInRoot);
            EXPECT_EQ(refused.status, 8) << refused.out << refused.err;
            EXPECT_EQ(Shell(list), before);
            EXPECT_EQ(ReadFile("/proc/self/mountinfo"), mounts);
        });
    }
}

}  // namespace
