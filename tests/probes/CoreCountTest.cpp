// The number of cores, from /proc/cpuinfo and the configured processors.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "probes/FakeMachine.h"
#include "probes/cpu_memory.h"

namespace {

// Stanzas from a list of "PACKAGE:CORES" or "PACKAGE:CORES:CORE-ID". "-" is a missing line.
// Without a core id, the stanzas are numbered.
std::string Stanzas(const std::string& list) {
    std::string text;
    std::istringstream items(list);
    int number = 0;
    for (std::string package, cores, item; items >> item; ++number) {
        std::istringstream fields(item);
        std::string core;
        std::getline(fields, package, ':');
        std::getline(fields, cores, ':');
        if (!std::getline(fields, core))
            core = std::to_string(number);
        text += "processor\t: " + std::to_string(number) + "\nmodel name\t: any\n";
        if (package != "-")
            text += "physical id\t: " + package + "\ncore id\t\t: " + core + "\n";
        if (cores != "-")
            text += "cpu cores\t: " + cores + "\n";
        text += "\n";
    }
    return text;
}

std::string Repeated(int count, const std::string& list) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += list;
    return text;
}

// A machine with this /proc/cpuinfo, and this result of sysconf if it is negative.
FakeMachine& Configure(FakeMachine& machine, const std::string& cpuInfo, int processors) {
    machine.CpuInfo(cpuInfo);
    return processors < 0 ? machine.Sysconf(_SC_NPROCESSORS_CONF, processors)
                          : machine.Processors(processors);
}

// Calls hx_cpu_count(&count, verbose). Standard output contains the result and the count.
hx_test::ProcessResult CountCores(const FakeMachine& machine, int verbose = 0) {
    return machine.Run([verbose] {
        unsigned int count = 4711;
        const int result = hx_cpu_count(&count, verbose);
        std::printf("%d %d", result, static_cast<int>(count));
    });
}

struct Case {
    std::string cpuInfo;
    int processors;
    int cores;
};

class CoreCount : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_FAKE_MACHINE(); }

    static void ExpectCores(const std::vector<Case>& cases) {
        for (const Case& row : cases) {
            SCOPED_TRACE(row.cpuInfo.substr(0, 500));
            FakeMachine machine;
            const auto result = CountCores(Configure(machine, row.cpuInfo, row.processors));
            EXPECT_EQ(result.out, "0 " + std::to_string(row.cores));
            EXPECT_EQ(result.err, "");
        }
    }

    // Configures more processors than any file lists, so that the file decides.
    static void ExpectCoresOfFile(const std::vector<std::pair<std::string, int>>& files) {
        for (const auto& [cpuInfo, cores] : files)
            ExpectCores({{cpuInfo, 5000, cores}});
    }
};

TEST_F(CoreCount, CountsPackageByFirstStanzaWithCores) {
    ExpectCores({{Stanzas(Repeated(16, "0:8 1:8 ")), 32, 16},
                 {Stanzas("0:2 0:6 0:6"), 16, 2},
                 {Stanzas("0:0 0:4 0:4 0:4"), 16, 4},
                 {Stanzas("0:0 0:3 0:5"), 16, 3},
                 {Stanzas("0:-1 0:4 0:4"), 16, 3},
                 {Stanzas("0:2 7:3 0:2 7:3 -:-"), 16, 6}});
}

TEST_F(CoreCount, IgnoresCoreIds) {
    ExpectCores({{Stanzas("0:2:5 0:2:5 1:2:5"), 16, 4}});
}

TEST_F(CoreCount, CountsEachStanzaWithoutPackage) {
    ExpectCores({{Stanzas(Repeated(6, "-:- ")), 6, 6},
                 {Stanzas(Repeated(6, "-:- ")), 8, 6},
                 {Stanzas("-:4 -:4 -:4 -:4"), 20, 16},
                 {Stanzas("-:-3 -:5"), 8, 2},
                 {Stanzas("-:-3"), 8, -3}});
}

TEST_F(CoreCount, NeverExceedsConfiguredProcessors) {
    ExpectCores({{Stanzas("0:12"), 11, 11},
                 {Stanzas("0:12"), 12, 12},
                 {Stanzas("0:12"), 13, 12},
                 {Stanzas("-:4 -:4 -:4 -:4"), 4, 4},
                 {Stanzas("0:4 0:4"), -1, -1}});
}

TEST_F(CoreCount, FallsBackToConfiguredProcessors) {
    ExpectCores({{"", 24, 24}, {"vendor_id\t: none\n", 5, 5}, {Stanzas("0:0 0:0"), 3, 3}});
}

