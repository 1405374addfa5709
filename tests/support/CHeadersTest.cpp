// The C headers compile as C11, and the functions that they declare link and answer from there.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "c_headers.h"
#include "harness/TempDir.h"

namespace {

TEST(CHeaders, AreCompiledAsC11) {
    EXPECT_EQ(CStandardOfTheFile(), 201112L);
}

TEST(CHeaders, ReadLinesAndWholeFilesFromC) {
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "file", "first\nsecond\nthird");
    FILE* file = std::fopen((dir / "file").c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(FirstLineLengthFromC(file), 6u);
    EXPECT_EQ(CountLinesFromC(file), 2);
    std::fclose(file);
}

TEST(CHeaders, MeasureTheMachineFromC) {
    const CMeasures measures = MeasureFromC();
    const long configured = sysconf(_SC_NPROCESSORS_CONF);
    EXPECT_EQ(measures.logicalResult, 0);
    EXPECT_EQ(measures.logical, static_cast<unsigned int>(configured));
    EXPECT_EQ(measures.coresResult, 0);
    EXPECT_GE(measures.cores, 1u);
    EXPECT_LE(measures.cores, measures.logical);
    EXPECT_EQ(measures.processors, configured);
    const long long bytes = static_cast<long long>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE);
    EXPECT_EQ(measures.megabytes, bytes / 1048576);
}

}  // namespace
