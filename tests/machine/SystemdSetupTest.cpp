// Whole setups by root on a machine with a real systemd and a real user database.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "harness/TempDir.h"
#include "machine/ThrowawayMachine.h"

namespace {

using hx_test::ThrowawayMachine;

// Stands in for the application's service: tells its identity and options, and stays.
constexpr const char* serviceProgram = R"sh(#!/bin/sh
id -un > /run/corvane26_service/user
id -gn > /run/corvane26_service/group
printf '%s\n' "$@" > /run/corvane26_service/options
echo "$CORV_CORVANERC" > /run/corvane26_service/settings
exec sleep infinity
)sh";

constexpr const char* oldUnit = R"([Service]
ExecStart=/bin/sleep infinity
[Install]
WantedBy=multi-user.target
)";

constexpr const char* oldInitScript = R"sh(#!/bin/sh
### BEGIN INIT INFO
# Provides:          corvane_service
# Required-Start:
# Required-Stop:
# Default-Start:     2 3 4 5
# Default-Stop:      0 1 6
# Short-Description: the compute service of an early version
### END INIT INFO
pid=/run/corvane_service.pid
case "$1" in
    start) start-stop-daemon --start --background --make-pidfile --pidfile $pid \
               --startas /bin/sleep -- infinity ;;
    stop) start-stop-daemon --stop --oknodo --remove-pidfile --pidfile $pid ;;
    status) start-stop-daemon --status --pidfile $pid ;;
    *) exit 2 ;;
esac
)sh";

class SystemdSetup : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!ThrowawayMachine::Hindrance().empty())
            return;
        s_machine = std::make_unique<ThrowawayMachine>();
        s_booted = s_machine->Boot();
        if (!s_booted)
            return;
        s_machine->CopyIn(HX_PRODUCT_DIR, "/opt/corvane26");
        Write("/opt/corvane26/cv_computeservice", serviceProgram);
        Shell(
            "chmod 755 /opt/corvane26/cv_computeservice; useradd ann; useradd bob; "
            "useradd --no-user-group --gid users eve");
    }
    static void TearDownTestSuite() { s_machine.reset(); }

    void SetUp() override {
        const std::string hindrance = ThrowawayMachine::Hindrance();
        if (!hindrance.empty())
            GTEST_SKIP() << hindrance;
        ASSERT_TRUE(s_booted) << s_machine->Log();
        Shell(
            "systemctl stop corvane26_service; systemctl disable corvane26_service; "
            "rm -rf /var/corvane /usr/bin/corvane26* /etc/systemd/system/corvane2*; "
            "userdel corvsrvc; groupdel corvsrvc; systemctl daemon-reload; "
            "systemctl reset-failed; rm -f /tmp/corvane26_*");
    }

    static void Write(const std::string& path, const std::string& text) {
        hx_test::WriteFile(s_machine->Path(path), text);
    }

    static std::string Shell(const std::string& text) { return s_machine->Output(text); }

    static hx_test::ProcessResult Setup(std::vector<std::string> arguments = {"--yes"},
                                        const std::string& input = {}) {
        arguments.insert(arguments.begin(), {"/opt/corvane26/cv_install", "--setup"});
        hx_test::ProcessOptions options;
        options.input = input;
        const auto result = s_machine->Run(arguments, options);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        return result;
    }

    static std::string Unit(const std::string& property) {
        return Shell("systemctl show --value -p " + property + " corvane26_service");
    }

    static std::string RunFile(const std::string& name) {
        return Shell(
            "for i in $(seq 50); do [ -s /run/corvane26_service/settings ] && break; "
            "sleep 0.1; done; cat /run/corvane26_service/" +
            name);
    }

    // Names, modes, owners and link targets of all that an installation consists of.
    static std::string Tree() {
        return Shell(
            "find /var/corvane /usr/bin/corvane26* /etc/systemd/system/corvane26* "
            "-printf '%p %m %u:%g %l\\n' | sort; getent passwd corvsrvc; "
            "getent group corvsrvc");
    }

    static inline std::unique_ptr<ThrowawayMachine> s_machine;
    static inline bool s_booted = false;
};

TEST_F(SystemdSetup, TheServiceRunsUnderItsUserWithTheSettingsOfTheRunScript) {
    const auto result = Setup();
    EXPECT_EQ(Unit("ActiveState"), "active");
    EXPECT_EQ(Unit("UnitFileState"), "enabled");
    EXPECT_EQ(RunFile("user"), "corvsrvc");
    EXPECT_EQ(RunFile("group"), "corvsrvc");
    EXPECT_EQ(Shell("ps -o user= -p " + Unit("MainPID")), "corvsrvc");
    EXPECT_EQ(RunFile("settings"), "/var/corvane");
    EXPECT_EQ(RunFile("options"),
              "--allow\nHTTP\n--http-address\n0.0.0.0\n--http-port\n8080\n--https-address\n"
              "0.0.0.0\n--https-port\n8443\n--certificate\ncert.pem\n--key\nkey.pem\n--dh\n"
              "dh.pem\n--run-directory\n/run/corvane26_service");
    EXPECT_NE(result.out.find("  Service:   active\n"), std::string::npos) << result.out;
    // Set-uid helpers of the schedulers' submit commands must work.
    EXPECT_EQ(Shell("grep NoNewPrivs /proc/" + Unit("MainPID") + "/status"), "NoNewPrivs:\t0");
}

