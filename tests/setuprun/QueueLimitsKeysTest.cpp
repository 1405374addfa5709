// The value of one line of a QueueLimits file.
#include <gtest/gtest.h>

#include <string>

#include "setuprun/CQueueLimits.h"

namespace {

struct LineCase {
    std::string line;
    int number;
};

TEST(ParseIntForKey, ReturnsNumberAfterKeyAndColon) {
    const LineCase cases[] = {{"MaxThreads: 8\n", 8},
                              {"MaxThreads:8", 8},
                              {"MaxThreads: \t  \t8 threads\n", 8},
                              {"MaxThreads:12abc\n", 12},
                              {"MaxThreads: 2147483647", 2147483647},
                              {"maxthreads: 8\n", 8},
                              {"MAXTHREADS: 8\n", 8},
                              // Truncated to 32 bits before the check.
                              {"MaxThreads: 4294967297\n", 1},
                              {"MaxThreads: -4294967295\n", 1}};
    for (LineCase test : cases) {
        CQueueLimits limits("/nowhere");
        EXPECT_EQ(limits.ParseIntForKey("mAXtHREADS", test.line.data()), test.number) << test.line;
    }
}

TEST(ParseIntForKey, ReturnsZeroForOtherLinesAndValues) {
    for (std::string line :
         {"MemoryPerThreadMB: 8\n", "MaxThread: 8\n", "MaxThreadsX: 8\n", "MaxThreads", "",
          "MaxThreads : 8\n", "MaxThreads 8\n", " MaxThreads: 8\n", "\tMaxThreads: 8\n",
          "MaxThreads:", "MaxThreads: ", "MaxThreads:\n", "MaxThreads: eight\n", "MaxThreads: 0\n",
          "MaxThreads: -4\n", "MaxThreads: : 4\n", "MaxThreads: 4294967296\n",
          "MaxThreads: 2147483648\n"}) {
        CQueueLimits limits("/nowhere");
        EXPECT_EQ(limits.ParseIntForKey("MaxThreads", line.data()), 0) << line;
    }
}

TEST(ParseStringForKey, ReturnsTextAndTruncatesLine) {
    struct {
        std::string line;
        const char* text;
        const char* rest;
    } cases[] = {
        {"Scratch: /scratch\n", "/scratch", "Scratch: /scratch"},
        {"Scratch:/scratch", "/scratch", "Scratch:/scratch"},
        {"scratch: \t /my scratch \t \n\n", "/my scratch", "scratch: \t /my scratch"},
        {"Scratch: /scratch\r\n", "/scratch\r", "Scratch: /scratch\r"},
        {"Scratch: /scratch \r \n", "/scratch \r", "Scratch: /scratch \r"},
        {"Scratch: \v/scratch\f\n", "\v/scratch\f", "Scratch: \v/scratch\f"},
        {"Scratch: \f/scratch\v\n", "\f/scratch\v", "Scratch: \f/scratch\v"},
        {"Scratch: \r\n", "\r", "Scratch: \r"},
        {"Scratch:", "", "Scratch:"},
        {"Scratch:\n", "", "Scratch:"},
        {"Scratches: /scratch\n", "", "Scratches: /scratch\n"},
        {"Scratch : /scratch\n", "", "Scratch : /scratch\n"},
        {"Scratch /scratch\n", "", "Scratch /scratch\n"},
        {" Scratch: /scratch\n", "", " Scratch: /scratch\n"},
        {"\tScratch: /scratch\n", "", "\tScratch: /scratch\n"},
        {"", "", ""},
    };
    for (auto& test : cases) {
        CQueueLimits limits("/nowhere");
        SCOPED_TRACE(test.line);
        EXPECT_EQ(limits.ParseStringForKey("Scratch", test.line.data()), test.text);
        EXPECT_STREQ(test.line.c_str(), test.rest);
    }
}

}  // namespace
