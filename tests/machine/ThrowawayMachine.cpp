#include "machine/ThrowawayMachine.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "machine/Keeper.h"

namespace hx_test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto bootTimeout = 90s;
constexpr auto pollInterval = 50ms;

// Polls until `ask` returns true. Returns false on timeout or when the keeper has ended.
template <typename Ask>
bool Await(pid_t keeper, Ask ask) {
    const auto deadline = std::chrono::steady_clock::now() + bootTimeout;
    while (!ask()) {
        siginfo_t ended = {};
        waitid(P_PID, static_cast<id_t>(keeper), &ended, WEXITED | WNOHANG | WNOWAIT);
        if (ended.si_pid != 0 || std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(pollInterval);
    }
    return true;
}

// True for the first process of a nested namespace once it runs systemd.
bool IsContainerInit(pid_t pid) {
    const std::string directory = "/proc/" + std::to_string(pid);
    if (ReadFile(directory + "/comm") != "systemd\n")
        return false;
    std::ifstream status(directory + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("NSpid:"))
            return line.ends_with("\t1");
    }
    return false;
}

// False in a user namespace, whose root cannot boot a machine.
bool IsRootOfTheWholeMachine() {
    unsigned long inside = 1;
    unsigned long outside = 1;
    unsigned long count = 0;
    std::ifstream("/proc/self/uid_map") >> inside >> outside >> count;
    return geteuid() == 0 && inside == 0 && outside == 0 && count == 0xFFFFFFFF;
}

bool CanMakeNamespaces() {
    const pid_t child = fork();
    if (child == 0)
        _exit(unshare(CLONE_NEWPID | CLONE_NEWNS) == 0 ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0;
}

bool Enter(pid_t init) {
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, init, 0));
    const bool entered = setns(descriptor, CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWUTS |
                                               CLONE_NEWIPC | CLONE_NEWNET) == 0 &&
                         chdir("/") == 0;
    close(descriptor);
    // The machine has a separate /tmp.
    unsetenv("TMPDIR");
    return entered;
}

}  // namespace

std::string ThrowawayMachine::Hindrance() {
    if (!IsRootOfTheWholeMachine())
        return "a throwaway machine requires root";
    for (const char* program : {"systemd-nspawn", "nsenter", "systemctl"}) {
        if (hx_test::Run({"sh", "-c", "command -v \"$0\"", program}).status != 0)
            return std::string("a throwaway machine requires ") + program;
    }
    // Most containers cannot write there.
    if (access("/sys/fs/cgroup", W_OK) != 0)
        return "a throwaway machine requires control groups";
    if (!CanMakeNamespaces())
        return "a throwaway machine requires namespaces";
    return {};
}

bool ThrowawayMachine::Boot() {
    m_log = memfd_create("machine", MFD_CLOEXEC);
    m_keeper = StartKeeper(m_log);
    return m_keeper > 0 && WaitForInit() && WaitForSystemd();
}

bool ThrowawayMachine::WaitForInit() {
    return Await(m_keeper, [this] {
        for (const pid_t holder : ChildrenOf(m_keeper)) {
            for (const pid_t container : ChildrenOf(holder)) {
                for (const pid_t candidate : ChildrenOf(container)) {
                    if (IsContainerInit(candidate))
                        m_init = candidate;
                }
            }
        }
        return m_init > 0;
    });
}

// The state is "degraded" when a unit of the live machine cannot start here.
bool ThrowawayMachine::WaitForSystemd() {
    return Await(m_keeper, [this] {
        const std::string state = Run({"systemctl", "is-system-running"}).out;
        return state == "running\n" || state == "degraded\n";
    });
}

ThrowawayMachine::~ThrowawayMachine() {
    if (m_keeper > 0) {
        kill(m_keeper, SIGTERM);
        waitpid(m_keeper, nullptr, 0);
    }
    if (m_log >= 0)
        close(m_log);
}

ProcessResult ThrowawayMachine::Run(const std::vector<std::string>& command,
                                    const ProcessOptions& options) const {
    std::vector<std::string> inside = {"nsenter", "--target=" + std::to_string(m_init),
                                       "-m",      "-p",
                                       "-u",      "-i",
                                       "-n",      "--",
                                       "env",     "--unset=TMPDIR"};
    inside.insert(inside.end(), command.begin(), command.end());
    return hx_test::Run(inside, options);
}

std::string ThrowawayMachine::Output(const std::string& text) const {
    std::string out = Shell(text).out;
    if (!out.empty() && out.back() == '\n')
        out.pop_back();
    return out;
}

ProcessResult ThrowawayMachine::RunInChild(const std::function<void()>& body) const {
    return hx_test::RunInChild({}, [&] {
        if (!Enter(m_init)) {
            std::perror("cannot enter the machine");
            _exit(1);
        }
        // Only a new child is in the machine's pid namespace.
        const pid_t child = fork();
        if (child == 0) {
            body();
            std::fflush(nullptr);
            std::exit(testing::Test::HasFailure() ? 99 : 0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    });
}

std::string ThrowawayMachine::Path(const std::string& path) const {
    return "/proc/" + std::to_string(m_init) + "/root" + path;
}

void ThrowawayMachine::CopyIn(const std::string& from, const std::string& to) const {
    fs::copy(from, Path(to), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

std::string ThrowawayMachine::Log() const {
    return ReadFile("/proc/self/fd/" + std::to_string(m_log));
}

}  // namespace hx_test
