// A throwaway machine does not change the live machine and leaves nothing, also when killed.
#include "machine/ThrowawayMachine.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "harness/TempDir.h"
#include "machine/Keeper.h"

namespace {

using hx_test::ThrowawayMachine;

const std::string marker = "/etc/hx_machine_was_here";

bool IsAlive(pid_t pid) {
    return kill(pid, 0) == 0;
}

bool BecomesTrue(const std::function<bool()>& condition) {
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

// A process that boots a machine, changes it, and waits to be killed.
class MachineOfAnotherProcess {
public:
    MachineOfAnotherProcess() {
        int ends[2] = {};
        if (pipe(ends) != 0)
            return;
        m_test = fork();
        if (m_test == 0) {
            ThrowawayMachine machine;
            const bool booted = machine.Boot() && machine.Shell("touch " + marker).status == 0 &&
                                machine.Run({"useradd", "hxguest"}).status == 0;
            (void)!write(ends[1], &booted, sizeof booted);
            pause();
            _exit(0);
        }
        (void)!read(ends[0], &m_booted, sizeof m_booted);
        close(ends[0]);
        close(ends[1]);
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
    return BecomesTrue([&] { return std::none_of(processes.begin(), processes.end(), IsAlive); });
}

class KilledMachine : public testing::Test {
protected:
    void SetUp() override {
        const std::string hindrance = ThrowawayMachine::Hindrance();
        if (!hindrance.empty())
            GTEST_SKIP() << hindrance;
        m_other = std::make_unique<MachineOfAnotherProcess>();
        ASSERT_TRUE(m_other->Booted());
        m_processes = DescendantsOf(m_other->Test());
        EXPECT_GT(m_processes.size(), 4U);
        EXPECT_FALSE(std::filesystem::exists(marker));
        EXPECT_NE(hx_test::Run({"id", "hxguest"}).status, 0);
    }

    pid_t Keeper() const { return m_processes.at(0); }

    std::unique_ptr<MachineOfAnotherProcess> m_other;
    std::vector<pid_t> m_processes;
};

TEST_F(KilledMachine, LeavesNothingWhenTestIsKilled) {
    m_other->Kill();
    EXPECT_TRUE(AllEnd(m_processes));
    EXPECT_EQ(ControlGroupsOf(Keeper()), "");
    EXPECT_EQ(hx_test::ReadFile("/proc/self/mounts").find("/tmp/merged"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(marker));
}

TEST_F(KilledMachine, LeavesGroupsToNextMachineWhenKeeperIsKilled) {
    kill(Keeper(), SIGKILL);
    EXPECT_TRUE(AllEnd({m_processes.begin() + 1, m_processes.end()}));
    m_other->Kill();
    EXPECT_TRUE(AllEnd(m_processes));
    // As the next machine does.
    hx_test::MakeControlGroups(getpid());
    EXPECT_NE(ControlGroupsOf(getpid()), "");
    hx_test::RemoveControlGroups(getpid());
    EXPECT_EQ(ControlGroupsOf(Keeper()) + ControlGroupsOf(getpid()), "");
}

}  // namespace