TEST_F(CoreCount, TruncatesNumbersTo32Bits) {
    // 4294967295 becomes -1, which means no package.
    ExpectCores({{Stanzas("-:4294967298"), 16, 2}, {Stanzas("4294967295:2 4294967295:2"), 16, 4}});
}

TEST_F(CoreCount, ReadsAtMost1024Stanzas) {
    const std::string many = Repeated(1023, "-:- ");
    ExpectCoresOfFile({{Stanzas(many + "-:-"), 1024},
                       {Stanzas(many + "-:50"), 1073},
                       {Stanzas(many + "-:- -:50"), 1024},
                       {Stanzas(many + "-:- 3:50 3:60"), 1024}});
}

TEST_F(CoreCount, FindsKeysAtStartOfLine) {
    ExpectCoresOfFile(
        {{"processor: 0\ncpu cores:2\nprocessor \t \t: 1\ncpu cores\t\t \t:\t 3\n", 5},
         {"processor : 0\n cpu cores : 4\n\tprocessor : 1\nmy processor : 2\n", 1},
         {"Processor : 0\nprocessor : 1\nCPU cores : 4\n", 1},
         {"processor : 0\ncpu coresx : 4\n", 1},
         {"processor : 0\ncpu cores 4 : 4\n", 1},
         {"processor : 0\ncpu cores\n", 1},
         {"processor : 0\ncpu cores", 1},
         {"processor : 0\ncpu cores : 7", 7}});
}

TEST_F(CoreCount, AssignsLinesToStanzas) {
    ExpectCoresOfFile({{"physical id : 0\ncore id : 0\ncpu cores : 8\nprocessor : 0\n", 1},
                       {"processor : 0\nprocessors : 3\nprocessor : 1\n", 2},
                       {"processor : 0\nprocessors : 3\ncpu cores : 5\n", 5},
                       {"processor : 0\ncpu cores : 4\ncpu cores : 6\n", 6},
                       {"processor : 0\n\n\ncpu cores : 4\n", 4}});
}

TEST_F(CoreCount, ReadsMissingNumberAsZero) {
    const std::string stanza = "processor : 0\nphysical id :\ncpu cores : 4\n";
    ExpectCoresOfFile({{stanza + stanza, 4},
                       {stanza + "processor : 1\nphysical id : 0\ncpu cores : 4\n", 4},
                       {"processor : 0\ncpu cores : many\nprocessor : 1\n", 1}});
}

TEST_F(CoreCount, TreatsPiecesOfLongLineAsLines) {
    const std::string piece(1023, 'f');
    ExpectCoresOfFile({{"processor : 0\n" + piece + "cpu cores : 7\n", 7},
                       {"processor : 0\n" + piece + piece + "processor : 1\n", 2},
                       {"processor : 0\n" + piece.substr(1) + "cpu cores : 7\n", 1},
                       {"processor : 0\n" + piece + "fcpu cores : 7\n", 1}});
}

std::string Reported(int processors) {
    const std::string line = "  system reports " + std::to_string(processors) + " processors\n";
    return line + line;
}

std::string Found(int cores) {
    return "  found " + std::to_string(cores) + " cores in \"/proc/cpuinfo\"\n";
}

TEST_F(CoreCount, PrintsTraceOnStderr) {
    struct {
        Case input;
        int found;
    } const cases[] = {{{Stanzas("0:8"), 16, 8}, 8},
                       {{Stanzas("0:8"), 2, 2}, 8},
                       {{"", 3, 3}, 0},
                       {{Stanzas("0:4"), -1, -1}, 4}};
    for (const auto& [input, found] : cases) {
        FakeMachine machine;
        const auto result = CountCores(Configure(machine, input.cpuInfo, input.processors), 1);
        EXPECT_EQ(result.out, "0 " + std::to_string(input.cores));
        EXPECT_EQ(result.err, Reported(input.processors) + Found(found));
    }
}

TEST_F(CoreCount, PrintsTraceForAnyNonZeroSwitch) {
    FakeMachine machine;
    Configure(machine, "", 3);
    EXPECT_NE(CountCores(machine, -1).err, "");
    EXPECT_NE(CountCores(machine, 256).err, "");
}

TEST_F(CoreCount, FailsWithUnreadableFile) {
    FakeMachine machine;
    machine.CpuInfo(Stanzas("0:4"), 0).Processors(4);
    const std::string error = "  Error, can't open /proc/cpuinfo to read.\n";
    const auto quiet = CountCores(machine, 0);
    EXPECT_EQ(quiet.out, "-1 0");
    EXPECT_EQ(quiet.err, error);
    const auto traced = CountCores(machine, 1);
    EXPECT_EQ(traced.out, "-1 0");
    EXPECT_EQ(traced.err, Reported(4) + error);
}

}  // namespace
