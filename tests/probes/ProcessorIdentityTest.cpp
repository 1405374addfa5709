// How vendor, model, distribution, and cache size are read.
#include "probes/processor_identity.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "probes/ProcFile.h"

namespace {

using hx_test::Cases;

class Identity : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    static void ExpectCodes(const Cases& files, const std::function<int()>& probe) {
        hx_test::ExpectEach("/proc/cpuinfo", files, probe);
    }

    static void ExpectModels(int vendor, const Cases& names) {
        Cases files;
        for (const auto& [name, code] : names)
            files.emplace_back("processor : 0\nmodel name\t: " + name + "\n", code);
        ExpectCodes(files, [vendor] { return procCPUModel(vendor); });
    }
};

TEST_F(Identity, FindsVendorInAnyCase) {
    ExpectCodes({{"vendor_id : GenuineIntel\n", 1},
                 {"VENDOR_ID : genuineintel\n", 1},
                 {"vendor_id\t: AuthenticAMD\n", 2},
                 {"vendor_id : cyrixinstead\n", 3},
                 {"vendor_id : GenuineTMx86\n", 4},
                 {"vendor_id : TransmetaCPU\n", 4},
                 {"vendor_id : HygonGenuine\n", 5},
                 {"vendor_id GenuineIntel\n", 1},
                 {"vendor_id : : AuthenticAMD", 2}},
                procCPU);
}

TEST_F(Identity, ComparesWholeWordsOfVendorLine) {
    ExpectCodes({{"", 0},
                 {"\n \t\n", 0},
                 {"processor : 0\nmodel name : GenuineIntel\n", 0},
                 {"my vendor_id : GenuineIntel\n", 0},
                 {"vendor_id: GenuineIntel\n", 0},
                 {": vendor_id : GenuineIntel\n", 0},
                 {"vendor_ids : GenuineIntel\n", 0},
                 {"vendor_id :GenuineIntel\n", 5},
                 {"vendor_id : GenuineIntel2\n", 5},
                 {"  vendor_id : GenuineIntel inside\n", 1}},
                procCPU);
}

TEST_F(Identity, UsesFirstVendorLineWithValue) {
    ExpectCodes({{"vendor_id :\nvendor_id : AuthenticAMD\nvendor_id : GenuineIntel\n", 2},
                 {"vendor_id\nvendor_id : : :\n", 0},
                 {"vendor_id : Other\nvendor_id : GenuineIntel\n", 5}},
                procCPU);
}

// "Pentium(R) III" does not contain "Pentium III", but it contains "Pentium".
TEST_F(Identity, FindsIntelModelsInOrder) {
    ExpectModels(1, {{"486 DX/4", 1},
                     {"Intel(R) Xeon(R) E5-2486", 1},
                     {"Pentium Pro", 2},
                     {"Pentium IIII", 6},
                     {"Pentium IV", 6},
                     {"Intel Pentium 4", 6},
                     {"Pentium III (Coppermine)", 4},
                     {"Mobile Intel(R) Celeron(R)", 5},
                     {"Pentium III Celeron", 4},
                     {"Celeron Pentium II", 5},
                     {"Pentium II (Deschutes)", 3},
                     {"Pentium 75 - 200", 2},
                     {"Intel(R) Pentium(R) III CPU", 2},
                     {"pentium", 0},
                     {"Intel(R) Core(TM) i7", 0},
                     {"AMD Athlon", 0}});
}

TEST_F(Identity, FindsAmdModelsInOrder) {
    ExpectModels(2, {{"AMD-K5(tm) Processor", 1},
                     {"AMD-K6-2", 3},
                     {"AMD-K6-3", 4},
                     {"AMD-K6(tm) 3D+ Processor", 2},
                     {"AMD Duron(tm)", 6},
                     {"AMD Athlon Duron", 6},
                     {"AMD AthlonMP", 7},
                     {"AMD Athlon MP 2000+", 7},
                     {"AMD Athlon 4", 8},
                     {"AMD Athlon IIII", 8},
                     {"AMD Athlon IV", 8},
                     {"AMD Athlon(tm) XP 2400+", 5},
                     {"AMD Ryzen 7", 0},
                     {"athlon", 0},
                     {"Pentium III", 0}});
}

