// Compares a whole setup as root with default answers with bash running its commit script alone,
// a dry run with a setup up to its confirmation, and a verification with mtree and systemctl, all
// over an existing installation in a throwaway copy of this system. Run it as root.
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Timing.h"
#include "setuprun/CInstallBase.h"

namespace fs = std::filesystem;

namespace {

constexpr int Rounds = 21;

constexpr const char* product = "/opt/corvane26";

// Exists everywhere, and no setup needs what is below it.
const std::string workbench = "/sys";

// Changes the root of this process to an overlay of the root file system, in a mount namespace of
// its own.
bool EnterThrowawayRoot() {
    const std::string root = workbench + "/root";
    const std::string layers =
        "lowerdir=/,upperdir=" + workbench + "/upper,workdir=" + workbench + "/work";
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", workbench.c_str(), "tmpfs", 0, "mode=755") != 0)
        return false;
    for (const char* name : {"/upper", "/work", "/root"})
        mkdir((workbench + name).c_str(), 0755);
    return mount("overlay", root.c_str(), "overlay", 0, layers.c_str()) == 0 &&
           mount("/dev", (root + "/dev").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           mount("proc", (root + "/proc").c_str(), "proc", 0, nullptr) == 0 &&
           chroot(root.c_str()) == 0 && chdir("/") == 0;
}

// Writes the commit script of a setup with default answers.
std::string WriteScript() {
    std::string program = std::string(product) + "/cv_install";
    char* argv[] = {program.data(), nullptr};
    CInstallBase run(false, 1, argv);
    run.m_interactive = false;
    run.m_queueType = CInstallBase::QueueInternal;
    run.PromptJobLimit();
    run.PromptMemoryLimit();
    run.PromptScratchDirectory();
    run.PromptScratchLimit();
    QString path;
    if (!run.WriteCommitScript(path, false))
        std::exit(1);
    return path.toStdString();
}

}  // namespace

int main() {
    const fs::path built = HX_PRODUCT_DIR;
    if (getuid() != 0 || !EnterThrowawayRoot()) {
        std::fprintf(stderr, "Run this as root on a system with mount namespaces and overlays.\n");
        return 1;
    }
    // The prompts print questions, and without a service manager the tools print errors.
    FILE* console = fdopen(dup(STDOUT_FILENO), "w");
    if (console == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr ||
        std::freopen("/dev/null", "w", stderr) == nullptr)
        return 1;
    fs::remove_all(product);
    fs::create_directories(fs::path(product).parent_path());
    fs::copy(built, product, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const std::vector<std::string> setup = {std::string(product) + "/cv_install", "--setup",
                                            "--yes"};
    // The first setup creates the tree; the measured ones update it.
    hx_bench::TimeOf(setup);
    const std::string script = WriteScript();
    const hx_bench::Comparison times = hx_bench::Compare(
        Rounds, [&] { return hx_bench::TimeOf(setup); },
        [&] {
            return hx_bench::TimeOf({"/bin/bash", script});
        });
    std::fprintf(
        console,
        "setup as root / its commit script alone: %.2f (%.0f ms / %.0f ms, medians of %d)\n",
        times.ratio, times.subject, times.reference, Rounds);
    // Without input, the questions get their defaults, and the plan is not confirmed.
    const auto timeOf = [&](const std::string& option, int status) {
        return hx_bench::TimeOf({"/bin/sh", "-c",
                                 setup[0] + " --setup --queue=internal " + option + "; [ $? -eq " +
                                     std::to_string(status) + " ]"});
    };
    const hx_bench::Comparison dryRun = hx_bench::Compare(
        Rounds, [&] { return timeOf("--dry-run", 0); }, [&] { return timeOf("", 9); });
    std::fprintf(
        console,
        "dry run as root / setup up to the confirmation: %.2f (%.0f ms / %.0f ms, medians of %d)\n",
        dryRun.ratio, dryRun.subject, dryRun.reference, Rounds);
    // With it, a verification asks the service manager, too. Neither gets an answer.
    fs::create_directories("/run/systemd/system");
    const hx_bench::Comparison verification = hx_bench::Compare(
        Rounds,
        [&] {
            return hx_bench::TimeOf({setup[0], "--verify"});
        },
        [] {
            return hx_bench::TimeOf({"/bin/sh", "-c",
                                     "mtree -e -f /var/lib/corvane26/manifest -p / || exit 1; "
                                     "systemctl show corvane26_service.service || true"});
        });
    std::fprintf(
        console,
        "verification / mtree with its manifest, and systemctl show: %.2f (%.0f ms / %.0f ms, "
        "medians of %d)\n",
        verification.ratio, verification.subject, verification.reference, Rounds);
    std::fclose(console);
}
