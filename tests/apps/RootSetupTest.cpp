// Setups as root: plan, confirmation, titles, log and summary.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "apps/Leaks.h"
#include "apps/RootSetup.h"
#include "apps/UserSetup.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"
#include "harness/Terminal.h"
#include "machine/ThrowawayRoot.h"

namespace {

using hx_test::ExpectHolds;

// Job limit; memory and pause; directory and pause; scratch limit and pause; queue and pause;
// members and pause.
const std::string memberAnswers = "2\n600\n\n/tmp\n\n3\n\n1\n\nann,bob\n\n";

void ExpectParts(const std::string& text, const std::vector<const char*>& parts) {
    for (const char* part : parts)
        ExpectHolds(text, part);
}

// Runs cv_install on a terminal of the throwaway root.
std::string ShownOnTerminal() {
    Shell("mount -t devpts -o newinstance,ptmxmode=0666 devpts /dev/pts");
    hx_test::Terminal terminal(hx_test::Terminal::Mode::Bytes, [] {
        setenv("LSAN_OPTIONS", LeakOptions(HX_LEAK_SUPPRESSIONS).c_str(), 1);
        const char* program = "/opt/corvane26/cv_install";
        execl(program, program, "--setup", "--yes", nullptr);
    });
    EXPECT_EQ(terminal.Finish(), 0) << terminal.Output();
    return terminal.Output();
}

TEST(RootSetup, ShowsPlanTitlesAndSummaryOfFirstSetup) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        hx_test::WriteFile("/usr/bin/systemctl",
                           "#!/bin/sh\n[ \"$1\" = is-active ] && echo failed\n");
        const std::string out = ShownOnTerminal();
        ExpectParts(out,
                    {"The setup will make these changes:\n", "  Group      corvsrvc: create\n",
                     "  User       corvsrvc: create without a login shell\n",
                     "  Members    added: none\n  Members    removed: none\n",
                     "  Directory  /var/corvane: create (mode 775)\n",
                     "  Link       /usr/bin/corvane26: create\n",
                     "  Service    corvane26_service.service: install, enable, and start\n",
                     "  Installed: /var/corvane\n  Service:   failed\n             For details, "
                     "run: journalctl --unit=corvane26_service.service\n"
                     "  Log:       /var/log/corvane26_setup.log\n"
                     "  Next step: start Corvane with corvane26\n"});
        EXPECT_EQ(hx_test::ReadFile("/var/log/corvane26_setup.log"), out);
        EXPECT_EQ(Shell("grep -A1 --no-group-separator '^==> ' /var/log/corvane26_setup.log | "
                        "cut -d' ' -f1-4"),
                  "==> Service account\nCorvane Service Group created\n"
                  "==> Directories\nCreated directory /var/corvane/corvanerc\n"
                  "==> Web pages\nresources/\n"
                  "==> Run script\nWrote Corvane'26 run script,\n"
                  "==> Snapshot script\nWrote Corvane'26 snapshot run\n"
                  "==> Compute service\nWrote Corvane'26 service script,");
    });
}

// "su" without "-" keeps the caller's environment.
TEST(RootSetup, RunsNoProgramsOfCallersEnvironment) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell(
            "mkdir /srv/bin; printf '#!/bin/sh\ntouch /pwned\n' > /srv/bin/stat; "
            "chmod 755 /srv/bin/stat; cp /srv/bin/stat /srv/bin/df; "
            "cp /srv/bin/stat /srv/bin/systemctl; echo touch /pwned > /srv/before");
        const std::string path = std::string("/srv/bin:") + getenv("PATH");
        setenv("PATH", path.c_str(), 1);
        setenv("BASH_ENV", "/srv/before", 1);
        setenv("BASH_FUNC_stat%%", "() { touch /pwned; }", 1);
        setenv("TAR_OPTIONS", "--no-such-option", 1);
        const auto result = RunRootSetup({"--yes"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_FALSE(std::filesystem::exists("/pwned"));
    });
}

