// When and how a QueueLimits file is written.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "setuprun/CInstallBase.h"
#include "setuprun/CQueueLimits.h"

namespace {

namespace fs = std::filesystem;
using hx_test::World;

constexpr const char* Original =
    "# kept as it is\nMaxThreads: 8\nMemoryPerThreadMB: 2000\nDiskPerThreadGB: 30\n"
    "Scratch: /scratch\nThreadsPerMolecule: 4\n";

// The key form, with the values of the original file where no other is given.
std::string KeyForm(int threads, int memory = 2000, const std::string& scratch = "/scratch",
                    int disk = 30, int perMolecule = 4) {
    return "MaxThreads: " + std::to_string(threads) +
           "\nMemoryPerThreadMB: " + std::to_string(memory) + "\nScratch: " + scratch +
           "\nDiskPerThreadGB: " + std::to_string(disk) +
           "\nThreadsPerMolecule: " + std::to_string(perMolecule) + "\n";
}

class QueueLimitsWrite : public testing::Test {
protected:
    QueueLimitsWrite() { hx_test::WriteFile(m_file, Original); }

    std::string Content() const { return hx_test::ReadFile(m_file); }
    const char* Directory() const { return m_dir.path().c_str(); }

    // The content after `change` on an object that is destroyed then.
    template <typename Change>
    std::string ContentAfter(Change change) const {
        hx_test::WriteFile(m_file, Original);
        {
            CQueueLimits limits(Directory());
            change(limits);
        }
        return Content();
    }

