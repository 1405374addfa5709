// The harness itself: a machine is real, apart from the live one, and leaves nothing behind.
#include "machine/ThrowawayMachine.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

#include "harness/TempDir.h"
#include "machine/Keeper.h"

namespace {

using hx_test::ThrowawayMachine;

bool IsAlive(pid_t pid) {
    return kill(pid, 0) == 0;
}

bool ComesTrue(const std::function<bool()>& condition) {
    for (int i = 0; i < 200; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

std::vector<pid_t> DescendantsOf(pid_t ancestor) {
    std::vector<pid_t> found;
    for (const pid_t child : hx_test::ChildrenOf(ancestor)) {
        found.push_back(child);
        const std::vector<pid_t> further = DescendantsOf(child);
        found.insert(found.end(), further.begin(), further.end());
    }
    return found;
}

std::string ControlGroupsOf(pid_t keeper) {
    const std::string name = "hx_machine_" + std::to_string(keeper);
    return hx_test::Run({"find", "/sys/fs/cgroup", "-name", name}).out;
}

// A process like a test's that boots a machine and then waits to be killed.
class MachineOfAnotherProcess {
public:
    MachineOfAnotherProcess() {
        int told[2] = {};
        if (pipe(told) != 0)
            return;
        m_test = fork();
        if (m_test == 0) {
            ThrowawayMachine machine;
            const bool booted = machine.Boot();
            (void)!write(told[1], &booted, sizeof booted);
            pause();
            _exit(0);
        }
        (void)!read(told[0], &m_booted, sizeof m_booted);
        close(told[0]);
        close(told[1]);
    }
    ~MachineOfAnotherProcess() { Kill(); }
    MachineOfAnotherProcess(const MachineOfAnotherProcess&) = delete;
    MachineOfAnotherProcess& operator=(const MachineOfAnotherProcess&) = delete;

    bool Booted() const { return m_booted; }
    pid_t Test() const { return m_test; }

    void Kill() {
        if (m_test <= 0)
            return;
        kill(m_test, SIGKILL);
        waitpid(m_test, nullptr, 0);
        m_test = -1;
    }

private:
    pid_t m_test = -1;
    bool m_booted = false;
};

bool AllEnd(const std::vector<pid_t>& processes) {
    return ComesTrue([&] { return std::none_of(processes.begin(), processes.end(), IsAlive); });
}

class Machine : public testing::Test {
protected:
    void SetUp() override {
        const std::string hindrance = ThrowawayMachine::Hindrance();
        if (!hindrance.empty())
            GTEST_SKIP() << hindrance;
    }
};

TEST_F(Machine, BootsIsApartFromTheLiveMachineAndLeavesNothing) {
    const hx_test::TempDir directory;
    hx_test::WriteFile(directory / "note", "carried in");
    const std::string marker = "/etc/hx_machine_was_here";
    pid_t init = -1;
    {
        ThrowawayMachine machine;
        ASSERT_TRUE(machine.Boot()) << machine.Log();
        init = machine.Init();
        EXPECT_EQ(machine.Run({"cat", "/proc/1/comm"}).out, "systemd\n");

        const auto streams = machine.Shell("cat; echo problem >&2; exit 7");
        EXPECT_EQ(streams.status, 7);
        EXPECT_EQ(streams.err, "problem\n");
        EXPECT_EQ(machine.Run({"cat"}, {.input = "typed"}).out, "typed");

        machine.CopyIn(directory / "note", "/root/note");
        EXPECT_EQ(machine.Run({"cat", "/root/note"}).out, "carried in");

        EXPECT_EQ(machine.Shell("useradd hxguest && touch " + marker).status, 0);
        EXPECT_EQ(machine.Run({"id", "-u", "-n", "hxguest"}).out, "hxguest\n");
        EXPECT_TRUE(std::filesystem::exists(machine.Path(marker)));
        EXPECT_FALSE(std::filesystem::exists(marker));
        EXPECT_NE(hx_test::Run({"id", "hxguest"}).status, 0);
    }
    EXPECT_FALSE(IsAlive(init));
    EXPECT_FALSE(std::filesystem::exists(marker));
}

TEST_F(Machine, RunsAPieceOfATestInside) {
    ThrowawayMachine machine;
    ASSERT_TRUE(machine.Boot()) << machine.Log();
    const auto inside = machine.RunInChild([] {
        EXPECT_EQ(hx_test::ReadFile("/proc/1/comm"), "systemd\n");
        std::puts("said inside");
    });
    EXPECT_EQ(inside.status, 0) << inside.out << inside.err;
    EXPECT_EQ(inside.out, "said inside\n");
    EXPECT_EQ(machine.RunInChild([] { EXPECT_TRUE(false); }).status, 99);
}

TEST_F(Machine, StandsBesideAnother) {
    ThrowawayMachine one;
    ThrowawayMachine other;
    ASSERT_TRUE(one.Boot()) << one.Log();
    ASSERT_TRUE(other.Boot()) << other.Log();
    EXPECT_EQ(one.Shell("echo one > /etc/which").status, 0);
    EXPECT_NE(other.Run({"test", "-e", "/etc/which"}).status, 0);
    EXPECT_EQ(other.Run({"systemctl", "restart", "systemd-journald"}).status, 0);
    EXPECT_EQ(one.Run({"systemctl", "is-active", "systemd-journald"}).out, "active\n");
}

TEST_F(Machine, DiesWithAKilledTestAndLeavesNothing) {
    MachineOfAnotherProcess other;
    ASSERT_TRUE(other.Booted());
    const std::vector<pid_t> processes = DescendantsOf(other.Test());
    const pid_t keeper = processes.at(0);
    EXPECT_GT(processes.size(), 4U);
    other.Kill();
    EXPECT_TRUE(AllEnd(processes));
    EXPECT_EQ(ControlGroupsOf(keeper), "");
    EXPECT_EQ(hx_test::ReadFile("/proc/self/mounts").find("/tmp/merged"), std::string::npos);
}

TEST_F(Machine, DiesWithItsKilledKeeperAndTheNextOneRemovesTheControlGroups) {
    MachineOfAnotherProcess other;
    ASSERT_TRUE(other.Booted());
    const std::vector<pid_t> processes = DescendantsOf(other.Test());
    const pid_t keeper = processes.at(0);
    kill(keeper, SIGKILL);
    EXPECT_TRUE(AllEnd({processes.begin() + 1, processes.end()}));
    other.Kill();
    EXPECT_TRUE(AllEnd(processes));
    ThrowawayMachine next;
    ASSERT_TRUE(next.Boot()) << next.Log();
    EXPECT_EQ(ControlGroupsOf(keeper), "");
}

}  // namespace
