#include "faults/SmallMachine.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>

#include "harness/TempDir.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

// The product itself, which does not share the install directory's small disc.
constexpr const char* ProductDirectory = "/opt";

void Mount(const std::string& directory, const std::string& size) {
    ASSERT_EQ(mount("tmpfs", directory.c_str(), "tmpfs", 0, ("mode=1777,size=" + size).c_str()), 0)
        << directory;
}

bool IsOfProduct(const fs::path& path) {
    return fs::is_symlink(path);
}

}  // namespace

SmallMachine::SmallMachine(const std::string& installSize, const std::string& tmpSize) {
    // A further machine finds it there; its own place may be hidden by now.
    if (!fs::exists(std::string(ProductDirectory) + "/cv_install")) {
        EXPECT_EQ(mount(HX_PRODUCT_DIR, ProductDirectory, nullptr, MS_BIND, nullptr), 0);
    }
    Mount("/var", "1m");
    Mount(InstallDirectory, installSize);
    for (const auto& entry : fs::directory_iterator(ProductDirectory))
        fs::create_symlink(entry.path(), InstallDirectory / entry.path().filename());
    Mount("/tmp", tmpSize);
}

void SmallMachine::Remount(const std::string& directory, const std::string& options) {
    ASSERT_EQ(mount(nullptr, directory.c_str(), nullptr, MS_REMOUNT, options.c_str()), 0);
}

void SmallMachine::CloseForWriting(const std::string& directory) {
    ASSERT_EQ(mount(directory.c_str(), directory.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, directory.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr),
              0);
}

ProcessResult SmallMachine::SetupBehind(const std::vector<std::string>& command,
                                        const std::vector<std::string>& furtherOptions) const {
    std::vector<std::string> words = {"timeout",         "--signal=KILL", "60",
                                      "unshare",         "--user",        "--map-user=1000",
                                      "--map-group=1000"};
    words.insert(words.end(), command.begin(), command.end());
    for (const char* word : {"/mnt/cv_install", "--setup", "--user-mode", "--yes", "-m", "777",
                             "-s", "5", "-d", "/tmp"})
        words.emplace_back(word);
    words.insert(words.end(), furtherOptions.begin(), furtherOptions.end());
    ProcessOptions options;
    options.env = {{"PATH", "/usr/bin:/bin"}, {"LSAN_OPTIONS", "detect_leaks=0"}};
    options.workingDirectory = "/";
    return Run(words, options);
}

ProcessResult SmallMachine::Setup(const std::vector<std::string>& furtherOptions) const {
    return SetupBehind({}, furtherOptions);
}

std::map<std::string, std::string> SmallMachine::Made() {
    std::map<std::string, std::string> made;
    for (const auto& entry : fs::recursive_directory_iterator(InstallDirectory)) {
        if (!IsOfProduct(entry.path()))
            made[entry.path()] = entry.is_regular_file() ? ReadFile(entry.path()) : "";
    }
    return made;
}

}  // namespace hx_test
