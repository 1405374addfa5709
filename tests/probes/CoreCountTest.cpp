// How packages, stanzas and configured processors make up the number of cores.
#include <gtest/gtest.h>

#include <string>

#include "FakeMachine.h"
#include "probes/cpu_memory.h"

namespace {

class CoreCount : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_FAKE_MACHINE(); }
};

// "result count" of hx_cpu_count with this /proc/cpuinfo and so many configured processors.
std::string CoresOf(const std::string& cpuInfo, int processors) {
    FakeMachine machine;
    machine.CpuInfo(cpuInfo).Processors(processors);
    const auto result = CountCores(machine);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
}

// Stanzas of one package with these figures for their cores.
std::string Package(int physicalId, std::initializer_list<int> cpuCores) {
    std::string text;
    int number = 0;
    for (const int cores : cpuCores) {
        text += Stanza(number, physicalId, number, cores);
        ++number;
    }
    return text;
}

TEST_F(CoreCount, TwoHyperThreadedPackagesOfEightCoresAreSixteen) {
    std::string text;
    for (int processor = 0; processor < 32; ++processor)
        text += Stanza(processor, processor % 2, processor / 2 % 8, 8);
    EXPECT_EQ(CoresOf(text, 32), "0 16");
}

TEST_F(CoreCount, StanzasWithoutPackageCountOneEach) {
    std::string text;
    for (int processor = 0; processor < 6; ++processor)
        text += Stanza(processor, -1, -1, -1);
    EXPECT_EQ(CoresOf(text, 6), "0 6");
    EXPECT_EQ(CoresOf(text, 8), "0 6");
    EXPECT_EQ(CoresOf(text, 4), "0 4");
}

TEST_F(CoreCount, StanzasWithoutPackageCountTheirOwnCores) {
    const std::string text = Package(-1, {4, 4, 4, 4});
    EXPECT_EQ(CoresOf(text, 4), "0 4");
    EXPECT_EQ(CoresOf(text, 20), "0 16");
}

TEST_F(CoreCount, IsNeverAboveTheConfiguredProcessors) {
    EXPECT_EQ(CoresOf(Package(0, {12}), 11), "0 11");
    EXPECT_EQ(CoresOf(Package(0, {12}), 12), "0 12");
    EXPECT_EQ(CoresOf(Package(0, {12}), 13), "0 12");
}

TEST_F(CoreCount, AFirstStanzaWithNoCoresDoesNotSpeakForItsPackage) {
    EXPECT_EQ(CoresOf(Package(0, {0, 4, 4, 4}), 16), "0 4");
    EXPECT_EQ(CoresOf(Package(0, {0, 3, 5}), 16), "0 3");
}

TEST_F(CoreCount, ALaterStanzaWithOtherCoresIsNotCountedAgain) {
    EXPECT_EQ(CoresOf(Package(0, {2, 6, 6}), 16), "0 2");
}

TEST_F(CoreCount, PackagesMayAlternate) {
    EXPECT_EQ(CoresOf(Stanza(0, 0, 0, 2) + Stanza(1, 7, 0, 3) + Stanza(2, 0, 1, 2) +
                          Stanza(3, 7, 1, 3) + Stanza(4, -1, -1, -1),
                      16),
              "0 6");
}

TEST_F(CoreCount, CoreNumbersTakeNoPart) {
    EXPECT_EQ(CoresOf(Stanza(0, 0, 5, 2) + Stanza(1, 0, 5, 2) + Stanza(2, 1, 5, 2), 16), "0 4");
}

TEST_F(CoreCount, AnEmptyFileFallsBackOnTheConfiguredProcessors) {
    EXPECT_EQ(CoresOf("", 24), "0 24");
    EXPECT_EQ(CoresOf("vendor_id\t: none\n", 5), "0 5");
}

TEST_F(CoreCount, ASumOfZeroFallsBackOnTheConfiguredProcessors) {
    EXPECT_EQ(CoresOf(Package(0, {0, 0}), 3), "0 3");
}

TEST_F(CoreCount, NegativeCoresAreSummedAsSigned) {
    EXPECT_EQ(CoresOf("processor : 0\ncpu cores : -3\nprocessor : 1\ncpu cores : 5\n", 8), "0 2");
    EXPECT_EQ(CoresOf("processor : 0\ncpu cores : -3\n", 8), "0 -3");
}

TEST_F(CoreCount, ANegativeFigureDoesNotSpeakForItsPackage) {
    EXPECT_EQ(CoresOf("processor : 0\nphysical id : 0\ncpu cores : -1\n" + Package(0, {4, 4}), 16),
              "0 3");
}

TEST_F(CoreCount, ANumberIsCutTo32BitsBeforeItIsTested) {
    EXPECT_EQ(CoresOf("processor : 0\ncpu cores : 4294967298\n", 16), "0 2");
    // 4294967295 becomes -1, which is no package.
    const std::string stanza = "processor : 0\nphysical id : 4294967295\ncpu cores : 2\n";
    EXPECT_EQ(CoresOf(stanza + stanza, 16), "0 4");
}

TEST_F(CoreCount, AFailingSysconfEndsAsMinusOne) {
    FakeMachine machine;
    machine.CpuInfo(Package(0, {4, 4})).Sysconf(_SC_NPROCESSORS_CONF, -1);
    EXPECT_EQ(CountCores(machine).out, "0 -1");
}

TEST_F(CoreCount, AtMost1024StanzasAreKept) {
    std::string text;
    for (int processor = 0; processor < 1024; ++processor)
        text += Stanza(processor, -1, -1, -1);
    EXPECT_EQ(CoresOf(text, 5000), "0 1024");
    EXPECT_EQ(CoresOf(text + Stanza(1024, -1, -1, 50), 5000), "0 1024");
    EXPECT_EQ(CoresOf(text + Stanza(1024, 3, 0, 50) + Stanza(1025, 3, 1, 60), 5000), "0 1024");
}

TEST_F(CoreCount, TheLastKeptStanzaIsCountedInFull) {
    std::string text;
    for (int processor = 0; processor < 1023; ++processor)
        text += Stanza(processor, -1, -1, -1);
    EXPECT_EQ(CoresOf(text + Stanza(1023, -1, -1, 50), 5000), "0 1073");
}

TEST(CoreCountOfNothing, ANullPointerGivesMinusOneAndNoWords) {
    const auto result = hx_test::RunInChild({}, [] {
        EXPECT_EQ(hx_cpu_count(nullptr, 0), -1);
        EXPECT_EQ(hx_cpu_count(nullptr, 1), -1);
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
}

}  // namespace
