#include "services/SplitRoot.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "harness/Child.h"
#include "harness/TempDir.h"

namespace hx_test {
namespace {

namespace fs = std::filesystem;

const char* const record = "/record";

// The shell of the stand-ins, out of the way of what is under test.
const char* const prologue = R"sh(#!/shell/sh
printf '%s\n' "$0" "$@" >> /record
)sh";

std::string TextOf(StandIn kind) {
    switch (kind) {
        case StandIn::Recording:
        case StandIn::Unrunnable:
            return prologue;
        case StandIn::Failing:
            return std::string(prologue) + "echo said; echo complained >&2; exit 3\n";
        case StandIn::Slow:
            return std::string(prologue) +
                   "until [ -e /go ]; do read -r _ < /proc/uptime; done; exit 5\n";
    }
    return {};
}

void Bind(const fs::path& what, const fs::path& over) {
    fs::create_directories(over);
    if (mount(what.c_str(), over.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
        FAIL() << "binding " << what << " over " << over;
}

// The loader and the libraries lie where the stand-ins' shell was linked to find them.
void BindSystem(const fs::path& root) {
    for (const char* directory : {"/lib", "/lib64", "/usr/lib", "/proc"}) {
        if (fs::exists(directory))
            Bind(fs::canonical(directory), root / fs::path(directory).relative_path());
    }
    fs::create_directories(root / "shell");
    fs::copy_file(fs::canonical("/bin/sh"), root / "shell/sh");
    fs::create_directories(root / "dev");
    WriteFile(root / "dev/null", "");
    mount("/dev/null", (root / "dev/null").c_str(), nullptr, MS_BIND, nullptr);
}

void AddTools(const fs::path& root, const Tools& tools) {
    for (const char* directory : {"bin", "sbin", "usr/bin", "usr/sbin"})
        fs::create_directories(root / directory);
    for (const auto& [path, kind] : tools) {
        const fs::path file = root / fs::path(path).relative_path();
        WriteFile(file, TextOf(kind));
        fs::permissions(file,
                        kind == StandIn::Unrunnable ? fs::perms::owner_read : fs::perms::owner_all);
    }
}

}  // namespace

ProcessResult RunInSplitRoot(const Tools& tools, const std::function<void()>& body) {
    const TempDir directory;
    return RunInChild({.identity = World::Identity::Root}, [&] {
        const fs::path root = directory.path();
        ASSERT_EQ(mount("tmpfs", root.c_str(), "tmpfs", 0, nullptr), 0);
        BindSystem(root);
        AddTools(root, tools);
        ASSERT_FALSE(testing::Test::HasFailure());
        ASSERT_EQ(chroot(root.c_str()), 0);
        ASSERT_EQ(chdir("/"), 0);
        body();
    });
}

std::vector<std::string> Recorded() {
    std::vector<std::string> lines;
    std::istringstream text(ReadFile(record));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

}  // namespace hx_test
