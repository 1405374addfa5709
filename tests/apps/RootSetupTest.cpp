// Setups by root: the plan and the agreement to it, the log, the summary, and what they leave.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

using hx_test::ExpectHolds;

// Job limit; memory and pause; directory and pause; scratch limit and pause; queue and pause;
// members and pause.
const std::string answers = "2\n600\n\n/tmp\n\n3\n\n1\n\nann,bob\n\n";

void MakePeople() {
    Shell("useradd --create-home ann; useradd --create-home bob");
}

TEST(RootSetup, MakesAccountTreeLinksAndUnit) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const auto result = RunRootSetup({"--yes"});
        ASSERT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(Shell("stat -c '%a %U:%G' /var/corvane"), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(Shell("stat -c '%a %U:%G' /var/corvane/corvane26"), "775 corvsrvc:corvsrvc");
        EXPECT_EQ(Shell("stat -c '%a %U:%G' /var/corvane/QueueEntries"), "666 corvsrvc:corvsrvc");
        EXPECT_EQ(Shell("stat -c '%a %U:%G' /var/corvane/QueueLimits"), "664 corvsrvc:corvsrvc");
        EXPECT_EQ(Shell("readlink /usr/bin/corvane26"), "/var/corvane/corvane26");
        EXPECT_EQ(Shell("getent passwd corvsrvc | cut -d: -f6,7"), "/var/corvane:/sbin/nologin");
        EXPECT_EQ(Shell("stat -c %a /usr/bin/corvane26_service_script"), "755");
        EXPECT_EQ(Shell("grep ^ExecStart /etc/systemd/system/corvane26_service.service"),
                  "ExecStart=/usr/bin/corvane26_service_script start");
        EXPECT_EQ(Shell("corvane26 --root-path"), "CORV_ROOT=/opt/corvane26");
    });
}

TEST(RootSetup, TakesNoModeFromTheUmask) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        umask(077);
        ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
        EXPECT_EQ(Shell("stat -c %a /usr/bin/corvane26_service_script"), "755");
        EXPECT_EQ(Shell("stat -c %a /var/corvane/corvane26_service.service"), "644");
        EXPECT_EQ(Shell("stat -c %a /etc/systemd/system/corvane26_service.service"), "644");
    });
}

// "su" without "-" keeps the caller's environment.
TEST(RootSetup, TakesNoProgramsFromTheEnvironment) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell(
            "mkdir /srv/bin; printf '#!/bin/sh\ntouch /pwned\n' > /srv/bin/stat; "
            "chmod 755 /srv/bin/stat; cp /srv/bin/stat /srv/bin/df; "
            "cp /srv/bin/stat /srv/bin/systemctl; echo touch /pwned > /srv/before");
        hx_test::WriteFile("/usr/bin/systemctl",
                           "#!/bin/sh\n[ \"$1\" = is-active ] || env > /srv/environment\n");
        const std::string path = std::string("/srv/bin:") + getenv("PATH");
        setenv("PATH", path.c_str(), 1);
        setenv("BASH_ENV", "/srv/before", 1);
        setenv("BASH_FUNC_stat%%", "() { touch /pwned; }", 1);
        setenv("TAR_OPTIONS", "--no-such-option", 1);
        setenv("POSIXLY_CORRECT", "1", 1);
        setenv("LD_LIBRARY_PATH", "/srv/lib", 1);
        setenv("LD_BIND_NOW", "1", 1);
        setenv("SYSTEMD_OFFLINE", "1", 1);
        setenv("CORV_OTHER", "1", 1);
        const auto result = RunRootSetup({"--yes"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_FALSE(std::filesystem::exists("/pwned"));
        EXPECT_EQ(
            Shell(
                "grep -E '^(PATH|POSIXLY_CORRECT|LD_|TAR_|SYSTEMD_|CORV_OTHER)' /srv/environment"),
            "PATH=/usr/sbin:/usr/bin:/sbin:/bin");
    });
}

TEST(RootSetup, ShowsThePlanOfAFirstInstallation) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const std::string out = RunRootSetup({"--yes"}).out;
        ExpectHolds(out, "The setup will make these changes:\n");
        ExpectHolds(out, "  Group      corvsrvc: create\n");
        ExpectHolds(out, "  User       corvsrvc: create without a login shell\n");
        ExpectHolds(out, "  Members    added: none\n  Members    removed: none\n");
        ExpectHolds(out, "  Directory  /var/corvane: create (mode 775)\n");
        ExpectHolds(out, "  Link       /usr/bin/corvane26: create\n");
        ExpectHolds(out, "  Service    corvane26_service.service: install, enable, and start\n");
    });
}

TEST(RootSetup, ShowsThePlanOfAnUpgrade) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        MakePeople();
        ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
        Shell("usermod -aG corvsrvc ann; touch /etc/systemd/system/corvane24_service.service");
        Shell("ln -sf /opt/elsewhere /usr/bin/corvane26_snapshot");
        // The members' question: bob and a further person, so that ann leaves.
        const std::string input = "2\n600\n\n/tmp\n\n3\n\n1\n\nbob,root\n\nn\n";
        const auto result = RunRootSetup({}, input);
        EXPECT_EQ(result.status, 9) << result.err;
        ExpectHolds(result.out, "  Group      corvsrvc: keep (exists)\n");
        ExpectHolds(result.out, "  User       corvsrvc: keep (exists)\n");
        ExpectHolds(result.out, "  Members    added: bob root\n  Members    removed: ann\n");
        ExpectHolds(result.out, "  Directory  /var/corvane: keep (exists)\n");
        ExpectHolds(result.out, "  Link       /usr/bin/corvane26: keep (exists)\n");
        ExpectHolds(result.out,
                    "  Link       /usr/bin/corvane26_snapshot: replace (points to "
                    "/opt/elsewhere)\n");
        ExpectHolds(result.out,
                    "  Service    /etc/systemd/system/corvane24_service.service: stop and "
                    "remove\n");
        ExpectHolds(result.out, "restart; replace unit file if it differs\n");
    });
}

