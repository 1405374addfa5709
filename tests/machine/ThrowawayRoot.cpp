#include "machine/ThrowawayRoot.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "harness/Child.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {

constexpr int SetUpFailed = 98;
constexpr int ExpectationFailed = 99;

// Exists everywhere, and no file that a test needs lies below it.
constexpr const char* Workbench = "/sys";

bool MakeMounts() {
    const std::string bench = Workbench;
    const std::string layers = "lowerdir=/,upperdir=" + bench + "/upper,workdir=" + bench + "/work";
    const std::string root = bench + "/root";
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", Workbench, "tmpfs", 0, "mode=755") == 0 &&
           mkdir((bench + "/upper").c_str(), 0755) == 0 &&
           mkdir((bench + "/work").c_str(), 0755) == 0 && mkdir(root.c_str(), 0755) == 0 &&
           mount("overlay", root.c_str(), "overlay", 0, layers.c_str()) == 0 &&
           mount("/dev", (root + "/dev").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           mount("proc", (root + "/proc").c_str(), "proc", 0, nullptr) == 0;
}

bool EnterRoot() {
    return MakeMounts() && chroot((std::string(Workbench) + "/root").c_str()) == 0 &&
           chdir("/") == 0;
}

// The first process of its namespace: when it ends, the kernel ends all others and the mounts.
[[noreturn]] void RunAsFirstProcess(const std::function<void()>& body) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!EnterRoot()) {
        std::perror("making a throwaway root");
        _exit(SetUpFailed);
    }
    CallAndReport(body);
    std::fflush(nullptr);
    std::exit(testing::Test::HasFailure() ? ExpectationFailed : 0);
}

// `parent` may have died before the kernel was told whose death matters.
void DieWith(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(SetUpFailed);
}

[[noreturn]] void RunInNamespaces(pid_t test, const std::function<void()>& body) {
    DieWith(test);
    if (unshare(CLONE_NEWNS | CLONE_NEWPID) != 0) {
        std::perror("making namespaces");
        _exit(SetUpFailed);
    }
    const pid_t child = fork();
    if (child == 0)
        RunAsFirstProcess(body);
    int status = 0;
    waitpid(child, &status, 0);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

// Real root changes owners, and finds the system's own programs in the copy.
bool CopyIsOfUse() {
    const char* file = "/hx_test_owner";
    WriteFile(file, "");
    return chown(file, 12345, 12345) == 0 && access("/bin/bash", X_OK) == 0 &&
           access("/usr/sbin/useradd", X_OK) == 0 && access("/var", W_OK) == 0;
}

void SkipBecause(const std::string& reason) {
    GTEST_SKIP() << reason;
}

}  // namespace

ProcessResult RunInThrowawayRoot(const std::function<void()>& body) {
    const pid_t test = getpid();
    return RunInChild({}, [&] { RunInNamespaces(test, body); });
}

std::string NoThrowawayRootReason() {
    if (geteuid() != 0) {
        return Run({"sudo", "-n", "id", "-u"}).out == "0\n"
                   ? ""
                   : "real root is needed, and sudo does not give it without a password";
    }
    static const ProcessResult probe = RunInThrowawayRoot([] {
        if (!CopyIsOfUse())
            std::exit(1);
    });
    return probe.status == 0 ? ""
                             : "overlay mounts as real root are needed: status " +
                                   std::to_string(probe.status) + " " + probe.err;
}

bool RanThroughSudo() {
    if (geteuid() == 0)
        return false;
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    const std::string filter =
        std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    const char* options = std::getenv("LSAN_OPTIONS");
    const auto result =
        Run({"sudo", "-n", "env", std::string("LSAN_OPTIONS=") + (options ? options : ""), program,
             filter});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    if (result.out.find("[  SKIPPED ]") != std::string::npos)
        SkipBecause(result.out);
    return true;
}

}  // namespace hx_test
