// The probes on this machine, compared with the tools of the system.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "harness/Process.h"
#include "probes/ProcFile.h"
#include "probes/cpu_memory.h"
#include "probes/processor_identity.h"

namespace {

// The number that a tool prints, or -1 without the tool.
long long NumberFrom(const std::vector<std::string>& command) {
    const auto result = hx_test::Run(command);
    return result.status == 0 ? std::strtoll(result.out.c_str(), nullptr, 10) : -1;
}

// The distinct cores of the online processors in the list of lscpu.
std::set<std::string> CoresInLscpu() {
    std::set<std::string> cores;
    std::istringstream lines(hx_test::Run({"lscpu", "-p=CORE,SOCKET"}).out);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.front() != '#')
            cores.insert(line);
    }
    return cores;
}

TEST(ThisMachine, CountsProcessorsLikeGetconf) {
    const long long processors = NumberFrom({"getconf", "_NPROCESSORS_CONF"});
    if (processors < 1)
        GTEST_SKIP() << "getconf does not print the configured processors";
    unsigned int count = 0;
    EXPECT_EQ(hx_cpu_logical_count(&count, 0), 0);
    EXPECT_EQ(count, processors);
    EXPECT_EQ(procNCPU(), processors);
}

TEST(ThisMachine, CountsCoresLikeLscpu) {
    const auto cores = CoresInLscpu();
    if (cores.empty() ||
        hx_test::ReadFile("/proc/cpuinfo").find("\ncpu cores") == std::string::npos)
        GTEST_SKIP() << "lscpu or /proc/cpuinfo does not list cores";
    if (NumberFrom({"getconf", "_NPROCESSORS_CONF"}) !=
        NumberFrom({"getconf", "_NPROCESSORS_ONLN"}))
        GTEST_SKIP() << "lscpu does not list processors that are offline";
    unsigned int count = 0;
    EXPECT_EQ(hx_cpu_count(&count, 0), 0);
    EXPECT_EQ(count, cores.size());
}

TEST(ThisMachine, MeasuresMemoryLikeGetconf) {
    const long long pages = NumberFrom({"getconf", "_PHYS_PAGES"});
    const long long pageSize = NumberFrom({"getconf", "PAGESIZE"});
    if (pages < 1 || pageSize < 1)
        GTEST_SKIP() << "getconf does not print the memory";
    EXPECT_EQ(procRAM(), pages * pageSize / (1024 * 1024));
}

TEST(ThisMachine, FindsVendorLikeLscpu) {
    const std::string lscpu = hx_test::Run({"lscpu"}, {.env = {{"LC_ALL", "C"}}}).out;
    const bool intel = lscpu.find(" GenuineIntel\n") != std::string::npos;
    if (!intel && lscpu.find(" AuthenticAMD\n") == std::string::npos)
        GTEST_SKIP() << "lscpu lists another vendor";
    EXPECT_EQ(procCPU(), intel ? 1 : 2);
}

TEST(ThisMachine, FindsCacheSizeOfGetconf) {
    const int size = procCacheSize();
    if (size == 0)
        GTEST_SKIP() << "/proc/cpuinfo has no cache size";
    std::vector<long long> known;
    for (const char* level :
         {"LEVEL1_DCACHE_SIZE", "LEVEL2_CACHE_SIZE", "LEVEL3_CACHE_SIZE", "LEVEL4_CACHE_SIZE"})
        known.push_back(NumberFrom({"getconf", level}) / 1024);
    EXPECT_NE(std::find(known.begin(), known.end(), size), known.end())
        << size << " KB, but getconf prints " << testing::PrintToString(known);
}

// A nominal clock differs by at most half a step of the grid. Both readers use one copy of the
// file, because the clock changes over time.
TEST(ThisMachine, FindsClockNearMeasuredOne) {
    HX_REQUIRE_NAMESPACES();
    const std::string text = hx_test::ReadFile("/proc/cpuinfo");
    const auto awk = hx_test::Run({"awk", "-F:", "/^cpu MHz/ { print $2; exit }"}, {.input = text});
    if (awk.out.empty())
        GTEST_SKIP() << "/proc/cpuinfo has no clock";
    const double measured = std::strtod(awk.out.c_str(), nullptr);
    hx_test::WithProcFile("/proc/cpuinfo", text,
                          [&] { EXPECT_LE(std::abs(procCPUMhz() - measured), 26) << measured; });
}

}  // namespace
