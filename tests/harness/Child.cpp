#include "harness/Child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "harness/TempDir.h"

namespace hx_test {
namespace {

constexpr int SetUpFailed = 98;
constexpr int ExpectationFailed = 99;

bool WriteTo(const char* path, const std::string& text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return written;
}

// Maps the one id of the new namespace to the id outside.
bool EnterNamespaces(World::Identity identity) {
    const std::string inside = identity == World::Identity::Root ? "0 " : "1000 ";
    const std::string uids = inside + std::to_string(geteuid()) + " 1";
    const std::string gids = inside + std::to_string(getegid()) + " 1";
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && WriteTo("/proc/self/uid_map", uids) &&
           WriteTo("/proc/self/setgroups", "deny") && WriteTo("/proc/self/gid_map", gids) &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool BindAll(const World& world) {
    for (const auto& [what, over] : world.binds) {
        if (mount(what.c_str(), over.c_str(), nullptr, MS_BIND, nullptr) != 0)
            return false;
    }
    return true;
}

bool DropCapabilities() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2] = {};
    return syscall(SYS_capset, &header, none) == 0;
}

void Redirect(const std::string& path, int flags, int fd) {
    const int file = open(path.c_str(), flags | O_CLOEXEC, 0600);
    dup2(file, fd);
    close(file);
}

[[noreturn]] void RunBody(const World& world, const TempDir& streams,
                          const std::function<void()>& body) {
    Redirect(streams / "in", O_RDONLY, 0);
    // A test in this process can have read its own input to the end.
    std::clearerr(stdin);
    Redirect(streams / "out", O_WRONLY | O_CREAT | O_APPEND, 1);
    Redirect(streams / "err", O_WRONLY | O_CREAT | O_APPEND, 2);
    if (!EnterWorld(world)) {
        std::perror("cannot enter the namespaces of the child");
        _exit(SetUpFailed);
    }
    CallAndReport(body);
    std::fflush(nullptr);
    std::exit(testing::Test::HasFailure() ? ExpectationFailed : 0);
}

}  // namespace

bool NamespacesAvailable() {
    static const bool available = [] {
        const pid_t child = fork();
        if (child == 0)
            _exit(EnterNamespaces(World::Identity::Root) ? 0 : 1);
        int status = 0;
        waitpid(child, &status, 0);
        return status == 0;
    }();
    return available;
}

void CallAndReport(const std::function<void()>& body) {
    try {
        body();
    } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
    }
}

bool EnterWorld(const World& world) {
    if (world.identity == World::Identity::Unchanged)
        return world.binds.empty();
    return EnterNamespaces(world.identity) && BindAll(world) &&
           (world.identity == World::Identity::Root || DropCapabilities());
}

ProcessResult RunInChild(const World& world, const std::function<void()>& body) {
    const TempDir streams;
    WriteFile(streams / "in", world.input);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        RunBody(world, streams, body);
    int status = 0;
    waitpid(child, &status, 0);
    ProcessResult result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = ReadFile(streams / "out");
    result.err = ReadFile(streams / "err");
    return result;
}

}  // namespace hx_test
