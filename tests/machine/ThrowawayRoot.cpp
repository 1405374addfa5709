#include "machine/ThrowawayRoot.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "harness/Child.h"
#include "harness/TempDir.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

constexpr int SetUpFailed = 98;
constexpr int ExpectationFailed = 99;

// Exists everywhere, and no test needs a file below it.
constexpr const char* Workbench = "/sys";

// The workbench, for paths from inside the root.
int benchDescriptor = -1;

bool MakeDirectories(const std::string& bench) {
    for (const char* name : {"/lower", "/upper", "/work", "/root"}) {
        if (mkdir((bench + name).c_str(), 0755) != 0)
            return false;
    }
    return true;
}

// The bind mount shows the lower directory without the file systems that are mounted below it.
bool MakeMounts() {
    const std::string bench = Workbench;
    const std::string layers = "lowerdir=/,upperdir=" + bench + "/upper,workdir=" + bench + "/work";
    const std::string root = bench + "/root";
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", Workbench, "tmpfs", 0, "mode=755") == 0 && MakeDirectories(bench) &&
           mount("/", (bench + "/lower").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           mount("overlay", root.c_str(), "overlay", 0, layers.c_str()) == 0 &&
           mount("/dev", (root + "/dev").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           mount("proc", (root + "/proc").c_str(), "proc", 0, nullptr) == 0;
}

bool EnterRoot() {
    if (!MakeMounts())
        return false;
    benchDescriptor = open(Workbench, O_PATH | O_DIRECTORY | O_CLOEXEC);
    return chroot((std::string(Workbench) + "/root").c_str()) == 0 && chdir("/") == 0;
}

// The first process of its namespace: when it ends, the kernel ends all others and the mounts.
[[noreturn]] void RunAsFirstProcess(const std::function<void()>& body) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!EnterRoot()) {
        std::perror("cannot make a throwaway root");
        _exit(SetUpFailed);
    }
    CallAndReport(body);
    std::fflush(nullptr);
    std::exit(testing::Test::HasFailure() ? ExpectationFailed : 0);
}

// The parent may have died before prctl took effect.
void DieWith(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(SetUpFailed);
}

[[noreturn]] void RunInNamespaces(pid_t test, const std::function<void()>& body) {
    DieWith(test);
    if (unshare(CLONE_NEWNS | CLONE_NEWPID) != 0) {
        std::perror("cannot make namespaces");
        _exit(SetUpFailed);
    }
    const pid_t child = fork();
    if (child == 0)
        RunAsFirstProcess(body);
    int status = 0;
    waitpid(child, &status, 0);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

// The two layers of the root the calling process is in.
class Layers {
public:
    struct Change {
        std::string text;
        ino_t inode = 0;
        timespec written = {};  // zero for a directory

        bool operator==(const Change& other) const {
            return text == other.text && inode == other.inode &&
                   written.tv_sec == other.written.tv_sec &&
                   written.tv_nsec == other.written.tv_nsec;
        }
    };
    using Changes = std::map<std::string, Change>;

    Changes FindAll() {
        Compare("", true);
        return m_changes;
    }

private:
    struct Entry {
        struct stat status = {};
        std::string link;

        bool IsDirectory() const { return S_ISDIR(status.st_mode); }
        mode_t Kind() const { return status.st_mode & S_IFMT; }
    };

    static fs::path In(const char* layer, const std::string& path) {
        return "/proc/self/fd/" + std::to_string(benchDescriptor) + "/" + layer + path;
    }

    static std::optional<Entry> Find(const fs::path& path) {
        Entry entry;
        if (lstat(path.c_str(), &entry.status) != 0)
            return {};
        if (S_ISLNK(entry.status.st_mode))
            entry.link = fs::read_symlink(path);
        return entry;
    }

    static const char* NameOf(mode_t kind) {
        switch (kind) {
            case S_IFREG:
                return "file";
            case S_IFDIR:
                return "directory";
            case S_IFLNK:
                return "link";
            default:
                return "special";
        }
    }

    void Add(const std::string& path, const std::string& change, const Entry& entry) {
        std::ostringstream text;
        text << ' ' << change << ' ' << NameOf(entry.Kind()) << ' ' << std::oct
             << (entry.status.st_mode & 07777U) << std::dec << ' ' << entry.status.st_uid << ':'
             << entry.status.st_gid;
        if (!entry.link.empty())
            text << " -> " << entry.link;
        m_changes[path] = {text.str(), entry.status.st_ino,
                           entry.IsDirectory() ? timespec() : entry.status.st_mtim};
    }

    // What differs, or nothing. A file that was only copied up keeps its time of modification.
    static std::string Differences(const std::string& path, const Entry& upper,
                                   const Entry& lower) {
        std::string text;
        const auto add = [&text](const char* word) {
            text += (text.empty() ? "" : ",") + std::string(word);
        };
        const bool sameText = upper.link == lower.link &&
                              (!S_ISREG(upper.status.st_mode) ||
                               ReadFile(In("upper", path)) == ReadFile(In("lower", path)));
        if (!sameText)
            add("content");
        else if (S_ISREG(upper.status.st_mode) &&
                 (upper.status.st_mtim.tv_sec != lower.status.st_mtim.tv_sec ||
                  upper.status.st_mtim.tv_nsec != lower.status.st_mtim.tv_nsec))
            add("rewritten");
        if (upper.status.st_mode != lower.status.st_mode)
            add("mode");
        if (upper.status.st_uid != lower.status.st_uid ||
            upper.status.st_gid != lower.status.st_gid)
            add("owner");
        return text;
    }

    static bool IsOpaque(const fs::path& path) {
        char value = 0;
        return getxattr(path.c_str(), "trusted.overlay.opaque", &value, 1) == 1 && value == 'y';
    }

    static std::set<std::string> NamesIn(const fs::path& directory) {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory))
            names.insert(entry.path().filename());
        return names;
    }

    // `path` is a directory of the upper layer; `merged`: with one of the lower layer below it.
    void Compare(const std::string& path, bool merged) {
        for (const std::string& name : NamesIn(In("upper", path))) {
            const std::string inner = path + "/" + name;
            CompareEntry(inner, *Find(In("upper", inner)),
                         merged ? Find(In("lower", inner)) : std::nullopt);
        }
    }

    void CompareEntry(const std::string& path, const Entry& upper,
                      const std::optional<Entry>& lower) {
        if (S_ISCHR(upper.status.st_mode) && upper.status.st_rdev == makedev(0, 0)) {
            if (lower)
                Add(path, "deleted", *lower);
            return;
        }
        const bool replaced = lower && (lower->Kind() != upper.Kind() ||
                                        (upper.IsDirectory() && IsOpaque(In("upper", path))));
        if (!lower) {
            Add(path, "created", upper);
        } else if (replaced) {
            Add(path, "replaced", upper);
        } else {
            const std::string differences = Differences(path, upper, *lower);
            if (!differences.empty())
                Add(path, differences, upper);
        }
        if (upper.IsDirectory())
            Compare(path, lower && !replaced);
        if (replaced && upper.IsDirectory() && lower->IsDirectory())
            AddHidden(path);
    }

    // The entries of a lower directory that an opaque one replaced.
    void AddHidden(const std::string& path) {
        for (const std::string& name : NamesIn(In("lower", path))) {
            const std::string inner = path + "/" + name;
            if (!Find(In("upper", inner)))
                Add(inner, "deleted", *Find(In("lower", inner)));
        }
    }

    Changes m_changes;
};