TEST_F(Identity, ReturnsNoModelForOtherVendors) {
    for (const int vendor : {0, 3, 4, 5, -1, 2147483647})
        ExpectModels(vendor, {{"Pentium III K6-2", 0}});
}

TEST_F(Identity, UsesFirstKnownModelName) {
    ExpectCodes({{"model name : Core\nMODEL NAME : Celeron\nmodel name : 486\n", 5},
                 {"model\t\t: 486\n model name : 486\n", 0},
                 {"model name486\n", 1}},
                [] { return procCPUModel(1); });
}

TEST_F(Identity, FindsDistributionByWord) {
    Cases files;
    for (const char* word : {"redhat", "RedHat", "REDHAT", "red hat", "Red Hat", "RED HAT"})
        files.emplace_back(std::string("Linux version 2.4 (gcc ") + word + ")\n", 1);
    for (const char* word : {"suse", "SuSE", "SUSE"})
        files.emplace_back(std::string("Linux version 2.4 (gcc ") + word + ")\n", 2);
    files.insert(files.end(), {{"Linux 2.4.21-0.13mdk (Mandrake Linux 9.1 3.2.2-3mdk)\n", 3},
                               {"Linux mandrake\n", 3},
                               {"gcc (SUSE Linux) 7.5.0, SUSE Linux Enterprise 15\n", 2},
                               {"SUSE then Red Hat mdk\n", 1},
                               {"mdk then suse\n", 2},
                               {"Suse Redhat Mandrake MDK\n", 0},
                               {"Linux 6.1.0-13-amd64 (gcc-12 (Debian 12.2.0-14) 12.2.0)\n", 0},
                               {"", 0},
                               {"first line\nsecond suse", 2},
                               {"mandrake\nredhat\n", 3}});
    hx_test::ExpectEach("/proc/version", files, procVersion);
}

TEST_F(Identity, ReturnsCacheSizeInKilobytes) {
    ExpectCodes({{"cache size : 512 KB\n", 512},
                 {"cache size\t: 2 MB\n", 2048},
                 {"cache size : 2048\n", 2048},
                 {"CACHE SIZE : 64 KB", 64},
                 {"cache size : MB 2\n", 2048},
                 {"cache size : 8 MB KB\n", 8},
                 {"cache size : 4 8 16 MB\n", 4096},
                 {"cache size : 2 mb\n", 2},
                 {"cache size : 12abc KB\n", 12},
                 {"cache size : 0 KB\ncache size : 5 KB\n", 0},
                 {"cache size : none 7 KB\n", 7}},
                procCacheSize);
}

TEST_F(Identity, SkipsCacheLineWithoutNumber) {
    ExpectCodes({{"cache size : unknown\ncache size : 256 KB\n", 256},
                 {"cache size :\ncache size : -5\ncache size : 3\n", 3},
                 {"cache size : -1 2 KB\n", 2},
                 {"cache size : unknown MB\ncache size : 2\n", 2048},
                 {"cache size : unknown\n", 0},
                 {" cache size : 512 KB\n", 0},
                 {"processor : 0\n", 0},
                 {"", 0}},
                procCacheSize);
}

TEST_F(Identity, TruncatesCacheSizeTo32Bits) {
    ExpectCodes({{"cache size : 4294967296 KB\n", 0},
                 {"cache size : 4294967298 MB\n", 2048},
                 // 2^21 MB are 2^31 KB, which is the lowest int.
                 {"cache size : 2097152 MB\n", -2147483647 - 1},
                 {"cache size : 4194305 MB\n", 1024},
                 // 2^31 is the lowest int, which is not a size.
                 {"cache size : 2147483648 KB\ncache size : 9 KB\n", 9}},
                procCacheSize);
}

// The two probes that do not change lines can run between two strtok calls of the caller.
TEST_F(Identity, KeepsStrtokStateInModelAndDistribution) {
    hx_test::WithProcFile("/proc/cpuinfo", "model name : Pentium III\n", [] {
        char text[] = "one two three";
        EXPECT_STREQ(std::strtok(text, " "), "one");
        EXPECT_EQ(procCPUModel(1), 4);
        EXPECT_STREQ(std::strtok(nullptr, " "), "two");
        procVersion();
        EXPECT_STREQ(std::strtok(nullptr, " "), "three");
    });
}

}  // namespace