TEST(RootSetup, ChangesNothingWithoutConfirmation) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell(
            "mount -t tmpfs -o mode=1777 tmpfs /tmp; useradd --create-home ann; useradd "
            "--create-home bob");
        const std::string state = "cat /etc/passwd /etc/group; ls /var; ls /tmp | grep commit";
        const std::string before = Shell(state);
        for (const std::string answer : {"n\n", "\n", ""}) {
            const auto result = RunRootSetup({}, memberAnswers + answer);
            EXPECT_EQ(result.status, 9) << result.err;
            ExpectHolds(result.out, "  Script     /tmp/corvane26_commit_");
            ExpectHolds(result.out, "Continue? [y/N] ");
            EXPECT_EQ(
                result.err,
                "cv_install: setup canceled: plan not confirmed\n    No changes were made.\n" +
                    logOfRoot);
            EXPECT_EQ(Shell(state), before);
        }
        // The commit script exists while the question is open, also when a signal ends it.
        const auto result = hx_test::Run(
            {"bash", "-c",
             "mkfifo /srv/in; rm /var/log/corvane26_setup.log; "
             "/opt/corvane26/cv_install --setup < /srv/in > /srv/out & exec 3> /srv/in; "
             "printf '2\\n600\\n\\n/tmp\\n\\n3\\n\\n1\\n\\n\\n\\n' >&3; "
             "until grep -qs 'Continue' /var/log/corvane26_setup.log; do sleep 0.05; done; "
             "ls /tmp/corvane26_commit_*; kill -TERM $!; wait $!; echo $?"},
            {.env = {{"LSAN_OPTIONS", "detect_leaks=0"}}});
        EXPECT_TRUE(result.out.starts_with("/tmp/corvane26_commit_")) << result.out << result.err;
        EXPECT_TRUE(result.out.ends_with("\n143\n")) << result.out;
        EXPECT_EQ(Shell(state), before);
    });
}

TEST(RootSetup, AppliesConfirmedPlanAndShowsPlanOfUpgrade) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell("useradd --create-home ann; useradd --create-home bob");
        const auto first = RunRootSetup({}, memberAnswers + "y\nleft over\n");
        ASSERT_EQ(first.status, 0) << first.out << first.err;
        EXPECT_EQ(Shell("getent group corvsrvc | cut -d: -f4"), "ann,bob");
        EXPECT_EQ(Shell("cat /var/corvane/QueueLimits"),
                  "MaxThreads: 2\nMemoryPerThreadMB: 600\nScratch: /tmp\nDiskPerThreadGB: 3");

        Shell("touch /etc/systemd/system/corvane24_service.service");
        Shell("ln -sf /opt/elsewhere /usr/bin/corvane26_snapshot");
        const auto upgrade = RunRootSetup({}, "2\n600\n\n/tmp\n\n3\n\n1\n\nbob,root\n\nn\n");
        EXPECT_EQ(upgrade.status, 9) << upgrade.err;
        ExpectParts(
            upgrade.out,
            {"  Group      corvsrvc: keep (exists)\n", "  User       corvsrvc: keep (exists)\n",
             "  Members    added: root\n  Members    removed: ann\n",
             "  Directory  /var/corvane: keep (exists)\n",
             "  Link       /usr/bin/corvane26: keep (exists)\n",
             "  Link       /usr/bin/corvane26_snapshot: replace (points to /opt/elsewhere)\n",
             "  Service    /etc/systemd/system/corvane24_service.service: stop and remove\n",
             "restart; replace unit file if it differs\n"});
    });
}

TEST(RootSetup, AsksNothingOnComputeNodeAndRefusesUserThere) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const auto result = RunRootSetup({"--cluster-node", "--external-default-queue"});
        ASSERT_EQ(result.status, 0) << result.err;
        ExpectHolds(result.out, "  User       corvsrvc: create with shell /bin/bash\n");
        ExpectHolds(result.out,
                    "  Service    corvane26_service.service: not installed on a compute node\n");
        EXPECT_EQ(result.out.find("Continue?"), std::string::npos);

        // A user who can write to the tree cannot set the mode of root's run scripts.
        Shell("chmod 777 /var/corvane");
        const auto user = hx_test::Run(
            {"env", "LSAN_OPTIONS=detect_leaks=0", "setpriv", "--reuid=4321", "--regid=4321",
             "--clear-groups", "/opt/corvane26/cv_install", "--setup", "--user-mode", "--yes"});
        EXPECT_EQ(user.status, 8);
        EXPECT_EQ(WithoutLogPath(user.err),
                  "cv_install: cannot change the mode of \"/var/corvane/corvane26\": owned by "
                  "another user\n    Run the setup as root.\n    No changes were made.\n");
    });
}

TEST(RootSetup, ReportsOwnerThatWasNotSet) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        hx_test::WriteFile("/usr/bin/chown", "#!/bin/sh\nexit 1\n");
        const auto result = RunRootSetup({"--yes"});
        EXPECT_EQ(result.status, 10);
        ExpectHolds(result.err,
                    "cv_install: the owner of \"/var/corvane\" is root:root, expected "
                    "corvsrvc:corvsrvc\n");
    });
}

}  // namespace
