// The identity probes on the files of many processors and kernels, and on this machine's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "harness/Process.h"
#include "probes/CpuInfo.h"
#include "probes/processor_identity.h"

namespace {

struct Family {
    const char* file;
    int vendor;
    int model;
    int cacheSize;
    int megahertz;
};

const std::vector<Family> families = {
    {"i586_linux20", 1, 0, 0, -1},
    {"i486_linux22", 1, 1, 0, -1},
    {"pentium_ii_deschutes_linux22", 1, 3, 512, 400},
    {"celeron_mendocino_linux24", 1, 5, 128, 366},
    {"pentium_iii_coppermine_linux24", 1, 4, 256, 866},
    {"pentium_4_linux26", 1, 2, 512, 2400},  // "Pentium(R) 4" holds no "Pentium 4"
    {"k6_2_linux22", 2, 2, 64, 450},         // the K6-2 called itself "K6(tm) 3D"
    {"athlon_xp_linux24", 2, 5, 256, 2000},
    {"duron_linux24", 2, 6, 64, 700},
    {"cyrix_6x86mx_linux22", 3, 0, 0, 166},
    {"crusoe_linux24", 4, 0, 512, 600},
    {"via_c3_linux24", 5, 0, 64, 533},
    {"xeon_linux5", 1, 0, 28160, 2400},
    {"ryzen_linux6", 2, 0, 512, 3600},
    {"hygon_linux5", 5, 0, 512, 2000},
    {"arm64_linux6", 0, 0, 0, -1},
    {"power9_linux5", 0, 0, 0, -1},
    {"s390x_linux5", 5, 0, 0, 5200},
};

class ProcessorFamilies : public testing::TestWithParam<Family> {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
};

TEST_P(ProcessorFamilies, AreToldApart) {
    const Family& family = GetParam();
    const std::string text =
        hx_test::ReadFile(std::string(HX_PROBE_DATA "/cpuinfo/") + family.file);
    ASSERT_FALSE(text.empty());
    hx_test::WithCpuInfo(text, [&] {
        EXPECT_EQ(procCPU(), family.vendor);
        EXPECT_EQ(procCPUModel(family.vendor), family.model);
        EXPECT_EQ(procCacheSize(), family.cacheSize);
        EXPECT_EQ(procCPUMhz(), family.megahertz);
    });
}

INSTANTIATE_TEST_SUITE_P(Files, ProcessorFamilies, testing::ValuesIn(families),
                         [](const auto& test) { return std::string(test.param.file); });

TEST(Distributions, AreToldApartByTheirKernels) {
    HX_REQUIRE_NAMESPACES();
    const std::vector<std::pair<std::string, int>> kernels = {
        {"redhat_7", 1},   {"rhel_8", 1},    {"suse_9", 2},   {"opensuse", 2},
        {"mandrake_9", 3}, {"debian_12", 0}, {"ubuntu_22", 0}};
    for (const auto& [file, family] : kernels) {
        const std::string text = hx_test::ReadFile(HX_PROBE_DATA "/version/" + file);
        ASSERT_FALSE(text.empty());
        hx_test::WithProcFile("/proc/version", text,
                              [family = family] { EXPECT_EQ(procVersion(), family); });
    }
}

// The value of a line "name: value" that lscpu prints; empty without one.
std::string ByLscpu(const std::string& name) {
    const auto lscpu = hx_test::Run({"lscpu"}, {.env = {{"LC_ALL", "C"}}});
    const size_t line = ("\n" + lscpu.out).find("\n" + name + ":");
    if (line == std::string::npos)
        return {};
    const size_t value = lscpu.out.find_first_not_of(" ", line + name.size() + 1);
    return lscpu.out.substr(value, lscpu.out.find('\n', value) - value);
}

TEST(ThisMachine, HasTheVendorThatLscpuNames) {
    const std::string vendor = ByLscpu("Vendor ID");
    if (vendor != "GenuineIntel" && vendor != "AuthenticAMD")
        GTEST_SKIP() << "lscpu names no x86 vendor but \"" << vendor << "\"";
    EXPECT_EQ(procCPU(), vendor == "GenuineIntel" ? 1 : 2);
}

TEST(ThisMachine, HasACacheOfASizeThatGetconfKnows) {
    const int size = procCacheSize();
    if (size == 0)
        GTEST_SKIP() << "/proc/cpuinfo tells no cache size here";
    std::vector<int> known;
    for (const char* level :
         {"LEVEL1_DCACHE_SIZE", "LEVEL2_CACHE_SIZE", "LEVEL3_CACHE_SIZE", "LEVEL4_CACHE_SIZE"})
        known.push_back(std::atoi(hx_test::Run({"getconf", level}).out.c_str()) / 1024);
    EXPECT_NE(std::find(known.begin(), known.end(), size), known.end())
        << size << " KB, but getconf says " << testing::PrintToString(known);
}

// No figure lies further than half a step from its grid. Clocks change while they are read, so that
// both look at one copy of the file.
TEST(ThisMachine, HasANominalClockNearTheOneThatAwkReads) {
    HX_REQUIRE_NAMESPACES();
    const std::string text = hx_test::ReadFile("/proc/cpuinfo");
    const auto awk = hx_test::Run({"awk", "-F:", "/^cpu MHz/ { print $2; exit }"}, {.input = text});
    if (awk.out.empty())
        GTEST_SKIP() << "/proc/cpuinfo tells no clock here";
    const double measured = std::strtod(awk.out.c_str(), nullptr);
    hx_test::WithCpuInfo(text,
                         [&] { EXPECT_LE(std::abs(procCPUMhz() - measured), 26) << measured; });
}

TEST(ThisMachine, AnswersAlikeTwice) {
    EXPECT_EQ(procCPU(), procCPU());
    EXPECT_EQ(procVersion(), procVersion());
    EXPECT_EQ(procCacheSize(), procCacheSize());
}

}  // namespace