TEST_F(SystemdSetup, MakesTheAccountTheTreeAndTheLinks) {
    Setup();
    EXPECT_EQ(Shell("getent passwd corvsrvc | cut -d: -f6,7"), "/var/corvane:/sbin/nologin");
    EXPECT_EQ(Shell("cd /var/corvane; stat -c '%n %a %U:%G' . corvanerc corvanerc/corvane26 "
                    "corvanerc/corvane26server corvane26 corvane26_snapshot QueueEntries "
                    "QueueLimits"),
              ". 775 corvsrvc:corvsrvc\ncorvanerc 775 corvsrvc:corvsrvc\n"
              "corvanerc/corvane26 775 corvsrvc:corvsrvc\n"
              "corvanerc/corvane26server 775 corvsrvc:corvsrvc\ncorvane26 775 corvsrvc:corvsrvc\n"
              "corvane26_snapshot 775 corvsrvc:corvsrvc\nQueueEntries 666 corvsrvc:corvsrvc\n"
              "QueueLimits 664 corvsrvc:corvsrvc");
    EXPECT_EQ(Shell("readlink /usr/bin/corvane26 /usr/bin/corvane26_snapshot"),
              "/var/corvane/corvane26\n/var/corvane/corvane26_snapshot");
    EXPECT_EQ(Shell("stat -c %a /etc/systemd/system/corvane26_service.service"), "644");
}

TEST_F(SystemdSetup, ASecondRunChangesNothingAndRestartsTheService) {
    Setup();
    const std::string tree = Tree();
    const std::string pid = Unit("MainPID");
    const std::string unitInode = Shell("stat -c %i /etc/systemd/system/corvane26_service.service");
    Setup();
    EXPECT_EQ(Tree(), tree);
    EXPECT_EQ(Shell("stat -c %i /etc/systemd/system/corvane26_service.service"), unitInode);
    EXPECT_EQ(Unit("ActiveState"), "active");
    EXPECT_NE(Unit("MainPID"), pid);
}

TEST_F(SystemdSetup, AStoppedServiceIsStartedAgain) {
    Setup();
    Shell("systemctl stop corvane26_service");
    Setup();
    EXPECT_EQ(Unit("ActiveState"), "active");
}

TEST_F(SystemdSetup, AServiceThatWasDisabledStaysDisabled) {
    Setup();
    Shell("systemctl disable corvane26_service");
    Setup();
    EXPECT_EQ(Unit("UnitFileState"), "disabled");
    EXPECT_EQ(Unit("ActiveState"), "active");
}

TEST_F(SystemdSetup, AnEditedUnitIsReplacedWhetherTheServiceRunsOrNot) {
    Setup();
    for (const char* before : {"true", "systemctl stop corvane26_service"}) {
        Shell(
            "echo '# edited' >> /etc/systemd/system/corvane26_service.service; "
            "systemctl daemon-reload");
        Shell(before);
        const auto result = Setup();
        EXPECT_NE(result.out.find("# edited"), std::string::npos) << "the difference is shown";
        EXPECT_EQ(Shell("grep -c edited /etc/systemd/system/corvane26_service.service"), "0");
        EXPECT_EQ(Unit("ActiveState"), "active");
        EXPECT_EQ(Unit("UnitFileState"), "enabled");
        EXPECT_EQ(Unit("NeedDaemonReload"), "no");
    }
}

TEST_F(SystemdSetup, AServiceThatCannotStartDoesNotFailTheSetup) {
    Shell("mv /opt/corvane26/cv_computeservice /opt/corvane26/away");
    const auto result = Setup();
    Shell("mv /opt/corvane26/away /opt/corvane26/cv_computeservice");
    EXPECT_NE(result.out.find("See why: journalctl --unit=corvane26_service.service"),
              std::string::npos)
        << result.out;
    EXPECT_EQ(Unit("ExecMainStatus"), "5");
    EXPECT_EQ(Unit("NRestarts"), "0");
    EXPECT_NE(Shell("journalctl --unit=corvane26_service.service --output=cat")
                  .find("the service program /opt/corvane26/cv_computeservice is not installed"),
              std::string::npos);
}