TEST(RootSetup, WithoutAnAgreementNothingIsChanged) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string answer : {"n\n", "\n", ""}) {
        HX_EXPECT_SCENARIO([&answer] {
            LayOutRootSetup();
            MakePeople();
            const std::string before = Shell("cat /etc/passwd /etc/group");
            const auto result = RunRootSetup({}, answers + answer);
            EXPECT_EQ(result.status, 9) << result.err;
            ExpectHolds(result.out, "  Script     /tmp/corvane26_commit_");
            ExpectHolds(result.out, "Continue? [y/N] ");
            EXPECT_EQ(
                result.err,
                "cv_install: setup canceled: plan not confirmed\n    No changes were made.\n");
            EXPECT_EQ(Shell("cat /etc/passwd /etc/group"), before);
            EXPECT_FALSE(std::filesystem::exists("/var/corvane"));
            EXPECT_EQ(Shell("ls /tmp | grep corvane26_commit"), "");
        });
    }
}

TEST(RootSetup, AgreedToItBringsTheMembersIn) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        MakePeople();
        const auto result = RunRootSetup({}, answers + "y\nleft over\n");
        ASSERT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(Shell("getent group corvsrvc | cut -d: -f4"), "ann,bob");
        EXPECT_EQ(Shell("cat /var/corvane/QueueLimits"),
                  "MaxThreads: 2\nMemoryPerThreadMB: 600\nScratch: /tmp\nDiskPerThreadGB: 3");
    });
}

TEST(RootSetup, AnExternalQueueGivesTheAccountAShell) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const auto result = RunRootSetup({"--yes", "--external-default-queue"});
        ASSERT_EQ(result.status, 0) << result.err;
        ExpectHolds(result.out, "  User       corvsrvc: create with shell /bin/bash\n");
        EXPECT_EQ(Shell("getent passwd corvsrvc | cut -d: -f7"), "/bin/bash");
    });
}

TEST(RootSetup, AClusterNodeGetsNoServiceAndIsNotAsked) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const auto result = RunRootSetup({"--cluster-node"});
        ASSERT_EQ(result.status, 0) << result.err;
        ExpectHolds(result.out,
                    "  Service    corvane26_service.service: not installed on a compute node\n");
        EXPECT_FALSE(std::filesystem::exists("/usr/bin/corvane26_service_script"));
        EXPECT_EQ(result.out.find("Continue?"), std::string::npos);
    });
}

TEST(RootSetup, TheLogHoldsWhatWasShownAndOnlyRootReadsIt) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const auto result = RunRootSetupMerged({"--yes"});
        ASSERT_EQ(result.status, 0);
        ExpectHolds(result.out, "  Log:       /var/log/corvane26_setup.log\n");
        EXPECT_EQ(hx_test::ReadFile("/var/log/corvane26_setup.log"), result.out);
        EXPECT_EQ(Shell("stat -c '%a %U' /var/log/corvane26_setup.log"), "600 root");
    });
}

TEST(RootSetup, TheSummaryTellsTheServicesStateAndTheNextStep) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        hx_test::WriteFile("/usr/bin/systemctl",
                           "#!/bin/sh\n[ \"$1\" = is-active ] && echo failed\n");
        const auto result = RunRootSetup({"--yes"});
        ASSERT_EQ(result.status, 0) << result.err;
        ExpectHolds(result.out, "  Service:   failed\n");
        ExpectHolds(result.out, "For details, run: journalctl --unit=corvane26_service.service\n");
        ExpectHolds(result.out, "  Next step: start Corvane with corvane26\n");
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

// Ctrl-C at the question, while the script that the plan names can be read.
TEST(RootSetup, RemovesReviewedScriptWhenInterrupted) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const auto result = hx_test::Run(
            {"bash", "-c",
             "mkfifo /srv/in; /opt/corvane26/cv_install --setup < /srv/in > /srv/out & "
             "exec 3> /srv/in; printf '2\\n600\\n\\n/tmp\\n\\n3\\n\\n1\\n\\n\\n\\n' >&3; "
             "until grep -q 'Continue' /var/log/corvane26_setup.log; do sleep 0.05; done; "
             "ls /tmp/corvane26_commit_*; kill -TERM $!; wait $!; echo $?; "
             "ls /tmp | grep corvane26_commit"},
            {.env = {{"LSAN_OPTIONS", "detect_leaks=0"}}});
        EXPECT_TRUE(result.out.starts_with("/tmp/corvane26_commit_")) << result.out << result.err;
        EXPECT_TRUE(result.out.ends_with("\n143\n")) << result.out;
        EXPECT_FALSE(std::filesystem::exists("/var/corvane"));
    });
}

TEST(RootSetup, AUserIsToldBeforeATreeOfRootStopsTheSetup) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
        Shell("chmod 777 /var/corvane");
        const auto result = hx_test::Run(
            {"env", "LSAN_OPTIONS=detect_leaks=0", "setpriv", "--reuid=4321", "--regid=4321",
             "--clear-groups", "/opt/corvane26/cv_install", "--setup", "--user-mode", "--yes"});
        EXPECT_EQ(result.status, 8);
        ExpectHolds(result.err,
                    "cannot change the mode of \"/var/corvane/corvane26\": owned by another user");
        ExpectHolds(result.err, "Run the setup as root");
    });
}

}  // namespace
