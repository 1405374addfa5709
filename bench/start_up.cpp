// From the start of a process to the end of the setup run's constructor, against an empty program
// that loads Qt Core. It expects both beside itself.
#include <filesystem>

#include "Timing.h"

int main(int /*argc*/, char** argv) {
    constexpr int Rounds = 101;
    const std::filesystem::path directory = std::filesystem::path(argv[0]).parent_path();
    const auto program = [&](const char* name) {
        return std::vector<std::string>{(directory / name).string()};
    };
    const hx_bench::Comparison times = hx_bench::Compare(
        Rounds, [&] { return hx_bench::TimeOf(program("bench_constructor")); },
        [&] { return hx_bench::TimeOf(program("bench_empty_qt_program")); });
    std::printf(
        "start to end of the constructor / empty Qt Core program: %.2f "
        "(%.1f ms / %.1f ms, medians of %d)\n",
        times.ratio, times.subject, times.reference, Rounds);
}
