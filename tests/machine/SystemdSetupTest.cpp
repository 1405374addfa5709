// Setups as root with a real systemd.
#include <string>

#include "machine/MachineSetup.h"

namespace {

// Stands in for the application's service: records its identity and options, and stays.
constexpr const char* serviceProgram = R"sh(#!/bin/sh
id -un > /run/corvane26_service/user
id -gn > /run/corvane26_service/group
printf '%s\n' "$@" > /run/corvane26_service/options
echo "$CORV_CORVANERC" > /run/corvane26_service/settings
exec sleep infinity
)sh";

constexpr const char* oldUnit = R"([Service]
ExecStart=/bin/sleep infinity
ExecStop=/bin/sh -c 'echo %N >> /run/stopped_services; kill $MAINPID'
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

const std::string unitFile = "/etc/systemd/system/corvane26_service.service";

class SystemdSetup : public MachineSetup {
protected:
    static void SetUpTestSuite() {
        if (HasMachine())
            WriteProgram("/opt/corvane26/cv_computeservice", serviceProgram);
    }

    void SetUp() override {
        MachineSetup::SetUp();
        if (!IsSkipped())
            Shell("userdel corvsrvc; groupdel corvsrvc");
    }

    static std::string RunSetup(const std::string& options = "--yes", int status = 0) {
        const auto result = Machine().Shell("/opt/corvane26/cv_install --setup " + options);
        EXPECT_EQ(result.status, status) << result.out << result.err;
        return result.out;
    }

    static std::string Property(const std::string& name) {
        return Shell("systemctl show --value -p " + name + " corvane26_service");
    }

    // A file that the service program wrote.
    static std::string RunFile(const std::string& name) {
        return Shell(
            "for i in $(seq 50); do [ -s /run/corvane26_service/settings ] && break; "
            "sleep 0.1; done; cat /run/corvane26_service/" +
            name);
    }

    // The recorded verbs of systemctl that change something.
    static std::string CallsOfManager() {
        return Shell("grep -vE '^(is-active|show)$' /run/verbs");
    }

    // Names, modes, owners, and link targets of the installation.
    static std::string Installation() {
        return Shell(
            "find /var/corvane /usr/bin/corvane26* /etc/systemd/system/corvane26* "
            "-printf '%p %m %u:%g %l\\n' | sort; getent passwd corvsrvc; "
            "getent group corvsrvc");
    }
};

TEST_F(SystemdSetup, RunsServiceAsServiceUserWithItsSettings) {
    const std::string out = RunSetup();
    EXPECT_EQ(Property("ActiveState"), "active");
    EXPECT_EQ(Property("UnitFileState"), "enabled");
    EXPECT_EQ(RunFile("user"), "corvsrvc");
    EXPECT_EQ(RunFile("group"), "corvsrvc");
    EXPECT_EQ(Shell("ps -o user= -p " + Property("MainPID")), "corvsrvc");
    EXPECT_EQ(RunFile("settings"), "/var/corvane");
    EXPECT_EQ(RunFile("options"),
              "--allow\nHTTP\n--http-address\n0.0.0.0\n--http-port\n8080\n--https-address\n"
              "0.0.0.0\n--https-port\n8443\n--certificate\ncert.pem\n--key\nkey.pem\n--dh\n"
              "dh.pem\n--run-directory\n/run/corvane26_service");
    EXPECT_NE(out.find("  Service:   active\n"), std::string::npos) << out;
    EXPECT_EQ(Shell("journalctl --identifier=cv_install --output=cat --lines=1"),
              "exit status 0: setup completed");
    // Set-uid helpers of the schedulers' submit commands must work.
    EXPECT_EQ(Shell("grep NoNewPrivs /proc/" + Property("MainPID") + "/status"), "NoNewPrivs:\t0");
}

struct RerunCase {
    const char* before;  // a shell command between the two setups
    const char* options;
    const char* enabled;
    bool restarts;
    bool keepsUnit;
};

