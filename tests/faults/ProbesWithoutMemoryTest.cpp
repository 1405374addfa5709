// Probes and storeFile while an allocation fails: each returns its value or "unknown".
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "probes/cpu_memory.h"
#include "probes/processor_identity.h"
#include "support/storeFile.h"

namespace {

struct Probe {
    const char* name;
    int (*read)();
    int unknown;
};

int CountWith(int (*count)(unsigned int*, int)) {
    unsigned int number = 0;
    return count(&number, 0) == -1 ? -1 : static_cast<int>(number);
}

int CountStoredLines() {
    FILE* file = std::fopen("/proc/self/mountinfo", "r");
    if (file == nullptr)
        return -1;
    char** lines = storeFile(file, 1, 1, 80);
    std::fclose(file);
    if (lines == nullptr)
        return -1;
    int count = 0;
    while (lines[count] != nullptr)
        ++count;
    freeStoredFile(lines);
    return count;
}

const Probe probes[] = {
    {"logical count", [] { return CountWith(hx_cpu_logical_count); }, -1},
    {"core count", [] { return CountWith(hx_cpu_count); }, -1},
    {"procNCPU", procNCPU, 0},
    {"procRAM", procRAM, 0},
    {"procCPU", procCPU, 0},
    {"procCPUModel", [] { return procCPUModel(procCPU()); }, 0},
    {"procVersion", procVersion, 0},
    {"procCacheSize", procCacheSize, 0},
    {"procCPUMhz", procCPUMhz, 0},
    {"storeFile", CountStoredLines, -1},
};

TEST(ProbesWithoutMemory, ReturnValueOrUnknown) {
    const hx_test::TempDir files;
    setenv("HX_TEST_REACHED", (files / "reached").c_str(), 1);
    for (const Probe& probe : probes) {
        const int known = probe.read();
        int number = 0;
        do {
            std::filesystem::remove(files / "reached");
            ++number;
            const auto result = hx_test::RunInChild({}, [&] {
                setenv("HX_TEST_NO_MEMORY", (":" + std::to_string(number)).c_str(), 1);
                const int value = probe.read();
                unsetenv("HX_TEST_NO_MEMORY");
                EXPECT_TRUE(value == known || value == probe.unknown) << value;
            });
            EXPECT_EQ(result.status, 0) << probe.name << " " << number << result.out << result.err;
        } while (std::filesystem::exists(files / "reached"));
    }
    unsetenv("HX_TEST_REACHED");
}

}  // namespace
