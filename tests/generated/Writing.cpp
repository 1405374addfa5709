#include "generated/Writing.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "harness/TempDir.h"

// Null without a leak checker.
extern "C" {
__attribute__((weak)) void __lsan_disable();
__attribute__((weak)) void __lsan_enable();
}

namespace hx_test {
namespace fs = std::filesystem;

namespace {

// Some objects of a setup run live until the process ends, by design. A leak checker would need the
// programs of /usr/bin to tell them apart, and some tests hide those.
std::unique_ptr<CInstallBase> MakeRun() {
    std::string name = "cv_install";
    char* argv[] = {name.data(), nullptr};
    if (__lsan_disable != nullptr)
        __lsan_disable();
    auto run = std::make_unique<CInstallBase>(true, 1, argv);
    if (__lsan_enable != nullptr)
        __lsan_enable();
    return run;
}

}  // namespace

ProcessResult WithRun(const std::string& directory, const RunBody& body, const World& world) {
    return RunInChild(world, [&] {
        fs::current_path(directory);
        const std::unique_ptr<CInstallBase> made = MakeRun();
        CInstallBase& run = *made;
        run.m_interactive = false;
        run.m_installDir = QStringLiteral("install");
        run.m_binariesDir = QStringLiteral("/opt/corvane/bin");
        run.m_queueType = CInstallBase::QueueUnset;
        run.m_queueName.clear();
        run.m_qsubCmd.clear();
        run.m_qdelCmd.clear();
        run.m_qsigCmd.clear();
        body(run);
    });
}

ProcessResult WithWriter(const std::string& directory, Writer writer, const World& world) {
    return WithRun(
        directory, [writer](CInstallBase& run) { EXPECT_EQ((run.*writer)(), 1); }, world);
}

mode_t ModeOf(const std::string& path) {
    struct stat entry = {};
    EXPECT_EQ(lstat(path.c_str(), &entry), 0) << path;
    return entry.st_mode & 07777U;
}

void MakeFile(const std::string& path, const std::string& text, mode_t mode) {
    WriteFile(path, text);
    ASSERT_EQ(chmod(path.c_str(), mode), 0) << path;
}

void MakeDirectory(const std::string& path, mode_t mode) {
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0) << path;
    ASSERT_EQ(chmod(path.c_str(), mode), 0) << path;
}

bool GiveAway(const std::string& path) {
    constexpr uid_t nobodyElse = 54321;
    return geteuid() == 0 && lchown(path.c_str(), nobodyElse, nobodyElse) == 0;
}

std::string Expected(const std::string& name) {
    const std::string path = HX_EXPECTED_DIR "/generated/" + name;
    EXPECT_TRUE(fs::exists(path)) << path;
    return ReadFile(path);
}

std::string ErrorText(const std::string& message, const std::string& reason) {
    return "Corvane Install: Error\n    " + message + "\n" +
           (reason.empty() ? "" : "    " + reason + "\n");
}

void MountTmpfs(const std::string& directory, const std::string& size) {
    ASSERT_EQ(mount("tmpfs", directory.c_str(), "tmpfs", 0, ("size=" + size).c_str()), 0);
}

void MakeReadOnly(const std::string& directory) {
    const char* path = directory.c_str();
    ASSERT_EQ(mount(path, path, nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, path, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
}

}  // namespace hx_test
