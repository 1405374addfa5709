// The value of one line of the QueueLimits file.
#include <gtest/gtest.h>

#include <string>

#include "harness/TempDir.h"
#include "setuprun/CQueueLimits.h"

namespace {

int IntOf(const std::string& key, std::string line) {
    const hx_test::TempDir dir;
    CQueueLimits limits(dir.path().c_str());
    return limits.ParseIntForKey(key.c_str(), line.data());
}

// The text for the key; `line` becomes what the call left in the buffer.
std::string TextOf(const std::string& key, std::string& line) {
    const hx_test::TempDir dir;
    CQueueLimits limits(dir.path().c_str());
    std::string text = limits.ParseStringForKey(key.c_str(), line.data());
    line = line.c_str();
    return text;
}

std::string TextOfCopy(const std::string& key, std::string line) {
    return TextOf(key, line);
}

TEST(IntForKey, IsTheNumberBehindTheColon) {
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads: 8\n"), 8);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads:8"), 8);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads: \t  \t8 threads\n"), 8);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads:12abc\n"), 12);
    EXPECT_EQ(IntOf("Any Key", "Any Key: 2147483647"), 2147483647);
}

TEST(IntForKey, ComparesTheKeyWithoutRegardToCase) {
    EXPECT_EQ(IntOf("MaxThreads", "maxthreads: 8\n"), 8);
    EXPECT_EQ(IntOf("MaxThreads", "MAXTHREADS: 8\n"), 8);
    EXPECT_EQ(IntOf("mAXtHREADS", "MaxThreads: 8\n"), 8);
}

TEST(IntForKey, OfAnotherLineIsZero) {
    EXPECT_EQ(IntOf("MaxThreads", "MemoryPerThreadMB: 8\n"), 0);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThread: 8\n"), 0);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreadsX: 8\n"), 0);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads"), 0);
    EXPECT_EQ(IntOf("MaxThreads", ""), 0);
}

TEST(IntForKey, TheColonFollowsDirectly) {
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads : 8\n"), 0);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads 8\n"), 0);
}

TEST(IntForKey, DoesNotSkipLeadingBlanks) {
    EXPECT_EQ(IntOf("MaxThreads", " MaxThreads: 8\n"), 0);
    EXPECT_EQ(IntOf("MaxThreads", "\tMaxThreads: 8\n"), 0);
}

TEST(IntForKey, OfABadValueIsZero) {
    for (const char* value : {"", " ", "\n", " eight\n", " 0\n", " -4\n", " : 4\n"})
        EXPECT_EQ(IntOf("MaxThreads", std::string("MaxThreads:") + value), 0) << value;
}

TEST(IntForKey, IsCutTo32BitsBeforeItIsTested) {
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads: 4294967297\n"), 1);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads: 4294967296\n"), 0);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads: 2147483648\n"), 0);
    EXPECT_EQ(IntOf("MaxThreads", "MaxThreads: -4294967295\n"), 1);
}

TEST(TextForKey, IsWhatStandsBehindTheColon) {
    EXPECT_EQ(TextOfCopy("Scratch", "Scratch: /scratch\n"), "/scratch");
    EXPECT_EQ(TextOfCopy("Scratch", "Scratch:/scratch"), "/scratch");
    EXPECT_EQ(TextOfCopy("Scratch", "scratch: \t /my scratch \t \n\n"), "/my scratch");
}

TEST(TextForKey, KeepsACarriageReturn) {
    EXPECT_EQ(TextOfCopy("Scratch", "Scratch: /scratch\r\n"), "/scratch\r");
    EXPECT_EQ(TextOfCopy("Scratch", "Scratch: /scratch \r \n"), "/scratch \r");
}

TEST(TextForKey, MayBeEmpty) {
    EXPECT_EQ(TextOfCopy("Scratch", "Scratch:"), "");
    EXPECT_EQ(TextOfCopy("Scratch", "Scratch:\n"), "");
    EXPECT_EQ(TextOfCopy("Scratch", "Scratch: \t \n"), "");
}

TEST(TextForKey, OfAnotherLineIsEmpty) {
    EXPECT_EQ(TextOfCopy("Scratch", "Scratches: /scratch\n"), "");
    EXPECT_EQ(TextOfCopy("Scratch", "Scratch : /scratch\n"), "");
    EXPECT_EQ(TextOfCopy("Scratch", "Scratch /scratch\n"), "");
    EXPECT_EQ(TextOfCopy("Scratch", ""), "");
}

TEST(TextForKey, DoesNotSkipLeadingBlanks) {
    EXPECT_EQ(TextOfCopy("Scratch", " Scratch: /scratch\n"), "");
    EXPECT_EQ(TextOfCopy("Scratch", "\tScratch: /scratch\n"), "");
}

TEST(TextForKey, CutsTheCallersBuffer) {
    std::string line = "Scratch: /scratch \t\n";
    EXPECT_EQ(TextOf("Scratch", line), "/scratch");
    EXPECT_EQ(line, "Scratch: /scratch");
}

TEST(TextForKey, LeavesAnotherLineAlone) {
    std::string line = "Other: /scratch \n";
    EXPECT_EQ(TextOf("Scratch", line), "");
    EXPECT_EQ(line, "Other: /scratch \n");
}

}  // namespace
