#include "generated/Writing.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
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

// Some objects of a setup are never freed, by design. To suppress their reports, a leak checker
// would need programs of /usr/bin, which some tests hide.
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

// The reports of a script: the line, then its path.
std::vector<std::string> ScriptReport(const std::string& line, const std::string& file) {
    return {"  " + line + "\n    \"install/" + file + "\"\n"};
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
        for (QString* command : {&run.m_qsubCmd, &run.m_qdelCmd, &run.m_qsigCmd})
            command->clear();
        body(run);
    });
}

ProcessResult WithWriter(const std::string& directory, Writer writer, const World& world,
                         const RunBody& settings, const std::string& failing) {
    return WithRun(
        directory,
        [&](CInstallBase& run) {
            if (settings)
                settings(run);
            setenv("HX_TEST_FAIL", failing.c_str(), 1);
            EXPECT_EQ((run.*writer)(), 1);
        },
        world);
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
    constexpr uid_t otherUser = 54321;
    return geteuid() == 0 && lchown(path.c_str(), otherUser, otherUser) == 0;
}

std::string Expected(const std::string& name, const std::map<std::string, std::string>& values) {
    std::string text = ReadFile(HX_EXPECTED_DIR "/generated/" + name);
    EXPECT_FALSE(text.empty()) << name;
    for (const auto& [placeholder, value] : values) {
        EXPECT_NE(text.find(placeholder), std::string::npos) << placeholder;
        for (size_t at = 0; (at = text.find(placeholder, at)) != std::string::npos;)
            text.replace(at, placeholder.size(), value);
    }
    return text;
}

std::string ErrorText(const std::string& message, const std::string& reason) {
    return "Corvane Install: Error\n    " + message + "\n" +
           (reason.empty() ? "" : "    " + reason + "\n");
}

void WithReadOnly(const std::string& directory, const std::function<void()>& body) {
    const auto result = RunInChild(As(Identity::Root), [&] {
        const char* path = directory.c_str();
        ASSERT_EQ(mount(path, path, nullptr, MS_BIND, nullptr), 0);
        ASSERT_EQ(mount(nullptr, path, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
        body();
    });
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

const std::vector<EveryWriter>& EveryWriters() {
    static const std::vector<std::string> limits = {"  Scratch limit per job: 0 GB\n",
                                                    "  Memory limit per job: 0 MB\n"};
    static const std::vector<std::string> directory = {"  Scratch storage directory: /tmp\n"};
    static const std::vector<EveryWriter> writers = {
        {"RunScript", &CInstallBase::WriteCorvaneOLD, Family::Script, "corvane26", 0755,
         ScriptReport("Corvane run script created...", "corvane26"),
         ScriptReport("Corvane run script updated...", "corvane26")},
        {"SnapshotScript", &CInstallBase::WriteCorvaneSnapshot, Family::Script,
         "corvane26_snapshot", 0755,
         ScriptReport("Corvane snapshot  script created", "corvane26_snapshot"),
         ScriptReport("Corvane snapshot script updated", "corvane26_snapshot")},
        {"SambaScript", &CInstallBase::WriteCorvaneSamba, Family::Script, "corvane26_samba", 0755,
         ScriptReport("install/corvane26_samba script created...", "corvane26_samba"),
         ScriptReport("install/corvane26_samba script updated...", "corvane26_samba")},
        {"SshScript", &CInstallBase::WriteCorvaneSsh, Family::Script, "corvane26_ssh", 0755,
         ScriptReport("install/corvane26_ssh script created...", "corvane26_ssh"),
         ScriptReport("install/corvane26_ssh script updated...", "corvane26_ssh")},
        {"QChemRC", &CInstallBase::WriteQChemRC, Family::QChem, "qchemrc/qchemrc", 0644, limits,
         limits},
        {"QCScratch", &CInstallBase::WriteQCScratch, Family::QChem, "qchemrc/qcscratch", 0644,
         directory, directory},
        {"QueueEntries",
         &CInstallBase::CreateInternalQueueEntries,
         Family::Queue,
         "queue_entries",
         0666,
         {},
         {}},
        {"QueueLimits",
         &CInstallBase::WriteInternalQueueLimits,
         Family::Queue,
         "QueueLimits",
         0644,
         {},
         {}}};
    return writers;
}

}  // namespace hx_test
