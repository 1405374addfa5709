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

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace hx_test {
namespace {

namespace fs = std::filesystem;

constexpr const char* mergedRoot = "/tmp/merged";

const std::string prefix = "hx_machine_";

// The hierarchies that systemd uses: two on a hybrid system, otherwise one.
std::vector<fs::path> Hierarchies() {
    std::vector<fs::path> found;
    for (const char* path :
         {"/sys/fs/cgroup/systemd", "/sys/fs/cgroup/unified", "/sys/fs/cgroup"}) {
        if (fs::exists(fs::path(path) / "cgroup.procs"))
            found.emplace_back(path);
    }
    return found;
}

fs::path GroupOf(const fs::path& hierarchy, pid_t owner) {
    return hierarchy / (prefix + std::to_string(owner));
}

// The kernel owns the files in a group. Removing the directories removes the group.
void RemoveGroup(const fs::path& group) {
    std::error_code ignored;
    std::vector<fs::path> inner;
    for (const fs::directory_entry& entry : fs::directory_iterator(group, ignored)) {
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored))
            inner.push_back(entry.path());
    }
    for (const fs::path& path : inner)
        RemoveGroup(path);
    fs::remove(group, ignored);
}

void RemoveAbandonedGroups(const fs::path& hierarchy) {
    std::error_code ignored;
    std::vector<fs::path> abandoned;
    for (const fs::directory_entry& entry : fs::directory_iterator(hierarchy, ignored)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(prefix))
            continue;
        const pid_t owner = std::atoi(name.c_str() + prefix.size());
        if (owner > 0 && kill(owner, 0) != 0 && errno == ESRCH)
            abandoned.push_back(entry.path());
    }
    for (const fs::path& group : abandoned)
        RemoveGroup(group);
}

void EnterControlGroups(pid_t owner) {
    // 0 means the writing process.
    for (const fs::path& hierarchy : Hierarchies())
        std::ofstream(GroupOf(hierarchy, owner) / "cgroup.procs") << 0 << std::endl;
}

bool Mount(const char* what, const char* where, const char* type, unsigned long flags,
           const char* options) {
    if (mount(what, where, type, flags, options) == 0)
        return true;
    std::fprintf(stderr, "cannot mount %s on %s: ", what, where);
    std::perror(nullptr);
    return false;
}

// The new /tmp and /run disappear with this namespace.
bool BuildRoot() {
    if (!Mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) ||
        !Mount("proc", "/proc", "proc", 0, nullptr) ||
        !Mount("tmpfs", "/run", "tmpfs", 0, "mode=755") ||
        !Mount("tmpfs", "/tmp", "tmpfs", 0, "mode=755"))
        return false;
    for (const char* path : {"/tmp/upper", "/tmp/work", mergedRoot})
        mkdir(path, 0755);
    return Mount("overlay", mergedRoot, "overlay", 0,
                 "lowerdir=/,upperdir=/tmp/upper,workdir=/tmp/work");
}

// With an empty id the machine generates one. Without wants, only basic units start. Of the
// generators, which take most of the time of a reload, the one for init scripts is enough.
void MakeNeutral() {
    const fs::path etc = fs::path(mergedRoot) / "etc";
    std::ofstream(etc / "machine-id", std::ios::trunc).flush();
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(
             fs::path(mergedRoot) / "usr/lib/systemd/system-generators", ignored)) {
        if (entry.path().filename() != "systemd-sysv-generator")
            fs::remove(entry.path(), ignored);
    }
    for (const fs::directory_entry& entry :
         fs::directory_iterator(etc / "systemd/system", ignored)) {
        if (entry.path().extension() == ".wants")
            fs::remove_all(entry.path(), ignored);
    }
}

[[noreturn]] void BecomeContainer() {
    execlp("systemd-nspawn", "systemd-nspawn", "-D", mergedRoot, "--machine=throwaway",
           "--register=no", "--keep-unit", "--private-network", "--link-journal=no",
           "--console=pipe", "-b", "systemd.unit=multi-user.target", nullptr);
    std::perror("systemd-nspawn");
    _exit(127);
}

// The first process of the machine's namespaces. Its end ends all others.
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
    // Pipes of the test must not stay open in the keeper.
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
        std::perror("cannot make namespaces");
    }
    RemoveControlGroups(keeper);
    _exit(0);
}

}  // namespace

void MakeControlGroups(pid_t owner) {
    for (const fs::path& hierarchy : Hierarchies()) {
        RemoveAbandonedGroups(hierarchy);
        std::error_code ignored;
        fs::create_directory(GroupOf(hierarchy, owner), ignored);
    }
}

void RemoveControlGroups(pid_t owner) {
    for (const fs::path& hierarchy : Hierarchies())
        RemoveGroup(GroupOf(hierarchy, owner));
}

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