    hx_test::TempDir m_dir;
    std::string m_file = m_dir / "QueueLimits";
};

TEST_F(QueueLimitsWrite, ADestroyedObjectWithAChangeWritesTheFile) {
    EXPECT_EQ(ContentAfter([](CQueueLimits& limits) { limits.SetMaxThreads(6); }), KeyForm(6));
    EXPECT_EQ(ContentAfter([](CQueueLimits& limits) { limits.SetMemoryPerThread(5); }),
              KeyForm(8, 5));
    EXPECT_EQ(ContentAfter([](CQueueLimits& limits) { limits.SetScratchPath("/s 2"); }),
              KeyForm(8, 2000, "/s 2"));
    EXPECT_EQ(ContentAfter([](CQueueLimits& limits) { limits.SetDiskPerThread(7); }),
              KeyForm(8, 2000, "/scratch", 7));
    EXPECT_EQ(ContentAfter([](CQueueLimits& limits) { limits.SetThreadsPerMolecule(0); }),
              KeyForm(8, 2000, "/scratch", 30, 0));
}

TEST_F(QueueLimitsWrite, PresentValuesLeaveTheObjectCleanAndTheFileAlone) {
    const auto setPresentValues = [](CQueueLimits& limits) {
        limits.SetMaxThreads(8);
        limits.SetMemoryPerThread(2000);
        limits.SetDiskPerThread(30);
        limits.SetThreadsPerMolecule(4);
        limits.SetScratchPath("/scratch");
        EXPECT_FALSE(limits.m_dirty);
    };
    EXPECT_EQ(ContentAfter(setPresentValues), Original);
}

TEST_F(QueueLimitsWrite, ADestroyedObjectWithoutAChangeLeavesTheFileAlone) {
    EXPECT_EQ(ContentAfter([](CQueueLimits&) {}), Original);
    // A value that was stored without a setter is no change.
    EXPECT_EQ(ContentAfter([](CQueueLimits& limits) { limits.MaxThreads = 5; }), Original);
}

TEST_F(QueueLimitsWrite, EverySetterMakesTheObjectDirty) {
    const auto isDirtyAfter = [this](auto change) {
        CQueueLimits limits(Directory());
        change(limits);
        const bool dirty = limits.m_dirty;
        limits.m_dirty = false;
        return dirty;
    };
    EXPECT_TRUE(isDirtyAfter([](CQueueLimits& l) { l.SetMaxThreads(-8); }));
    EXPECT_TRUE(isDirtyAfter([](CQueueLimits& l) { l.SetMemoryPerThread(2001); }));
    EXPECT_TRUE(isDirtyAfter([](CQueueLimits& l) { l.SetDiskPerThread(31); }));
    EXPECT_TRUE(isDirtyAfter([](CQueueLimits& l) { l.SetThreadsPerMolecule(5); }));
    EXPECT_TRUE(isDirtyAfter([](CQueueLimits& l) { l.SetScratchPath("/scratcH"); }));
    EXPECT_TRUE(isDirtyAfter([](CQueueLimits& l) { l.SetScratchPath("/scratc"); }));
    EXPECT_TRUE(isDirtyAfter([](CQueueLimits& l) { l.SetScratchPath(""); }));
    EXPECT_TRUE(isDirtyAfter([](CQueueLimits& l) { l.SetScratchPath({"/scratch\0x", 10}); }));
    EXPECT_EQ(Content(), Original);
}

TEST_F(QueueLimitsWrite, AChangeThatIsTakenBackStaysAChange) {
    const auto thereAndBack = [](CQueueLimits& limits) {
        limits.SetMaxThreads(6);
        limits.SetMaxThreads(8);
        EXPECT_TRUE(limits.m_dirty);
    };
    EXPECT_EQ(ContentAfter(thereAndBack), KeyForm(8));
}

TEST_F(QueueLimitsWrite, WritingMakesTheObjectClean) {
    CQueueLimits limits(Directory());
    limits.SetMaxThreads(6);
    EXPECT_EQ(limits.writeQueueLimits(), 0);
    EXPECT_FALSE(limits.m_dirty);
    EXPECT_EQ(Content(), KeyForm(6));
}

TEST_F(QueueLimitsWrite, WritesACleanObjectToo) {
    CQueueLimits limits(Directory());
    EXPECT_EQ(limits.writeQueueLimits(), 0);
    EXPECT_EQ(Content(), KeyForm(8));
}

TEST_F(QueueLimitsWrite, TurnsTheBareFormIntoTheKeyForm) {
    hx_test::WriteFile(m_file, "12");
    CQueueLimits limits(Directory());
    EXPECT_EQ(limits.writeQueueLimits(), 0);
    EXPECT_EQ(Content(), KeyForm(12, 1024, "/tmp", 1, 0));
}

TEST_F(QueueLimitsWrite, WritesInPlaceWithModeAndOwnerKept) {
    chmod(m_file.c_str(), 0664);
    // Root alone can give the file to another owner; for others it is their own that stays.
    if (geteuid() == 0) {
        ASSERT_EQ(chown(m_file.c_str(), 4711, 4712), 0);
    }
    struct stat before = {};
    ASSERT_EQ(stat(m_file.c_str(), &before), 0);
    {
        CQueueLimits limits(Directory());
        limits.SetMaxThreads(6);
    }
    struct stat after = {};
    ASSERT_EQ(stat(m_file.c_str(), &after), 0);
    EXPECT_EQ(Content(), KeyForm(6));
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(std::distance(fs::directory_iterator(m_dir.path()), {}), 1);
}

TEST_F(QueueLimitsWrite, LeavesNothingOfALongerFile) {
    hx_test::WriteFile(m_file, std::string("MaxThreads: 8\n") + std::string(9000, '#'));
    CQueueLimits limits(Directory());
    EXPECT_EQ(limits.writeQueueLimits(), 0);
    EXPECT_EQ(Content(), KeyForm(8, 1024, "/tmp", 1, 0));
}

TEST_F(QueueLimitsWrite, AMissingFileIsNeverMade) {
    fs::remove(m_file);
    {
        CQueueLimits limits(Directory());
        EXPECT_FALSE(limits.accessQueueLimits());
        limits.SetMaxThreads(6);
        EXPECT_EQ(limits.writeQueueLimits(), -1);
        EXPECT_TRUE(limits.m_dirty);
        EXPECT_EQ(limits.MaxThreads, 6);
    }
    EXPECT_FALSE(fs::exists(m_file));
}

TEST_F(QueueLimitsWrite, AFileThatAppearsLaterIsNotWritten) {
    fs::remove(m_file);
    CQueueLimits limits(Directory());
    hx_test::WriteFile(m_file, Original);
    EXPECT_FALSE(limits.accessQueueLimits());
    EXPECT_EQ(limits.writeQueueLimits(), -1);
    EXPECT_EQ(Content(), Original);
}

TEST_F(QueueLimitsWrite, AFailedOpenGivesItsErrorNumberAndStaysDirty) {
    CQueueLimits limits(Directory());
    limits.SetMaxThreads(6);
    fs::remove(m_file);
    fs::create_directory(m_file);
    EXPECT_EQ(limits.writeQueueLimits(), EISDIR);
    EXPECT_TRUE(limits.m_dirty);
    fs::remove(m_file);
    EXPECT_EQ(limits.writeQueueLimits(), 0);
    EXPECT_FALSE(limits.m_dirty);
    EXPECT_EQ(Content(), KeyForm(6));
}

TEST_F(QueueLimitsWrite, AFileThatTheUserMayNotWriteStays) {
    HX_REQUIRE_NAMESPACES();
    chmod(m_file.c_str(), 0444);
    const auto result = hx_test::RunInChild({.identity = World::Identity::User}, [&] {
        CQueueLimits limits(Directory());
        EXPECT_EQ(limits.m_path, m_file);
        EXPECT_FALSE(limits.accessQueueLimits());
        limits.SetMaxThreads(6);
        EXPECT_EQ(limits.writeQueueLimits(), EACCES);
        EXPECT_TRUE(limits.m_dirty);
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(Content(), Original);
}

TEST_F(QueueLimitsWrite, AWritableFileIsAccessible) {
    CQueueLimits limits(Directory());
    EXPECT_TRUE(limits.accessQueueLimits());
    fs::remove(m_file);
    EXPECT_FALSE(limits.accessQueueLimits());
}

TEST_F(QueueLimitsWrite, ErrorsAfterTheOpenAreNotNoticed) {
    CQueueLimits limits(Directory());
    limits.SetMaxThreads(6);
    fs::remove(m_file);
    fs::create_symlink("/dev/full", m_file);
    EXPECT_EQ(limits.writeQueueLimits(), 0);
    EXPECT_FALSE(limits.m_dirty);
}

TEST_F(QueueLimitsWrite, AnEndThroughInstallErrorWritesNothing) {
    const auto result = hx_test::RunInChild({}, [&] {
        CQueueLimits limits(Directory());
        limits.SetMaxThreads(6);
        CInstallBase::InstallError("No luck", 3, 0);
    });
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Content(), Original);
}

}  // namespace
