// How the lines of /proc/cpuinfo are told apart when cores are counted.
#include <gtest/gtest.h>

#include <string>

#include "FakeMachine.h"

namespace {

class CoreCountFile : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_FAKE_MACHINE(); }
};

// The core count on a machine with so many processors that it is what the file says.
std::string CoresOf(const std::string& cpuInfo) {
    FakeMachine machine;
    machine.CpuInfo(cpuInfo).Processors(900);
    return CountCores(machine).out;
}

TEST_F(CoreCountFile, LinesBeforeTheFirstProcessorAreIgnored) {
    EXPECT_EQ(CoresOf("physical id : 0\ncore id : 0\ncpu cores : 8\nprocessor : 0\n"), "0 1");
}

TEST_F(CoreCountFile, AKeyIsFollowedByBlanksAndAColonOnly) {
    EXPECT_EQ(CoresOf("processor : 0\ncpu coresx : 4\n"), "0 1");
    EXPECT_EQ(CoresOf("processor : 0\ncpu cores 4 : 4\n"), "0 1");
    EXPECT_EQ(CoresOf("processor : 0\ncpu cores\n"), "0 1");
    EXPECT_EQ(CoresOf("processor : 0\ncpu cores"), "0 1");
}

TEST_F(CoreCountFile, ALongerWordIsNotAProcessor) {
    // Three stanzas, were the middle one taken.
    EXPECT_EQ(CoresOf("processor : 0\nprocessors : 3\nprocessor : 1\n"), "0 2");
}

TEST_F(CoreCountFile, ALongerWordDoesNotEndTheStanza) {
    EXPECT_EQ(CoresOf("processor : 0\nprocessors : 3\ncpu cores : 5\n"), "0 5");
}

TEST_F(CoreCountFile, AnyBlanksMayStandBeforeTheColon) {
    EXPECT_EQ(CoresOf("processor: 0\ncpu cores:2\nprocessor \t \t: 1\ncpu cores\t\t \t:\t 3\n"),
              "0 5");
}

TEST_F(CoreCountFile, KeysStandAtTheStartOfTheLine) {
    EXPECT_EQ(CoresOf("processor : 0\n cpu cores : 4\n\tprocessor : 1\nmy processor : 2\n"), "0 1");
}

TEST_F(CoreCountFile, KeysAreCaseSensitive) {
    EXPECT_EQ(CoresOf("Processor : 0\nprocessor : 1\nCPU cores : 4\n"), "0 1");
}

TEST_F(CoreCountFile, APackageWithoutANumberIsPackageZero) {
    const std::string stanza = "processor : 0\nphysical id :\ncpu cores : 4\n";
    EXPECT_EQ(CoresOf(stanza + stanza), "0 4");
    EXPECT_EQ(CoresOf(stanza + "processor : 1\nphysical id : 0\ncpu cores : 4\n"), "0 4");
}

TEST_F(CoreCountFile, CoresWithoutANumberAreNone) {
    EXPECT_EQ(CoresOf("processor : 0\ncpu cores : many\nprocessor : 1\n"), "0 1");
}

TEST_F(CoreCountFile, TheLastOfTwoEqualLinesCounts) {
    EXPECT_EQ(CoresOf("processor : 0\ncpu cores : 4\ncpu cores : 6\n"), "0 6");
}

TEST_F(CoreCountFile, AStanzaIsOpenedByItsProcessorLineNotByAnEmptyLine) {
    EXPECT_EQ(CoresOf("processor : 0\n\n\ncpu cores : 4\n"), "0 4");
}

TEST_F(CoreCountFile, EachPieceOfALongLineIsTakenAsALine) {
    const std::string piece(1023, 'f');
    EXPECT_EQ(CoresOf("processor : 0\n" + piece + "cpu cores : 7\n"), "0 7");
    EXPECT_EQ(CoresOf("processor : 0\n" + piece + piece + "processor : 1\n"), "0 2");
}

TEST_F(CoreCountFile, AKeyInsideAPieceIsNoKey) {
    EXPECT_EQ(CoresOf("processor : 0\n" + std::string(1022, 'f') + "cpu cores : 7\n"), "0 1");
    EXPECT_EQ(CoresOf("processor : 0\n" + std::string(1024, 'f') + "cpu cores : 7\n"), "0 1");
}

TEST_F(CoreCountFile, ALastLineWithoutNewlineCounts) {
    EXPECT_EQ(CoresOf("processor : 0\ncpu cores : 7"), "0 7");
}

}  // namespace
