// Compares process starts with that of an empty program that loads Qt Core: up to the end of the
// constructor of a setup, of a program that only loads the library, and of "cv_install --version",
// each with the share of the dynamic loader. Expects the programs of bench/ in its own directory.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Timing.h"

namespace {

namespace fs = std::filesystem;

constexpr int Rounds = 101;

// Returns the cycles that the dynamic loader reports for relocations.
double RelocationCycles(const std::vector<std::string>& command) {
    const std::string report =
        fs::temp_directory_path() / ("hx_loader_" + std::to_string(getpid()));
    std::vector<std::string> traced = {"/usr/bin/env", "LD_DEBUG=statistics",
                                       "LD_DEBUG_OUTPUT=" + report};
    traced.insert(traced.end(), command.begin(), command.end());
    hx_bench::TimeOf(traced);
    double cycles = 0;
    // The loader writes one file per process; env replaces itself with the program.
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::temp_directory_path())) {
        if (entry.path().string().rfind(report + ".", 0) != 0)
            continue;
        std::ifstream lines(entry.path());
        const std::string words = "time needed for relocation: ";
        for (std::string line; std::getline(lines, line);) {
            if (const size_t at = line.find(words); at != std::string::npos)
                cycles = std::stod(line.substr(at + words.size()));
        }
        fs::remove(entry.path());
    }
    return cycles;
}

}  // namespace

int main(int /*argc*/, char** argv) {
    const fs::path directory = fs::path(argv[0]).parent_path();
    const std::vector<std::string> empty = {directory / "bench_empty_qt_program"};
    const struct {
        const char* name;
        std::vector<std::string> command;
    } subjects[] = {{"start to end of the constructor", {directory / "bench_constructor"}},
                    {"loading the library", {directory / "bench_load"}},
                    {"cv_install --version", {HX_PRODUCT_DIR "/cv_install", "--version"}}};
    for (const auto& [name, command] : subjects) {
        const hx_bench::Comparison times = hx_bench::Compare(
            Rounds, [&, &command = command] { return hx_bench::TimeOf(command); },
            [&] { return hx_bench::TimeOf(empty); });
        std::printf("%s / empty Qt Core program: %.2f (%.1f ms / %.1f ms, medians of %d)\n", name,
                    times.ratio, times.subject, times.reference, Rounds);
        const hx_bench::Comparison cycles = hx_bench::Compare(
            Rounds, [&, &command = command] { return RelocationCycles(command); },
            [&] { return RelocationCycles(empty); });
        std::printf("    its relocations: %.2f (%.0f / %.0f thousand cycles)\n", cycles.ratio,
                    cycles.subject / 1000, cycles.reference / 1000);
    }
}
