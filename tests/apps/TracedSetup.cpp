#include "apps/TracedSetup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <map>
#include <set>
#include <sstream>

#include "harness/TempDir.h"

namespace hx_test {
namespace {

constexpr const char* processNames[setupProcesses] = {"parent", "child", "script", "tar"};

constexpr unsigned changingCalls[] = {
    SYS_mount,     SYS_umount2,   SYS_unshare,   SYS_clone,     SYS_clone3,    SYS_fork,
    SYS_vfork,     SYS_execve,    SYS_mkdir,     SYS_mkdirat,   SYS_rename,    SYS_renameat,
    SYS_renameat2, SYS_link,      SYS_linkat,    SYS_symlink,   SYS_symlinkat, SYS_unlink,
    SYS_unlinkat,  SYS_rmdir,     SYS_chmod,     SYS_fchmod,    SYS_fchmodat,  SYS_chown,
    SYS_fchown,    SYS_fchownat,  SYS_lchown,    SYS_ftruncate, SYS_write,     SYS_sendmsg,
    SYS_flock,     SYS_utimensat, SYS_fsetxattr, SYS_setxattr,  SYS_wait4,     SYS_recvmsg};

// Stops the process and its descendants at calls that can change something, and at no others.
bool StopAtChangingCalls() {
    constexpr unsigned writing = O_CREAT | O_WRONLY | O_RDWR | O_TRUNC;
    const sock_filter stop = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE);
    std::vector<sock_filter> filter = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const unsigned call : changingCalls) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        filter.push_back(stop);
    }
    constexpr std::pair<unsigned, size_t> opening[] = {{SYS_open, 1}, {SYS_openat, 2}};
    for (const auto& [call, flags] : opening) {
        const size_t argument = offsetof(seccomp_data, args) + flags * sizeof(uint64_t);
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 4));
        filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(argument)));
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, writing, 0, 1));
        filter.push_back(stop);
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
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
    if (!StopAtChangingCalls())
        _exit(126);
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
        constexpr long options = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                                 PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC;
        ptrace(PTRACE_SETOPTIONS, m_parent, nullptr, options);
        ptrace(PTRACE_CONT, m_parent, nullptr, nullptr);
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
        if (event == PTRACE_EVENT_SECCOMP)
            NoteCall(pid);
        else if (event != 0)
            NoteEvent(pid, event);
        else if (!isNew || signal != SIGSTOP)
            delivered = signal;
        ptrace(PTRACE_CONT, pid, nullptr, delivered);
    }

    void NoteEvent(pid_t pid, int event) {
        unsigned long message = 0;
        ptrace(PTRACE_GETEVENTMSG, pid, nullptr, &message);
        const auto other = static_cast<pid_t>(message);
        if (event == PTRACE_EVENT_EXEC) {
            const std::string command = ReadFile("/proc/" + std::to_string(pid) + "/cmdline");
            if (command.find("/corvane26_commit_") != std::string::npos)
                m_roles[pid] = SetupProcess::Script;
            if (command.find(std::string("/tar\0-xv", 8)) != std::string::npos)
                m_roles[pid] = SetupProcess::Unpacking;
        } else if (pid == m_parent && !m_childIsKnown) {
            m_childIsKnown = true;
            m_roles[other] = SetupProcess::Child;
        }
    }

    void NoteCall(pid_t pid) {
        const auto role = m_roles.find(pid);
        if (role == m_roles.end() || !m_result.struckCall.empty())
            return;
        struct __ptrace_syscall_info call = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof call, &call);
        const auto index = static_cast<size_t>(role->second);
        const size_t number = ++m_result.calls[index];
        // The setup notes in its lock that the merge begins.
        if (role->second == SetupProcess::Parent && call.seccomp.nr == SYS_ftruncate &&
            call.seccomp.args[1] == 1)
            m_result.callsBeforeMerge = number - 1;
        if (role->second == m_strike.process && number == m_strike.call) {
            m_result.struckCall = std::string(processNames[index]) + ' ' + std::to_string(number) +
                                  " (system call " + std::to_string(call.seccomp.nr) + ')';
            if (m_strike.action)
                m_strike.action();
            else
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

TracedResult TraceUndisturbed(const std::function<void()>& prepare,
                              const std::vector<std::string>& command) {
    TracedResult whole;
    const std::string counts = ResultInRoot([&] {
        prepare();
        const TracedResult result = RunTraced(command);
        EXPECT_EQ(result.status, 0) << result.output;
        std::string text;
        for (const size_t calls : result.calls)
            text += std::to_string(calls) + ' ';
        return text + std::to_string(result.callsBeforeMerge);
    });
    std::istringstream stream(counts);
    for (size_t& calls : whole.calls)
        stream >> calls;
    stream >> whole.callsBeforeMerge;
    return whole;
}

size_t StrikeEachCall(size_t distance, const std::function<std::string(size_t call)>& strike) {
    size_t struck = 0;
    for (size_t call = 1;; call += distance) {
        SCOPED_TRACE("call " + std::to_string(call));
        if (strike(call).empty())
            return struck;
        ++struck;
    }
}

}  // namespace hx_test
