#include "machine/Keeper.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "machine/ControlGroups.h"

namespace hx_test {
namespace {

namespace fs = std::filesystem;

constexpr const char* MergedRoot = "/tmp/merged";

bool Mount(const char* what, const char* where, const char* type, unsigned long flags,
           const char* options) {
    if (mount(what, where, type, flags, options) == 0)
        return true;
    std::fprintf(stderr, "mounting %s on %s: ", what, where);
    std::perror(nullptr);
    return false;
}

// /tmp and /run of this namespace are hidden, so that what is written there vanishes with it.
bool BuildRoot() {
    if (!Mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) ||
        !Mount("proc", "/proc", "proc", 0, nullptr) ||
        !Mount("tmpfs", "/run", "tmpfs", 0, "mode=755") ||
        !Mount("tmpfs", "/tmp", "tmpfs", 0, "mode=755"))
        return false;
    for (const char* path : {"/tmp/upper", "/tmp/work", MergedRoot})
        mkdir(path, 0755);
    return Mount("overlay", MergedRoot, "overlay", 0,
                 "lowerdir=/,upperdir=/tmp/upper,workdir=/tmp/work");
}

// An empty id lets the machine take one of its own, and only what every system needs is started.
void MakeNeutral() {
    const fs::path etc = fs::path(MergedRoot) / "etc";
    std::ofstream(etc / "machine-id", std::ios::trunc).flush();
    std::error_code ignored;
    for (const fs::directory_entry& entry :
         fs::directory_iterator(etc / "systemd/system", ignored)) {
        if (entry.path().extension() == ".wants")
            fs::remove_all(entry.path(), ignored);
    }
}

[[noreturn]] void BecomeContainer() {
    execlp("systemd-nspawn", "systemd-nspawn", "-D", MergedRoot, "--machine=throwaway",
           "--register=no", "--keep-unit", "--private-network", "--link-journal=no",
           "--console=pipe", "-b", "systemd.unit=multi-user.target", nullptr);
    std::perror("systemd-nspawn");
    _exit(127);
}

// The first process of the machine's namespaces, whose death ends all others in them.
[[noreturn]] void Hold(pid_t keeper) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    EnterControlGroups(keeper);
    if (!BuildRoot())
        _exit(1);
    MakeNeutral();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const pid_t container = fork();
    if (container == 0)
        BecomeContainer();
    for (int status = 0;;) {
        const pid_t ended = wait(&status);
        if (ended == container || ended < 0)
            _exit(0);
    }
}

[[noreturn]] void Keep(pid_t test, int log) {
    setpgid(0, 0);
    sigset_t awaited;
    sigemptyset(&awaited);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&awaited, signal);
    sigprocmask(SIG_SETMASK, &awaited, nullptr);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != test)
        _exit(1);
    // Pipes of the test must not stay open here.
    dup2(open("/dev/null", O_RDONLY), 0);
    dup2(log, 1);
    dup2(log, 2);
    close_range(3, ~0U, 0);
    const pid_t keeper = getpid();
    MakeControlGroups(keeper);
    // Like fork, but into new namespaces.
    const long holder = syscall(SYS_clone, CLONE_NEWPID | CLONE_NEWNS | SIGCHLD, 0, 0, 0, 0);
    if (holder == 0)
        Hold(keeper);
    int signal = 0;
    if (holder > 0) {
        sigwait(&awaited, &signal);
        kill(static_cast<pid_t>(holder), SIGKILL);
        waitpid(static_cast<pid_t>(holder), nullptr, 0);
    } else {
        std::perror("making namespaces");
    }
    RemoveControlGroups(keeper);
    _exit(0);
}

}  // namespace

pid_t StartKeeper(int log) {
    const pid_t test = getpid();
    std::fflush(nullptr);
    const pid_t keeper = fork();
    if (keeper == 0)
        Keep(test, log);
    return keeper;
}

std::vector<pid_t> ChildrenOf(pid_t parent) {
    std::vector<pid_t> children;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid <= 0)
            continue;
        std::ifstream status(entry.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line == "PPid:\t" + std::to_string(parent))
                children.push_back(pid);
        }
    }
    return children;
}

}  // namespace hx_test