constexpr const char* editUnit =
    "echo '# edited' >> /etc/systemd/system/corvane26_service.service; systemctl daemon-reload";
constexpr const char* editUnitAndStop =
    "echo '# edited' >> /etc/systemd/system/corvane26_service.service; systemctl daemon-reload; "
    "systemctl stop corvane26_service";

// A setup restarts the service only if something that the service uses has changed.
const RerunCase rerunCases[] = {
    {"true", "--yes", "enabled", false, true},
    {"true", "--yes --restart", "enabled", true, true},
    {"echo >> /var/corvane/corvane26", "--yes", "enabled", true, true},
    {"systemctl stop corvane26_service", "--yes", "enabled", true, true},
    {"systemctl disable corvane26_service; systemctl start corvane26_service", "--yes", "disabled",
     false, true},
    {editUnit, "--yes", "enabled", true, false},
    {editUnitAndStop, "--yes", "enabled", true, false},
};

TEST_F(SystemdSetup, RestartsServiceAndRestoresUnitOnRerun) {
    RunSetup();
    const std::string installation = Installation();
    for (const auto& [before, options, enabled, restarts, keepsUnit] : rerunCases) {
        SCOPED_TRACE(std::string(before) + options);
        // Waits for the service program: until then the service runs the run script.
        RunFile("settings");
        Shell(before);
        const std::string pid = Property("MainPID");
        const std::string inode = Shell("stat -c %i " + unitFile);
        const std::string out = RunSetup(options);
        EXPECT_EQ(Property("ActiveState"), "active");
        EXPECT_EQ(Property("MainPID") != pid, restarts);
        EXPECT_EQ(Property("UnitFileState"), enabled);
        EXPECT_EQ(Property("NeedDaemonReload"), "no");
        EXPECT_EQ(Installation(), installation);
        EXPECT_EQ(out.find("change " + unitFile + ": content\n") == std::string::npos, keepsUnit);
        EXPECT_EQ(Shell("grep -c edited " + unitFile), "0");
        if (keepsUnit) {
            EXPECT_EQ(Shell("stat -c %i " + unitFile), inode);
        }
        Shell("systemctl enable corvane26_service");
    }
}

// What happens to the service before a setup that is run only if needed.
struct NeedCase {
    const char* before;
    const char* out;    // a part
    const char* state;  // afterwards
    bool isNeeded;
};

const NeedCase needCases[] = {
    {"true", "Nothing to do.\n", "active", false},
    {"systemctl stop corvane26_service", "Nothing to do.\n  Service:   stopped, not started\n",
     "inactive", false},
    {"systemctl disable corvane26_service", "Nothing to do.\n  Service:   disabled, not started\n",
     "inactive", false},
    {"systemctl enable corvane26_service; systemctl start corvane26_service; "
     "systemctl kill --signal=KILL corvane26_service",
     "  Service:   active\n", "active", true},
};

