// The rules by which the identity probes read their files.
#include "probes/processor_identity.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "probes/CpuInfo.h"

namespace {

using hx_test::WithCpuInfo;
using hx_test::WithProcFile;
using Cases = std::vector<std::pair<std::string, int>>;

class Identity : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
};

// Puts each text into the file in turn and compares what `probe` makes of it.
template <typename Probe>
void ExpectEach(const std::string& path, const Cases& cases, Probe probe) {
    WithProcFile(path, "", [&] {
        for (const auto& [text, expected] : cases) {
            hx_test::WriteFile(path, text);
            EXPECT_EQ(probe(), expected) << text;
        }
    });
}

template <typename Probe>
void ExpectEach(const Cases& cases, Probe probe) {
    ExpectEach("/proc/cpuinfo", cases, probe);
}

TEST_F(Identity, TheVendorIsComparedWithoutRegardToCase) {
    ExpectEach({{"vendor_id : GenuineIntel\n", 1},
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

TEST_F(Identity, TheVendorIsAWholeWordBehindAWholeKey) {
    ExpectEach({{"", 0},
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

TEST_F(Identity, TheFirstVendorWithAValueDecides) {
    ExpectEach({{"vendor_id :\nvendor_id : AuthenticAMD\nvendor_id : GenuineIntel\n", 2},
                {"vendor_id\nvendor_id : : :\n", 0},
                {"vendor_id : Other\nvendor_id : GenuineIntel\n", 5}},
               procCPU);
}

Cases Named(const Cases& names) {
    Cases lines;
    for (const auto& [name, code] : names)
        lines.emplace_back("processor : 0\nmodel name\t: " + name + "\n", code);
    return lines;
}

TEST_F(Identity, IntelModelsAreFoundInTheOrderOfTheirList) {
    ExpectEach(Named({{"486 DX/4", 1},
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
                      {"pentium", 0},
                      {"Intel(R) Core(TM) i7", 0},
                      {"AMD Athlon", 0}}),
               [] { return procCPUModel(1); });
}

// "Pentium(R) III" is not "Pentium III", but it holds the bare "Pentium".
TEST_F(Identity, ATrademarkSignHidesTheModelBehindIt) {
    ExpectEach(Named({{"Intel(R) Pentium(R) III CPU", 2}}), [] { return procCPUModel(1); });
}

TEST_F(Identity, AmdModelsAreFoundInTheOrderOfTheirList) {
    ExpectEach(Named({{"AMD-K5(tm) Processor", 1},
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
                      {"Pentium III", 0}}),
               [] { return procCPUModel(2); });
}

TEST_F(Identity, ALaterModelNameCanStillDecide) {
    ExpectEach({{"model name : Core\nMODEL NAME : Celeron\nmodel name : 486\n", 5},
                {"model\t\t: 486\n model name : 486\n", 0},
                {"model name486\n", 1}},
               [] { return procCPUModel(1); });
}

TEST_F(Identity, OtherVendorsHaveNoModels) {
    for (const int vendor : {0, 3, 4, 5, -1, 2147483647})
        ExpectEach(Named({{"Pentium III K6-2", 0}}), [vendor] { return procCPUModel(vendor); });
}

TEST_F(Identity, TheDistributionIsFoundByItsWords) {
    Cases cases;
    for (const char* word : {"redhat", "RedHat", "REDHAT", "red hat", "Red Hat", "RED HAT"})
        cases.emplace_back(std::string("Linux version 2.4 (gcc ") + word + ")\n", 1);
    for (const char* word : {"suse", "SuSE", "SUSE"})
        cases.emplace_back(std::string("Linux version 2.4 (gcc ") + word + ")\n", 2);
    cases.insert(cases.end(), {{"Linux 2.4.21-0.13mdk\n", 3},
                               {"Linux mandrake\n", 3},
                               {"gcc (SUSE Linux)\n", 2},
                               {"SUSE then Red Hat mdk\n", 1},
                               {"mdk then suse\n", 2},
                               {"Suse Redhat Mandrake MDK\n", 0},
                               {"Debian\n", 0},
                               {"", 0},
                               {"first line\nsecond suse", 2}});
    ExpectEach("/proc/version", cases, procVersion);
}

TEST_F(Identity, TheFirstLineThatNamesADistributionDecides) {
    ExpectEach("/proc/version", {{"mandrake\nredhat\n", 3}}, procVersion);
}

TEST_F(Identity, TheCacheIsToldInKilobytes) {
    ExpectEach({{"cache size : 512 KB\n", 512},
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

TEST_F(Identity, ACacheLineWithoutAFigureLeavesTheNextToDecide) {
    ExpectEach({{"cache size : unknown\ncache size : 256 KB\n", 256},
                {"cache size :\ncache size : -5\ncache size : 3\n", 3},
                {"cache size : -1 2 KB\n", 2},
                {"cache size : unknown\n", 0},
                {" cache size : 512 KB\n", 0},
                {"processor : 0\n", 0},
                {"", 0}},
               procCacheSize);
}

TEST_F(Identity, TheUnitOfACacheLineWithoutAFigureStays) {
    ExpectEach({{"cache size : unknown MB\ncache size : 2\n", 2048}}, procCacheSize);
}

TEST_F(Identity, CacheFiguresKeepTo32Bits) {
    ExpectEach({{"cache size : 4294967296 KB\n", 0},
                {"cache size : 4294967298 MB\n", 2048},
                // 2^21 MB are 2^31 KB, which is the lowest int.
                {"cache size : 2097152 MB\n", -2147483647 - 1},
                {"cache size : 4194305 MB\n", 1024},
                // 2^31 is the lowest int, below 0, and so no figure.
                {"cache size : 2147483648 KB\ncache size : 9 KB\n", 9}},
               procCacheSize);
}

TEST_F(Identity, FilesWithoutAnswersDifferForTheClockOnly) {
    WithCpuInfo("processor : 0\n", [] {
        EXPECT_EQ(procCPU(), 0);
        EXPECT_EQ(procCPUModel(1), 0);
        EXPECT_EQ(procCacheSize(), 0);
        EXPECT_EQ(procCPUMhz(), -1);
    });
}

// A caller's own strtok goes on across the two probes that do not cut lines.
TEST_F(Identity, ModelAndDistributionLeaveStrtokAlone) {
    WithCpuInfo("model name : Pentium III\n", [] {
        char text[] = "one two three";
        EXPECT_STREQ(std::strtok(text, " "), "one");
        EXPECT_EQ(procCPUModel(1), 4);
        EXPECT_STREQ(std::strtok(nullptr, " "), "two");
        procVersion();
        EXPECT_STREQ(std::strtok(nullptr, " "), "three");
    });
}

}  // namespace
