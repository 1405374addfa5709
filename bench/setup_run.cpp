// Compares a whole setup with default answers with bash running its commit script alone, and a dry
// run with a setup. Run it as a regular user, like scripts/bench: it works on a copy of the product
// directory.
#include <unistd.h>

#include <filesystem>

#include "Timing.h"

namespace fs = std::filesystem;

namespace {

constexpr int Rounds = 41;

// Returns the newest file in /tmp whose name starts with `beginning`.
fs::path Newest(const char* beginning) {
    fs::directory_entry newest;
    for (const fs::directory_entry& entry : fs::directory_iterator("/tmp")) {
        if (entry.path().filename().string().starts_with(beginning) &&
            (newest.path().empty() || entry.last_write_time() > newest.last_write_time()))
            newest = entry;
    }
    return newest.path();
}

// Runs a setup, removes its log and returns the time.
double TimeSetup(const std::vector<std::string>& setup) {
    const double time = hx_bench::TimeOf(setup);
    fs::remove(Newest("corvane26_setup_"));
    return time;
}

// The commit script in the record of the setup.
fs::path RecordedScript(const fs::path& records) {
    for (const auto& entry : fs::recursive_directory_iterator(records)) {
        if (entry.path().filename() == "commit_script")
            return entry.path();
    }
    return {};
}

}  // namespace

int main() {
    if (getuid() == 0) {
        std::fprintf(stderr, "Run this as a regular user.\n");
        return 1;
    }
    char name[] = "/tmp/bench_setup_run_XXXXXX";
    const fs::path directory = mkdtemp(name);
    fs::copy(HX_PRODUCT_DIR, directory,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const fs::path records = directory / "records";
    fs::create_directory(records);
    setenv("XDG_STATE_HOME", records.c_str(), 1);
    const std::vector<std::string> setup = {(directory / "cv_install").string(), "--setup",
                                            "--user-mode", "--yes"};
    std::vector<std::string> dryRun = setup;
    dryRun.emplace_back("--dry-run");
    // The first setup creates the tree; the measured ones update it.
    TimeSetup(setup);
    const std::string script = RecordedScript(records);
    const hx_bench::Comparison times = hx_bench::Compare(
        Rounds, [&] { return TimeSetup(setup); },
        [&] {
            return hx_bench::TimeOf({"/bin/bash", script});
        });
    const hx_bench::Comparison dry = hx_bench::Compare(
        Rounds, [&] { return hx_bench::TimeOf(dryRun); }, [&] { return TimeSetup(setup); });
    fs::remove_all(directory);
    std::printf("whole setup / its commit script alone: %.2f (%.0f ms / %.0f ms, medians of %d)\n",
                times.ratio, times.subject, times.reference, Rounds);
    std::printf("dry run / whole setup: %.2f (%.0f ms / %.0f ms, medians of %d)\n", dry.ratio,
                dry.subject, dry.reference, Rounds);
}