TEST_F(SystemdSetup, LeavesServiceAloneWithoutNeed) {
    RunSetup();
    RunFile("settings");
    // No restart hides the failure.
    Shell(
        "mkdir -p /etc/systemd/system/corvane26_service.service.d; "
        "printf '[Service]\\nRestart=no\\n' > "
        "/etc/systemd/system/corvane26_service.service.d/test.conf; systemctl daemon-reload; "
        "mv /usr/bin/systemctl /usr/bin/systemctl.real");
    WriteProgram("/usr/bin/systemctl",
                 "#!/bin/sh\necho \"$1\" >> /run/verbs\nexec /usr/bin/systemctl.real \"$@\"\n");
    for (const NeedCase& row : needCases) {
        SCOPED_TRACE(row.before);
        Shell(row.before);
        const std::string pid = Property("MainPID");
        Shell("rm -f /run/verbs");
        const std::string out = RunSetup("--yes --if-needed --json /run/report");
        EXPECT_NE(out.find(row.out), std::string::npos) << out;
        EXPECT_EQ(CallsOfManager() != "", row.isNeeded);
        EXPECT_EQ(Property("ActiveState"), row.state);
        EXPECT_EQ(Property("MainPID") != pid, row.isNeeded);
        EXPECT_EQ(Shell("grep -o '\"changed\": [a-z]*' /run/report"),
                  std::string("\"changed\": ") + (row.isNeeded ? "true" : "false"));
    }
    // A dry run of a setup that restarts the service.
    const std::string pid = Property("MainPID");
    Shell("echo >> /var/corvane/corvane26; rm -f /run/verbs");
    const std::string out = RunSetup("--yes --dry-run");
    EXPECT_NE(out.find("restart corvane26_service.service\n"), std::string::npos) << out;
    EXPECT_EQ(CallsOfManager(), "");
    EXPECT_EQ(Property("MainPID"), pid);
    Shell(
        "mv /usr/bin/systemctl.real /usr/bin/systemctl; "
        "rm -r /etc/systemd/system/corvane26_service.service.d");
}

struct VerifiedCase {
    const char* before;
    const char* output;  // its beginning
};

const VerifiedCase verifiedCases[] = {
    {"true", "No differences"},
    {"mkdir -p /etc/systemd/system/corvane26_service.service.d; "
     "printf '[Service]\\nNice=5\\nRestart=no\\n' > "
     "/etc/systemd/system/corvane26_service.service.d/override.conf; systemctl daemon-reload; "
     "systemctl restart corvane26_service",
     "No differences"},
    {"systemctl stop corvane26_service", "No differences"},
    {"systemctl start corvane26_service; systemctl kill --signal=KILL corvane26_service",
     "service corvane26_service.service: state: expected active, found failed\n"},
    {"systemctl restart corvane26_service; systemctl --quiet disable corvane26_service",
     "/etc/systemd/system/multi-user.target.wants/corvane26_service.service: kind: expected link, "
     "found missing\n"},
};

TEST_F(SystemdSetup, VerifiesAndRepairsServiceAsSystemdKnowsIt) {
    RunSetup();
    for (const VerifiedCase& row : verifiedCases) {
        SCOPED_TRACE(row.before);
        RunFile("settings");
        Shell(row.before);
        const auto found = Machine().Shell("/opt/corvane26/cv_install --verify");
        const bool isSame = std::string(row.output).starts_with("No");
        EXPECT_EQ(found.status, isSame ? 0 : 1);
        EXPECT_EQ(found.out.substr(0, isSame ? 14 : std::string::npos), row.output) << found.err;
        const std::string before = Property("ActiveState") + Property("MainPID");
        const auto repair = Machine().Shell("/opt/corvane26/cv_install --repair");
        EXPECT_EQ(repair.status, 0) << repair.err;
        EXPECT_EQ(repair.out == "Nothing to repair.\n", isSame) << repair.out;
        EXPECT_EQ(Machine().Shell("/opt/corvane26/cv_install --verify").status, 0);
        // One that an administrator stopped stays so, and one that runs is not restarted.
        const std::string after = Property("ActiveState") + Property("MainPID");
        if (before.starts_with("failed"))
            EXPECT_EQ(after.substr(0, 6), "active");
        else
            EXPECT_EQ(after, before);
    }
    Shell("systemctl disable corvane26_service");
    const std::string status = Shell("/opt/corvane26/cv_install --status");
    EXPECT_NE(status.find("  Service:        active, disabled\n"), std::string::npos) << status;
    EXPECT_NE(status.find("corvane26_service.service.d/override.conf\n"), std::string::npos);
}

