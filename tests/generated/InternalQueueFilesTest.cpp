// The two files of the internal queue, and how the limits are read back.
#include <gtest/gtest.h>

#include "generated/Writing.h"
#include "harness/TempDir.h"
#include "setuprun/CQueueLimits.h"

namespace hx_test {
namespace {

class InternalQueueFiles : public testing::Test {
protected:
    InternalQueueFiles() { MakeDirectory(m_home / "install", 0755); }

    std::string LimitsFor(int jobLimit) {
        const auto result = WithRun(m_home.path(), [&](CInstallBase& run) {
            run.m_jobLimit = jobLimit;
            EXPECT_EQ(run.WriteInternalQueueLimits(), 1);
        });
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        EXPECT_EQ(result.out + result.err, "");
        return ReadFile(m_home / "install/QueueLimits");
    }

    TempDir m_home;
};

TEST_F(InternalQueueFiles, EntriesOfAnEarlierRunAreLost) {
    MakeFile(m_home / "install/queue_entries", "entries\n", 0600);
    const auto result = WithWriter(m_home.path(), &CInstallBase::CreateInternalQueueEntries);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(ReadFile(m_home / "install/queue_entries"), "");
    EXPECT_EQ(ModeOf(m_home / "install/queue_entries"), 0666U);
}

TEST_F(InternalQueueFiles, TheLimitIsTheWholeFile) {
    const std::pair<int, const char*> cases[] = {
        {4, "4"}, {12, "12"}, {0, "0"}, {-1, "-1"}, {2147483647, "2147483647"}};
    for (const auto& [limit, text] : cases)
        EXPECT_EQ(LimitsFor(limit), text);
}

TEST_F(InternalQueueFiles, KeysOfAnEarlierFileAreLost) {
    MakeFile(m_home / "install/QueueLimits",
             "MaxThreads: 2\nMemoryPerThreadMB: 600\nScratch: /tmp\nDiskPerThreadGB: 3\n"
             "ThreadsPerMolecule: 2\n",
             0664);
    EXPECT_EQ(LimitsFor(3), "3");
    EXPECT_EQ(ModeOf(m_home / "install/QueueLimits"), 0644U);
}

TEST_F(InternalQueueFiles, TheBareLimitReadsBackAsTheNumberOfThreads) {
    const std::string install = m_home / "install";
    for (const int limit : {7, 1, 0, -5}) {
        LimitsFor(limit);
        const auto result = RunInChild({}, [&] {
            const CQueueLimits limits(install.c_str());
            EXPECT_EQ(limits.MaxThreads, limit > 0 ? limit : 0);
            EXPECT_EQ(limits.MemoryPerThreadMB, 1024);
            EXPECT_EQ(limits.DiskPerThreadGB, 1);
            EXPECT_EQ(limits.Scratch, "/tmp");
        });
        EXPECT_EQ(result.status, 0) << result.out;
    }
}

}  // namespace
}  // namespace hx_test
