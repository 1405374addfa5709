// The service controllers with real units and init scripts on a throwaway machine.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "harness/TempDir.h"
#include "machine/ThrowawayMachine.h"
#include "services/CInitService.h"
#include "services/CSystemdService.h"

namespace {

using hx_test::ThrowawayMachine;
using hx_test::WriteFile;

constexpr int stopped = 3;  // the exit status of both tools for a stopped service
constexpr int unknownUnit = 4;

const char* const goodUnit = R"([Service]
ExecStart=/bin/sleep infinity
)";

const char* const failingUnit = R"([Service]
Type=oneshot
ExecStart=/bin/false
)";

const char* const initScript = R"sh(#!/bin/sh
### BEGIN INIT INFO
# Provides:          hx-script
# Required-Start:
# Required-Stop:
# Default-Start:     2 3 4 5
# Default-Stop:      0 1 6
# Short-Description: test service
### END INIT INFO
pidfile=/run/hx-script.pid
case "$1" in
    start) start-stop-daemon --start --background --make-pidfile --pidfile $pidfile \
               --startas /bin/sleep -- infinity ;;
    stop) start-stop-daemon --stop --oknodo --remove-pidfile --pidfile $pidfile ;;
    restart) "$0" stop && "$0" start ;;
    status) start-stop-daemon --status --pidfile $pidfile ;;
    *) exit 2 ;;
esac
)sh";

class MachineService : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!ThrowawayMachine::Hindrance().empty())
            return;
        s_machine = std::make_unique<ThrowawayMachine>();
        if (!s_machine->Boot())
            return;
        WriteFile(s_machine->Path("/etc/systemd/system/hx-good.service"), goodUnit);
        WriteFile(s_machine->Path("/etc/systemd/system/hx-failing.service"), failingUnit);
        WriteFile(s_machine->Path("/etc/init.d/hx-script"), initScript);
        s_ready = s_machine->Shell("chmod 755 /etc/init.d/hx-script; systemctl daemon-reload");
    }
    static void TearDownTestSuite() { s_machine.reset(); }

    void SetUp() override {
        const std::string hindrance = ThrowawayMachine::Hindrance();
        if (!hindrance.empty())
            GTEST_SKIP() << hindrance;
        ASSERT_EQ(s_ready.status, 0) << s_ready.err << s_machine->Log();
    }

    static void Inside(const std::function<void()>& body) {
        const auto child = s_machine->RunInChild(body);
        EXPECT_EQ(child.status, 0) << child.out;
        EXPECT_EQ(child.out, "");
        EXPECT_EQ(child.err, "");
    }

    static std::string Property(const std::string& unit, const std::string& name) {
        return s_machine->Run({"systemctl", "show", "--value", "-p", name, unit}).out;
    }

    static inline std::unique_ptr<ThrowawayMachine> s_machine;
    static inline hx_test::ProcessResult s_ready;
};

template <typename Service>
void Start(const char* name) {
    Service service;
    EXPECT_EQ(service.Start(name), 0);
    EXPECT_TRUE(service.waitForFinished(-1));
}

TEST_F(MachineService, ControlsUnit) {
    const std::string unit = "hx-good";
    Inside([] {
        EXPECT_EQ(CSystemdService().Status("hx-good"), stopped);
        Start<CSystemdService>("hx-good");
        EXPECT_EQ(CSystemdService().Status("hx-good"), 0);
    });
    EXPECT_EQ(Property(unit, "ActiveState"), "active\n");
    const std::string firstPid = Property(unit, "MainPID");
    EXPECT_NE(firstPid, "0\n");

    Inside([] { EXPECT_EQ(CSystemdService().Restart("hx-good"), 0); });
    EXPECT_EQ(Property(unit, "ActiveState"), "active\n");
    EXPECT_NE(Property(unit, "MainPID"), firstPid);

    Inside([] {
        CSystemdService service;
        EXPECT_EQ(service.Stop("hx-good"), 0);
        EXPECT_EQ(service.Status("hx-good"), stopped);
    });
    EXPECT_EQ(Property(unit, "ActiveState"), "inactive\n");
}

TEST_F(MachineService, ReportsFailedUnitOnlyInStatus) {
    Inside([] {
        CSystemdService starter;
        EXPECT_EQ(starter.Start("hx-failing"), 0);
        EXPECT_TRUE(starter.waitForFinished(-1));
        EXPECT_EQ(CSystemdService().Status("hx-failing"), stopped);
        EXPECT_EQ(CSystemdService().Restart("hx-failing"), 1);
    });
    EXPECT_EQ(Property("hx-failing", "ActiveState"), "failed\n");
}

TEST_F(MachineService, ReturnsStatus4ForUnknownUnit) {
    Inside([] {
        EXPECT_EQ(CSystemdService().Status("hx-nowhere"), unknownUnit);
        EXPECT_NE(CSystemdService().Stop("hx-nowhere"), 0);
    });
}

TEST_F(MachineService, ControlsInitScript) {
    if (s_machine->Run({"test", "-e", "/sbin/service"}).status != 0)
        GTEST_SKIP() << "the service command is not installed";
    Inside([] {
        EXPECT_EQ(CInitService().Status("hx-script"), stopped);
        Start<CInitService>("hx-script");
        EXPECT_EQ(CInitService().Status("hx-script"), 0);
    });
    const std::string firstPid = s_machine->Run({"cat", "/run/hx-script.pid"}).out;
    EXPECT_EQ(s_machine->Shell("kill -0 " + firstPid).status, 0);

    Inside([] { EXPECT_EQ(CInitService().Restart("hx-script"), 0); });
    const std::string secondPid = s_machine->Run({"cat", "/run/hx-script.pid"}).out;
    EXPECT_NE(secondPid, firstPid);
    EXPECT_NE(s_machine->Shell("kill -0 " + firstPid).status, 0);

    Inside([] {
        CInitService service;
        EXPECT_EQ(service.Stop("hx-script"), 0);
        EXPECT_EQ(service.Status("hx-script"), stopped);
    });
    EXPECT_NE(s_machine->Shell("kill -0 " + secondPid).status, 0);
}

TEST_F(MachineService, FailsForUnknownInitScript) {
    Inside([] { EXPECT_NE(CInitService().Status("hx-nowhere"), 0); });
}

}  // namespace