TEST_F(SystemdSetup, ReportsServiceThatCannotStart) {
    Shell("mv /opt/corvane26/cv_computeservice /opt/corvane26/away");
    // The run script waits for this program, so the service is active for 2 seconds.
    WriteProgram("/opt/corvane26/cv_arch", "#!/bin/sh\nsleep 2\n");
    const std::string out = RunSetup("--yes", 66);
    EXPECT_NE(out.find("cannot execute /opt/corvane26/cv_computeservice\n"), std::string::npos)
        << out;
    Shell(
        "for i in $(seq 100); do systemctl is-failed corvane26_service && break; sleep 0.1; done; "
        "rm /opt/corvane26/cv_arch; mv /opt/corvane26/away /opt/corvane26/cv_computeservice");
    EXPECT_EQ(Property("ExecMainStatus"), "5");
    EXPECT_EQ(Property("NRestarts"), "0");
}

TEST_F(SystemdSetup, RemovesServicesOfEarlierVersionsUntilUndo) {
    for (const std::string unit : {"corvane20_service", "corvane24_service"}) {
        Write("/etc/systemd/system/" + unit + ".service", oldUnit);
        Shell("systemctl daemon-reload; systemctl enable --now " + unit);
        ASSERT_EQ(Shell("systemctl is-active " + unit), "active");
    }
    const bool hasInit = !Shell("command -v start-stop-daemon && command -v service").empty();
    if (hasInit) {
        WriteProgram("/etc/init.d/corvane_service", oldInitScript);
        Shell("systemctl daemon-reload; service corvane_service start");
        ASSERT_EQ(Machine().Shell("service corvane_service status").status, 0);
    }
    const std::string processes = Shell(
        "systemctl show --value -p MainPID corvane20_service corvane24_service; "
        "cat /run/corvane_service.pid");
    RunSetup();
    EXPECT_EQ(Shell("cat /run/stopped_services"), "corvane20_service\ncorvane24_service");
    for (const std::string unit : {"corvane20_service", "corvane24_service"}) {
        EXPECT_EQ(Shell("systemctl is-active " + unit), "inactive");
        EXPECT_EQ(Shell("systemctl show --value -p LoadState " + unit), "not-found");
        EXPECT_EQ(Shell("find /etc/systemd/system -name '" + unit + "*'"), "");
    }
    EXPECT_EQ(Shell("ls /etc/init.d/corvane_service"), "");
    EXPECT_EQ(Shell("for pid in $(echo '" + processes + "'); do ps -o args= -p $pid; done"), "");
    EXPECT_EQ(Property("ActiveState"), "active");
    const auto undo = Machine().Shell("/opt/corvane26/cv_install --undo --yes");
    EXPECT_EQ(undo.status, 0) << undo.err;
    for (const std::string unit : {"corvane20_service", "corvane24_service"}) {
        EXPECT_EQ(Shell("systemctl is-active " + unit), "active");
        EXPECT_EQ(Shell("systemctl is-enabled " + unit), "enabled");
    }
    if (hasInit) {
        EXPECT_EQ(Machine().Shell("service corvane_service status").status, 0);
    }
    EXPECT_EQ(Property("LoadState"), "not-found");
    EXPECT_EQ(Shell("systemctl list-unit-files --no-legend 'corvane26*'; getent passwd corvsrvc"),
              "");
    Shell(
        "systemctl disable --now corvane20_service corvane24_service; service corvane_service "
        "stop; rm -f /etc/init.d/corvane_service");
}

TEST_F(SystemdSetup, IsRemovedWithItsService) {
    RunSetup();
    const std::string pid = Property("MainPID");
    const auto removal = Machine().Shell("/opt/corvane26/cv_install --remove --purge --yes");
    EXPECT_EQ(removal.status, 0) << removal.err;
    EXPECT_EQ(removal.err, "");
    EXPECT_EQ(Property("LoadState"), "not-found");
    EXPECT_EQ(Shell("ps -o args= -p " + pid), "");
    EXPECT_EQ(Shell("ls -d /var/corvane /etc/corvane26 /var/lib/corvane26 /usr/bin/corvane26*; "
                    "find /etc/systemd -name '*corvane26*'; getent passwd corvsrvc"),
              "");
}

}  // namespace
