// The values of the previous setup in the fields of a new one.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Machine.h"

namespace {

constexpr const char* sharedFile = "/var/corvane/QueueLimits";
constexpr const char* allKeys =
    "MaxThreads: 8\nMemoryPerThreadMB: 2000\nScratch: /größe\nDiskPerThreadGB: 30\n"
    "ThreadsPerMolecule: 4\n";

struct Previous {
    int jobs = -1;
    int memory = -1;
    int scratchLimit = -1;
    const char* scratch = "";
    int perMolecule = 0;
};

constexpr Previous none = {};
constexpr Previous all = {8, 2000, 30, "/größe", 4};

void ExpectPrevious(const CInstallBase& run, const Previous& previous) {
    EXPECT_EQ(run.m_prevJobLimit, previous.jobs);
    EXPECT_EQ(run.m_prevMemoryLimitMB, previous.memory);
    EXPECT_EQ(run.m_prevScratchLimitGB, previous.scratchLimit);
    EXPECT_EQ(run.m_prevScratchDir, QString::fromUtf8(previous.scratch));
    EXPECT_EQ(run.m_threadsPerMolecule, previous.perMolecule);
}

class PreserveSettings : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    void ExpectConstructed(hx_test::World::Identity identity, const Previous& previous,
                           const char* argv0 = program) const {
        m_machine.Expect(identity, [&] {
            Construct({argv0}, [&](CInstallBase& run) { ExpectPrevious(run, previous); });
        });
    }

    Machine m_machine;
};

TEST_F(PreserveSettings, ChangesNothingWithoutReadableFile) {
    ExpectConstructed(AsRoot, none);
    m_machine.MakeDirectory("/var/corvane");
    ExpectConstructed(AsRoot, none);
    m_machine.Write(sharedFile, allKeys, 0);
    ExpectConstructed(AsUser, none);
}

TEST_F(PreserveSettings, ReadsFileOfInstallDirectory) {
    m_machine.Write("/opt/corvane26/QueueLimits", "3\n");
    struct {
        std::string text;
        Previous previous;
    } const cases[] = {{allKeys, all},
                       {std::string("# kept\n") + allKeys, all},
                       {"12", {12, 1024, 1, "/tmp", 0}},
                       {"", {0, 1024, 1, "/tmp", 0}}};
    for (const auto& test : cases) {
        m_machine.Write(sharedFile, test.text);
        ExpectConstructed(AsRoot, test.previous);
        EXPECT_EQ(m_machine.Read(sharedFile), test.text);
    }
}

TEST_F(PreserveSettings, ReadsFileOfPrivateCopy) {
    m_machine.Write("/opt/größe/QueueLimits", "MaxThreads: 3\n");
    ExpectConstructed(AsUser, {3, 1024, 1, "/tmp", 0}, "/opt/größe/cv_install");
}

TEST_F(PreserveSettings, DoesNotAffectFieldsOfThisSetup) {
    m_machine.Write(sharedFile, allKeys);
    m_machine.Expect(AsRoot, [] {
        Construct({program, "-m", "500", "-s", "9", "-d", "/other"}, [](CInstallBase& run) {
            ExpectPrevious(run, all);
            EXPECT_EQ(run.m_jobLimit, 0);
            EXPECT_EQ(run.m_memoryLimitMB, 0);
            EXPECT_EQ(run.m_scratchLimitGB, 0);
            EXPECT_EQ(run.m_argMemoryLimitMB, 500);
            EXPECT_EQ(run.m_argScratchLimitGB, 9);
            EXPECT_EQ(run.m_scratchDir, "/other");
        });
        Construct({program}, [](CInstallBase& run) {
            EXPECT_EQ(run.m_scratchDir, "/tmp");
            EXPECT_EQ(run.m_argMemoryLimitMB, -1);
            EXPECT_EQ(run.m_argScratchLimitGB, -1);
        });
    });
}

TEST_F(PreserveSettings, ReadsAgain) {
    m_machine.Write(sharedFile, allKeys);
    m_machine.Write("/var/second/QueueLimits", "2\n");
    m_machine.Expect(AsRoot, [] {
        Construct({program}, [](CInstallBase& run) {
            run.m_installDir = "/var/missing";
            run.PreserveSettings();
            ExpectPrevious(run, all);
            run.m_installDir = "/var/second";
            run.PreserveSettings();
            ExpectPrevious(run, {2, 1024, 1, "/tmp", 0});
        });
    });
}

}  // namespace
