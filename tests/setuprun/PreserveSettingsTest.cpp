// How the answers of the last installation come into the fields.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

constexpr const char* SharedFile = "/var/corvane/QueueLimits";
constexpr const char* AllKeys =
    "MaxThreads: 8\nMemoryPerThreadMB: 2000\nScratch: /größe\nDiskPerThreadGB: 30\n"
    "ThreadsPerMolecule: 4\n";

void ExpectPrevious(const CInstallBase& run, int jobs, int memory, int scratchLimit,
                    const char* scratch, int perMolecule) {
    EXPECT_EQ(run.m_prevJobLimit, jobs);
    EXPECT_EQ(run.m_prevMemoryLimitMB, memory);
    EXPECT_EQ(run.m_prevScratchLimitGB, scratchLimit);
    EXPECT_EQ(run.m_prevScratchDir, QString::fromUtf8(scratch));
    EXPECT_EQ(run.m_threadsPerMolecule, perMolecule);
}

void ExpectNoPrevious(const CInstallBase& run) {
    ExpectPrevious(run, -1, -1, -1, "", 0);
}

class PreservedSettings : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    void Look(hx_test::World::Identity identity,
              const std::function<void(const CInstallBase&)>& look,
              const std::vector<std::string>& words = {"/opt/corvane26/cv_install"}) const {
        m_machine.Expect(identity, [&] {
            Arguments arguments(words);
            const CInstallBase run(true, arguments.argc(), arguments.argv());
            look(run);
        });
    }

    Machine m_machine;
};

TEST_F(PreservedSettings, AreNoneOnAFirstInstallation) {
    Look(AsRoot, ExpectNoPrevious);
    m_machine.MakeDirectory("/var/corvane");
    Look(AsRoot, ExpectNoPrevious);
}

TEST_F(PreservedSettings, AreThoseOfTheKeyForm) {
    m_machine.Write(SharedFile, AllKeys);
    Look(AsRoot, [](const CInstallBase& run) { ExpectPrevious(run, 8, 2000, 30, "/größe", 4); });
}

TEST_F(PreservedSettings, StandBesideTheFieldsOfThisRun) {
    m_machine.Write(SharedFile, AllKeys);
    Look(AsRoot, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_jobLimit, 0);
        EXPECT_EQ(run.m_memoryLimitMB, 0);
        EXPECT_EQ(run.m_scratchLimitGB, 0);
        EXPECT_EQ(run.m_scratchDir, "/tmp");
        EXPECT_EQ(run.m_argMemoryLimitMB, -1);
        EXPECT_EQ(run.m_argScratchLimitGB, -1);
    });
}

TEST_F(PreservedSettings, AreNotTouchedByOptions) {
    m_machine.Write(SharedFile, AllKeys);
    Look(AsRoot,
         [](const CInstallBase& run) {
             ExpectPrevious(run, 8, 2000, 30, "/größe", 4);
             EXPECT_EQ(run.m_argMemoryLimitMB, 500);
             EXPECT_EQ(run.m_argScratchLimitGB, 9);
             EXPECT_EQ(run.m_scratchDir, "/other");
         },
         {"cv_install", "-m", "500", "-s", "9", "-d", "/other"});
}

TEST_F(PreservedSettings, OfTheBareFormAreItsNumberAndDefaults) {
    m_machine.Write(SharedFile, "12");
    Look(AsRoot, [](const CInstallBase& run) { ExpectPrevious(run, 12, 1024, 1, "/tmp", 0); });
}

TEST_F(PreservedSettings, OfAnEmptyFileAreTheDefaults) {
    m_machine.Write(SharedFile, "");
    Look(AsRoot, [](const CInstallBase& run) { ExpectPrevious(run, 0, 1024, 1, "/tmp", 0); });
}

TEST_F(PreservedSettings, OfAnUnreadableFileAreNone) {
    m_machine.Write(SharedFile, AllKeys, 0);
    Look(AsUser, [](const CInstallBase& run) {
        EXPECT_EQ(run.m_installDir, "/var/corvane");
        ExpectNoPrevious(run);
    });
}

TEST_F(PreservedSettings, OfAPrivateCopyAreReadBesideTheExecutable) {
    m_machine.Write("/opt/größe/QueueLimits", "MaxThreads: 3\n");
    Look(AsUser, [](const CInstallBase& run) { ExpectPrevious(run, 3, 1024, 1, "/tmp", 0); },
         {"/opt/größe/cv_install"});
}

TEST_F(PreservedSettings, ComeFromTheInstallDirectoryNotFromTheBinaries) {
    m_machine.Write(SharedFile, "5\n");
    m_machine.Write("/opt/corvane26/QueueLimits", "3\n");
    Look(AsRoot, [](const CInstallBase& run) { EXPECT_EQ(run.m_prevJobLimit, 5); });
}

TEST_F(PreservedSettings, LeaveTheFileAsItIs) {
    const std::string text = std::string("# kept\n") + AllKeys;
    m_machine.Write(SharedFile, text);
    Look(AsRoot, [](const CInstallBase& run) { EXPECT_EQ(run.m_prevJobLimit, 8); });
    EXPECT_EQ(m_machine.Read(SharedFile), text);
}

TEST_F(PreservedSettings, MayBeReadAgain) {
    m_machine.Write(SharedFile, AllKeys);
    m_machine.Write("/var/second/QueueLimits", "2\n");
    m_machine.Expect(AsRoot, [] {
        Arguments arguments({"cv_install"});
        CInstallBase run(true, arguments.argc(), arguments.argv());
        run.m_installDir = "/var/missing";
        run.PreserveSettings();
        ExpectPrevious(run, 8, 2000, 30, "/größe", 4);
        run.m_installDir = "/var/second";
        run.PreserveSettings();
        ExpectPrevious(run, 2, 1024, 1, "/tmp", 0);
    });
}

}  // namespace
