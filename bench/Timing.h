// Measures processes and functions in turn, so that a change of the machine's speed affects all.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char** environ;

namespace hx_bench {

// Runs the command without output and returns its wall time in milliseconds. Exits if the command
// fails. Raises `peakMemory`, in megabytes of 10^6 bytes, to the peak of the command.
inline double TimeOf(const std::vector<std::string>& command, double* peakMemory = nullptr) {
    std::vector<char*> argv;
    for (const std::string& word : command)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    int status = 0;
    rusage usage = {};
    if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0 ||
        wait4(child, &status, 0, &usage) != child || status != 0) {
        std::fprintf(stderr, "%s failed\n", argv[0]);
        std::exit(1);
    }
    posix_spawn_file_actions_destroy(&actions);
    if (peakMemory != nullptr)
        *peakMemory = std::max(*peakMemory, static_cast<double>(usage.ru_maxrss) * 1024 / 1e6);
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

inline double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct Comparison {
    double subject;    // median, milliseconds
    double reference;  // median, milliseconds
    double ratio;      // median of the pairs' ratios
};

// Calls two functions that return times, in turn.
template <typename Subject, typename Reference>
Comparison Compare(int rounds, Subject subject, Reference reference) {
    std::vector<double> subjects;
    std::vector<double> references;
    std::vector<double> ratios;
    for (int i = 0; i < rounds; ++i) {
        subjects.push_back(subject());
        references.push_back(reference());
        ratios.push_back(subjects.back() / references.back());
    }
    return {Median(subjects), Median(references), Median(ratios)};
}

}  // namespace hx_bench
