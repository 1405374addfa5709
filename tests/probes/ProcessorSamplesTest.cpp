// The identity probes with the /proc/cpuinfo of various processors.
#include <gtest/gtest.h>

#include <string>

#include "probes/ProcFile.h"
#include "probes/processor_identity.h"

namespace {

struct Results {
    int vendor;
    int model;
    int cacheSize;
    int clock;
};

void ExpectResults(const std::string& cpuInfo, const Results& expected) {
    SCOPED_TRACE(cpuInfo);
    hx_test::WithProcFile("/proc/cpuinfo", cpuInfo, [&] {
        EXPECT_EQ(procCPU(), expected.vendor);
        EXPECT_EQ(procCPUModel(expected.vendor), expected.model);
        EXPECT_EQ(procCacheSize(), expected.cacheSize);
        EXPECT_EQ(procCPUMhz(), expected.clock);
    });
}

// The lines of an x86 processor that differ. An empty value is a missing line.
struct X86 {
    std::string vendor;
    std::string modelName;
    std::string clock;
    std::string cacheSize;
    Results expected;
};

const X86 x86Processors[] = {
    {"GenuineIntel", "486 DX/4", "", "", {1, 1, 0, -1}},
    {"GenuineIntel", "Pentium II (Deschutes)", "400.913857", "512 KB", {1, 3, 512, 400}},
    {"GenuineIntel", "Celeron (Mendocino)", "367.502", "128 KB", {1, 5, 128, 366}},
    {"GenuineIntel", "Pentium III (Coppermine)", "866.704", "256 KB", {1, 4, 256, 866}},
    // "Pentium(R) 4" does not contain "Pentium 4".
    {"GenuineIntel", "Intel(R) Pentium(R) 4 CPU 2.40GHz", "2394.264", "512 KB", {1, 2, 512, 2400}},
    {"GenuineIntel", "Intel(R) Xeon(R) Gold 6148 CPU", "2400.000", "28160 KB", {1, 0, 28160, 2400}},
    // The K6-2 has the name "K6(tm) 3D".
    {"AuthenticAMD", "AMD-K6(tm) 3D processor", "451.031", "64 KB", {2, 2, 64, 450}},
    {"AuthenticAMD", "AMD Athlon(tm) XP 2400+", "2000.098", "256 KB", {2, 5, 256, 2000}},
    {"AuthenticAMD", "AMD Duron(tm) Processor", "700.032", "64 KB", {2, 6, 64, 700}},
    {"AuthenticAMD", "AMD Ryzen 7 5800X 8-Core Processor", "3591.707", "512 KB", {2, 0, 512, 3600}},
    {"CyrixInstead", "6x86MX 2.5x Core/Bus Clock", "166.194", "", {3, 0, 0, 166}},
    {"GenuineTMx86", "Transmeta(tm) Crusoe(tm) TM5600", "595.516", "512 KB", {4, 0, 512, 600}},
    {"CentaurHauls", "VIA Samuel 2", "533.370", "64 KB", {5, 0, 64, 533}},
    {"HygonGenuine", "Hygon C86 7185 32-core Processor", "1999.871", "512 KB", {5, 0, 512, 2000}},
};

std::string Line(const std::string& key, const std::string& value) {
    return value.empty() ? "" : key + ": " + value + "\n";
}

TEST(KnownProcessor, HasExpectedCodesOnX86) {
    HX_REQUIRE_NAMESPACES();
    for (const X86& cpu : x86Processors) {
        const std::string stanza =
            "processor\t: 0\n" + Line("vendor_id\t", cpu.vendor) +
            "cpu family\t: 6\nmodel\t\t: 8\n" + Line("model name\t", cpu.modelName) +
            "stepping\t: 6\n" + Line("cpu MHz\t\t", cpu.clock) +
            Line("cache size\t", cpu.cacheSize) +
            "physical id\t: 0\nsiblings\t: 2\nfdiv_bug\t: no\nfpu\t\t: yes\ncpuid level\t: 2\n"
            "flags\t\t: fpu vme de pse tsc msr mce cx8 mmx\nbogomips\t: 1730.15\n"
            "TLB size\t: 2560 4K pages\ncache_alignment\t: 64\npower management:\n\n";
        ExpectResults(stanza + stanza, cpu.expected);
    }
}

TEST(KnownProcessor, HasExpectedCodesInOldFormat) {
    HX_REQUIRE_NAMESPACES();
    ExpectResults(
        "processor\t: 0\ncpu\t\t: 586\nmodel\t\t: Pentium 75+\nvendor_id\t: GenuineIntel\n"
        "stepping\t: 12\nfpu\t\t: yes\nflags\t\t: fpu vme de pse\nbogomips\t: 53.04\n",
        {1, 0, 0, -1});
}

TEST(KnownProcessor, HasExpectedCodesWithoutX86) {
    HX_REQUIRE_NAMESPACES();
    ExpectResults(
        "processor\t: 0\nBogoMIPS\t: 243.75\nFeatures\t: fp asimd evtstrm aes\n"
        "CPU implementer\t: 0x41\nCPU architecture: 8\nCPU variant\t: 0x3\n\n",
        {0, 0, 0, -1});
    ExpectResults(
        "processor\t: 0\ncpu\t\t: POWER9, altivec supported\nclock\t\t: 3166.000000MHz\n"
        "revision\t: 2.2 (pvr 004e 1202)\n\ntimebase\t: 512000000\nmodel\t\t: 8335-GTH\n",
        {0, 0, 0, -1});
    ExpectResults(
        "vendor_id       : IBM/S390\n# processors    : 2\nbogomips per cpu: 3033.00\n"
        "cache0          : level=1 type=Data scope=Private size=128K line_size=256\n"
        "processor 0: version = 00,  identification = 0A0A18,  machine = 3906\n\n"
        "cpu number      : 0\ncpu MHz dynamic : 5208\ncpu MHz static  : 5208\n",
        {5, 0, 0, 5200});
}

}  // namespace
