#include "apps/TracedSetup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <map>
#include <set>

#include "harness/TempDir.h"

namespace hx_test {
namespace {

constexpr const char* processNames[setupProcesses] = {"parent", "child", "script"};

const std::set<uint64_t> changingCalls = {
    SYS_mount,     SYS_umount2,   SYS_unshare,   SYS_clone,     SYS_clone3,    SYS_fork,
    SYS_vfork,     SYS_execve,    SYS_mkdir,     SYS_mkdirat,   SYS_rename,    SYS_renameat,
    SYS_renameat2, SYS_link,      SYS_linkat,    SYS_symlink,   SYS_symlinkat, SYS_unlink,
    SYS_unlinkat,  SYS_rmdir,     SYS_chmod,     SYS_fchmod,    SYS_fchmodat,  SYS_chown,
    SYS_fchown,    SYS_fchownat,  SYS_lchown,    SYS_ftruncate, SYS_write,     SYS_sendmsg,
    SYS_flock,     SYS_utimensat, SYS_fsetxattr, SYS_setxattr,  SYS_wait4,     SYS_recvmsg};

bool CanChange(uint64_t call, const uint64_t* arguments) {
    constexpr uint64_t writing = O_CREAT | O_WRONLY | O_RDWR | O_TRUNC;
    return changingCalls.contains(call) || (call == SYS_openat && (arguments[2] & writing) != 0) ||
           (call == SYS_open && (arguments[1] & writing) != 0);
}

[[noreturn]] void BeginTracee(const std::vector<std::string>& command, int output) {
    const int input = open("/dev/null", O_RDONLY);
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
    std::vector<char*> argv;
    for (const std::string& word : command)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    execv(argv[0], argv.data());
    _exit(127);
}

class Tracer {
public:
    Tracer(pid_t parent, const Strike& strike) : m_parent(parent), m_strike(strike) {
        m_roles[parent] = SetupProcess::Parent;
        m_seen.insert(parent);
    }

    void FollowAll() {
        int status = 0;
        waitpid(m_parent, &status, 0);
        constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                                 PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC;
        ptrace(PTRACE_SETOPTIONS, m_parent, nullptr, options);
        ptrace(PTRACE_SYSCALL, m_parent, nullptr, nullptr);
        for (pid_t pid; (pid = waitpid(-1, &status, __WALL)) > 0;) {
            if (WIFSTOPPED(status))
                Continue(pid, status);
            else if (pid == m_parent)
                m_result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }

    TracedResult Result() const { return m_result; }

private:
    void Continue(pid_t pid, int status) {
        const bool isNew = m_seen.insert(pid).second;
        const int signal = WSTOPSIG(status);
        const int event = status >> 16;
        int delivered = 0;
        if (event != 0)
            NoteEvent(pid, event);
        else if (signal == (SIGTRAP | 0x80))
            NoteCall(pid);
        else if (!isNew || signal != SIGSTOP)
            delivered = signal;
        // A process without a role need not stop at its calls.
        const bool counts = m_result.struckCall.empty() && m_roles.contains(pid);
        ptrace(counts ? PTRACE_SYSCALL : PTRACE_CONT, pid, nullptr, delivered);
    }

    void NoteEvent(pid_t pid, int event) {
        unsigned long message = 0;
        ptrace(PTRACE_GETEVENTMSG, pid, nullptr, &message);
        const auto other = static_cast<pid_t>(message);
        if (event == PTRACE_EVENT_EXEC) {
            const std::string command = ReadFile("/proc/" + std::to_string(pid) + "/cmdline");
            if (command.find("/corvane26_commit_") != std::string::npos)
                m_roles[pid] = SetupProcess::Script;
        } else if (pid == m_parent && m_childIsKnown == false) {
            m_childIsKnown = true;
            m_roles[other] = SetupProcess::Child;
        }
    }

    void NoteCall(pid_t pid) {
        struct __ptrace_syscall_info call = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof call, &call);
        const auto role = m_roles.find(pid);
        if (call.op != PTRACE_SYSCALL_INFO_ENTRY || role == m_roles.end() ||
            !CanChange(call.entry.nr, reinterpret_cast<const uint64_t*>(call.entry.args)))
            return;
        const auto index = static_cast<size_t>(role->second);
        const size_t number = ++m_result.calls[index];
        // The setup notes in its lock that the merge begins.
        if (role->second == SetupProcess::Parent && call.entry.nr == SYS_ftruncate &&
            call.entry.args[1] == 1)
            m_result.callsBeforeMerge = number - 1;
        if (role->second == m_strike.process && number == m_strike.call) {
            m_result.struckCall = std::string(processNames[index]) + ' ' + std::to_string(number) +
                                  " (system call " + std::to_string(call.entry.nr) + ')';
            kill(pid, m_strike.signal);
        }
    }

    pid_t m_parent;
    Strike m_strike;
    std::map<pid_t, SetupProcess> m_roles;
    std::set<pid_t> m_seen;
    bool m_childIsKnown = false;
    TracedResult m_result;
};

}  // namespace

TracedResult RunTraced(const std::vector<std::string>& command, const Strike& strike) {
    const int output = memfd_create("output", MFD_CLOEXEC);
    const pid_t child = fork();
    if (child == 0)
        BeginTracee(command, output);
    Tracer tracer(child, strike);
    tracer.FollowAll();
    TracedResult result = tracer.Result();
    result.output = ReadFile("/proc/self/fd/" + std::to_string(output));
    close(output);
    return result;
}

}  // namespace hx_test
