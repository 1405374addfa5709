// The probes on the machine that runs the tests, against its own tools.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <sstream>
#include <string>

#include "harness/Process.h"
#include "harness/TempDir.h"
#include "probes/cpu_memory.h"

namespace {

// The number that a tool writes, or -1 without the tool.
long long NumberFrom(const std::vector<std::string>& command) {
    const auto result = hx_test::Run(command);
    return result.status == 0 ? std::stoll(result.out) : -1;
}

// The distinct cores that lscpu lists for its online processors; none without the tool.
std::set<std::string> CoresOfLscpu() {
    std::set<std::string> cores;
    std::istringstream lines(hx_test::Run({"lscpu", "-p=CORE,SOCKET"}).out);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.front() != '#')
            cores.insert(line);
    }
    return cores;
}

TEST(ThisMachine, HasTheProcessorsThatGetconfTells) {
    const long long processors = NumberFrom({"getconf", "_NPROCESSORS_CONF"});
    if (processors < 1)
        GTEST_SKIP() << "getconf does not tell the configured processors";
    unsigned int count = 0;
    EXPECT_EQ(hx_cpu_logical_count(&count, 0), 0);
    EXPECT_EQ(count, processors);
    EXPECT_EQ(procNCPU(), processors);
}

TEST(ThisMachine, HasTheCoresThatLscpuTells) {
    const std::string cpuInfo = hx_test::ReadFile("/proc/cpuinfo");
    const auto cores = CoresOfLscpu();
    const long long configured = NumberFrom({"getconf", "_NPROCESSORS_CONF"});
    const long long online = NumberFrom({"getconf", "_NPROCESSORS_ONLN"});
    if (cores.empty() || cpuInfo.find("\ncpu cores") == std::string::npos)
        GTEST_SKIP() << "lscpu or /proc/cpuinfo does not tell cores here";
    if (configured != online)
        GTEST_SKIP() << "some processors are offline, which lscpu leaves out";
    unsigned int count = 0;
    EXPECT_EQ(hx_cpu_count(&count, 0), 0);
    EXPECT_EQ(count, cores.size());
}

TEST(ThisMachine, HasTheMemoryThatGetconfTells) {
    const long long pages = NumberFrom({"getconf", "_PHYS_PAGES"});
    const long long pageSize = NumberFrom({"getconf", "PAGESIZE"});
    if (pages < 1 || pageSize < 1)
        GTEST_SKIP() << "getconf does not tell the memory";
    EXPECT_EQ(procRAM(), pages * pageSize / (1024 * 1024));
}

}  // namespace