Layers::Changes markedChanges;

// Real root can change owners, and the copy contains the system's programs.
bool CopyIsUsable() {
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

void ExpectScenario(const std::function<void()>& body) {
    const ProcessResult result = RunInThrowawayRoot(body);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

std::vector<std::string> ChangedPaths() {
    std::map<std::string, std::string> lines;
    const Layers::Changes changes = Layers().FindAll();
    for (const auto& [path, change] : changes) {
        const auto marked = markedChanges.find(path);
        if (marked == markedChanges.end() || !(marked->second == change))
            lines[path] = path + change.text;
    }
    for (const auto& [path, change] : markedChanges) {
        if (!changes.contains(path))
            lines[path] = path + " deleted" + change.text.substr(change.text.find(' ', 1));
    }
    std::vector<std::string> all;
    for (const auto& [path, line] : lines)
        all.push_back(line);
    return all;
}

void MarkChanges() {
    markedChanges = Layers().FindAll();
}

std::vector<std::string> TouchedPaths() {
    const std::string upper = "/proc/self/fd/" + std::to_string(benchDescriptor) + "/upper";
    std::vector<std::string> paths;
    for (const auto& entry : fs::recursive_directory_iterator(upper))
        paths.push_back(entry.path().string().substr(upper.size()));
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::string CopiedRoot() {
    return "/proc/self/fd/" + std::to_string(benchDescriptor) + "/lower";
}

std::string NoThrowawayRootReason() {
    if (geteuid() != 0) {
        return Run({"sudo", "-n", "id", "-u"}).out == "0\n"
                   ? ""
                   : "requires real root; sudo asks for a password";
    }
    static const ProcessResult probe = RunInThrowawayRoot([] {
        if (!CopyIsUsable())
            std::exit(1);
    });
    return probe.status == 0 ? ""
                             : "requires overlay mounts as real root: status " +
                                   std::to_string(probe.status) + " " + probe.err;
}

bool RanThroughSudo() {
    if (geteuid() == 0)
        return false;
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string program = fs::read_symlink("/proc/self/exe");
    const std::string filter =
        std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    std::vector<std::string> command = {"sudo", "-n", "env"};
    for (const char* name :
         {"LSAN_OPTIONS", "HX_TEST_ROUNDS", "HX_TEST_EVERY_FAULT", "HX_TEST_LEAKS"}) {
        if (const char* value = std::getenv(name))
            command.push_back(std::string(name) + '=' + value);
    }
    command.insert(command.end(), {program, filter});
    const auto result = Run(command);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    if (result.out.find("[  SKIPPED ]") != std::string::npos)
        SkipBecause(result.out);
    return true;
}

}  // namespace hx_test
