// The clock, moved onto the figures that processors are sold by.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "probes/CpuInfo.h"
#include "probes/processor_identity.h"

namespace {

class NominalClock : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
};

void ExpectClocks(const std::vector<std::pair<std::string, int>>& clocks) {
    hx_test::WithCpuInfo("", [&] {
        for (const auto& [lines, expected] : clocks) {
            hx_test::WriteFile("/proc/cpuinfo", lines);
            EXPECT_EQ(procCPUMhz(), expected) << lines;
        }
    });
}

TEST_F(NominalClock, IsTheUsualFigureNearby) {
    std::vector<std::pair<std::string, int>> clocks;
    for (const auto& [measured, nominal] : std::vector<std::pair<std::string, int>>{
             {"66.5", 70},        {"99.9", 100},    {"133.3", 133},
             {"866.6", 866},      {"1250.0", 1250}, {"1699.0", 1700},
             {"2400.0", 2400},    {"3591.7", 3600}, {"233.863", 233},
             {"267.277", 266},    {"334.092", 333}, {"350.8", 350},
             {"400.913857", 400}, {"466.7", 466},   {"599.9", 600},
             {"999.5", 1000},     {"0", 0},         {"55.9", 50},
             {"56", 60},          {"100", 100}})
        clocks.emplace_back("cpu MHz\t\t: " + measured + "\n", nominal);
    ExpectClocks(clocks);
}

// Computed apart from this library, by the rule as it is written.
TEST_F(NominalClock, FollowsTheRuleAllOverTheScale) {
    std::vector<std::pair<std::string, int>> clocks;
    std::ifstream file(HX_PROBE_DATA "/nominal_clocks.txt");
    int nominal = 0;
    for (std::string measured; file >> measured >> nominal;)
        clocks.emplace_back("cpu MHz : " + measured + "\n", nominal);
    ASSERT_GT(clocks.size(), 1000U);
    ExpectClocks(clocks);
}

TEST_F(NominalClock, TheLastWordOfALineStands) {
    ExpectClocks({{"cpu MHz : 400 500\n", 500},
                  {"cpu MHz static : 5208\n", 5200},
                  {"cpu MHz 300\n", 300},
                  {"CPU mhz : : 700 :\n", 700},
                  {"cpu MHz : 800MHz\n", 800}});
}

TEST_F(NominalClock, IsMinusOneWithoutAFigure) {
    ExpectClocks({{"", -1},
                  {"processor : 0\n", -1},
                  {" cpu MHz : 400\n", -1},
                  {"clock : 3166.000000MHz\n", -1},
                  {"cpu MHz :\n", -1}});
}

TEST_F(NominalClock, WhatIsNoClockLeavesTheNextLineToDecide) {
    for (const char* word :
         {"", "-10", "-500.5", "nan", "-nan", "inf", "-inf", "1e999", "1e300", "2147483648"}) {
        const std::string line = std::string("cpu MHz : ") + word + "\n";
        ExpectClocks({{line, -1}, {line + "cpu MHz : 500\n", 500}});
    }
}

TEST_F(NominalClock, AWordThatIsNoNumberCountsAsZero) {
    ExpectClocks({{"cpu MHz : unknown\ncpu MHz : 500\n", 0},
                  {"cpu MHz : 2400.0 MHz\n", 0},
                  {"cpu MHz : -1\ncpu MHz : 500\n", 0}});
}

TEST_F(NominalClock, TheFirstLineWithAFigureDecides) {
    ExpectClocks({{"cpu MHz : 500\ncpu MHz : 700\n", 500}, {"cpu MHz : 0\ncpu MHz : 700\n", 0}});
}

}  // namespace