TEST_F(SystemdSetup, UnitsOfEarlierVersionsGo) {
    for (const char* unit : {"corvane20_service", "corvane24_service"}) {
        Write(std::string("/etc/systemd/system/") + unit + ".service", oldUnit);
        Shell(std::string("systemctl daemon-reload; systemctl enable --now ") + unit);
        ASSERT_EQ(Shell(std::string("systemctl is-active ") + unit), "active");
    }
    const auto result = Setup();
    for (const std::string unit : {"corvane20_service", "corvane24_service"}) {
        EXPECT_EQ(Shell("systemctl is-active " + unit), "inactive");
        EXPECT_EQ(Shell("systemctl show --value -p LoadState " + unit), "not-found");
        EXPECT_EQ(Shell("find /etc/systemd/system -name '" + unit + "*'"), "");
        EXPECT_NE(
            result.out.find("/etc/systemd/system/" + unit + ".service: stopped and removed\n"),
            std::string::npos);
    }
    EXPECT_EQ(Unit("ActiveState"), "active");
}

TEST_F(SystemdSetup, TheInitScriptOfAnEarlyVersionGoes) {
    if (Shell("command -v start-stop-daemon && command -v service").empty())
        GTEST_SKIP() << "the service tools are not installed";
    Write("/etc/init.d/corvane_service", oldInitScript);
    Shell(
        "chmod 755 /etc/init.d/corvane_service; systemctl daemon-reload; "
        "service corvane_service start");
    ASSERT_EQ(s_machine->Shell("service corvane_service status").status, 0);
    const std::string pid = Shell("cat /run/corvane_service.pid");
    Setup();
    EXPECT_EQ(Shell("ls /etc/init.d/corvane_service"), "");
    EXPECT_NE(s_machine->Shell("kill -0 " + pid).status, 0);
}

TEST_F(SystemdSetup, ARepositoryIsCarriedOverInBothForms) {
    const std::string old = "/var/corvane/corvanerc/corvane24server/CorvaneServerRepository";
    const std::string carried = "/var/corvane/corvanerc/corvane26server/CorvaneServerRepository";
    Shell("mkdir -p " + old + "; echo data > " + old + "/file");
    Setup();
    EXPECT_EQ(Shell("readlink " + carried), old);
    EXPECT_EQ(Shell("cat " + carried + "/file"), "data");

    Shell("rm -rf /var/corvane/corvanerc; mkdir -p $(dirname " + old + "); ln -s /srv/gone " + old);
    Setup();
    EXPECT_EQ(Shell("readlink " + carried), "/srv/gone");
}

TEST_F(SystemdSetup, ChangedAnswersReachTheInstallation) {
    Setup();
    // Job limit, memory, directory, scratch limit, queue, members; pauses between; the agreement.
    Setup({"--external-default-queue"}, "3\n700\n\n/tmp\n\n5\n\n\nann,bob\n\ny\n");
    EXPECT_EQ(Shell("head -2 /var/corvane/QueueLimits"), "MaxThreads: 3\nMemoryPerThreadMB: 700");
    EXPECT_EQ(Shell("corvane26 --printenv CORV_QUEUE_TYPE"), "EXTERNAL");
    EXPECT_EQ(Shell("getent group corvsrvc | cut -d: -f4"), "ann,bob");
    // Only a new account gets a shell.
    EXPECT_EQ(Shell("getent passwd corvsrvc | cut -d: -f7"), "/sbin/nologin");
}

TEST_F(SystemdSetup, MembersLeaveByTheRule) {
    const std::string limits = "2\n700\n\n/tmp\n\n5\n\n\n";
    const std::vector<std::string> arguments = {"--internal-default-queue"};
    Setup(arguments, limits + "ann,bob\n\ny\n");
    // Fewer wanted names than present ones remove nobody.
    Setup(arguments, limits + "ann\n\ny\n");
    EXPECT_EQ(Shell("getent group corvsrvc | cut -d: -f4"), "ann,bob");
    // As many remove the one who is not wanted.
    Setup(arguments, limits + "ann,eve\n\ny\n");
    EXPECT_EQ(Shell("getent group corvsrvc | cut -d: -f4"), "ann,eve");
    // A person whose only group is the service group stays.
    Shell("usermod --gid corvsrvc bob; usermod -G '' bob; gpasswd --add bob corvsrvc");
    Setup(arguments, limits + "ann,eve,root\n\ny\n");
    EXPECT_NE(Shell("getent group corvsrvc").find("bob"), std::string::npos);
}

TEST_F(SystemdSetup, AClusterNodeGetsNoService) {
    Setup({"--cluster-node"});
    EXPECT_EQ(Unit("LoadState"), "not-found");
    EXPECT_EQ(Shell("ls /var/corvane/corvanerc/corvane26server"), "");
    EXPECT_EQ(Shell("corvane26 --printenv CORV_CLUSTER_NODE"), "YES");
}

}  // namespace
