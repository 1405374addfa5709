#include "machine/ControlGroups.h"

#include <signal.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace hx_test {
namespace {

namespace fs = std::filesystem;

const std::string prefix = "hx_machine_";

// The hierarchies that systemd uses: on a hybrid system two of them, otherwise one.
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

// The files in a group are the kernel's: a group is removed by removing its directories.
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

}  // namespace

void MakeControlGroups(pid_t owner) {
    for (const fs::path& hierarchy : Hierarchies()) {
        RemoveAbandonedGroups(hierarchy);
        std::error_code ignored;
        fs::create_directory(GroupOf(hierarchy, owner), ignored);
    }
}

void EnterControlGroups(pid_t owner) {
    // 0 stands for the writing process.
    for (const fs::path& hierarchy : Hierarchies())
        std::ofstream(GroupOf(hierarchy, owner) / "cgroup.procs") << 0 << std::endl;
}

void RemoveControlGroups(pid_t owner) {
    for (const fs::path& hierarchy : Hierarchies())
        RemoveGroup(GroupOf(hierarchy, owner));
}

}  // namespace hx_test
