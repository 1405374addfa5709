// When and how a QueueLimits file is written.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "setuprun/CInstallBase.h"
#include "setuprun/CQueueLimits.h"

namespace {

namespace fs = std::filesystem;
using hx_test::World;

constexpr const char* original =
    "# kept as it is\nMaxThreads: 8\nMemoryPerThreadMB: 2000\nDiskPerThreadGB: 30\n"
    "Scratch: /scratch\nThreadsPerMolecule: 4\n";

// Returns the key form, by default with the values of `original`.
std::string KeyForm(int threads, int memory = 2000, const std::string& scratch = "/scratch",
                    int disk = 30, int perMolecule = 4) {
    return "MaxThreads: " + std::to_string(threads) +
           "\nMemoryPerThreadMB: " + std::to_string(memory) + "\nScratch: " + scratch +
           "\nDiskPerThreadGB: " + std::to_string(disk) +
           "\nThreadsPerMolecule: " + std::to_string(perMolecule) + "\n";
}

class QueueLimitsWrite : public testing::Test {
protected:
    QueueLimitsWrite() { hx_test::WriteFile(m_file, original); }

    std::string Content() const { return hx_test::ReadFile(m_file); }
    const char* Directory() const { return m_dir.path().c_str(); }

    // Returns the content after `change` and the destructor.
    std::string ContentAfter(const std::function<void(CQueueLimits&)>& change) const {
        hx_test::WriteFile(m_file, original);
        {
            CQueueLimits limits(Directory());
            change(limits);
        }
        return Content();
    }

    hx_test::TempDir m_dir;
    std::string m_file = m_dir / "QueueLimits";
};

TEST_F(QueueLimitsWrite, DestructorWritesChangedValue) {
    const std::pair<std::function<void(CQueueLimits&)>, std::string> cases[] = {
        {[](CQueueLimits& limits) { limits.SetMaxThreads(6); }, KeyForm(6)},
        {[](CQueueLimits& limits) { limits.SetMaxThreads(-8); }, KeyForm(-8)},
        {[](CQueueLimits& limits) { limits.SetMemoryPerThread(5); }, KeyForm(8, 5)},
        {[](CQueueLimits& limits) { limits.SetScratchPath("/s 2"); }, KeyForm(8, 2000, "/s 2")},
        {[](CQueueLimits& limits) { limits.SetScratchPath("/scratcH"); },
         KeyForm(8, 2000, "/scratcH")},
        {[](CQueueLimits& limits) { limits.SetScratchPath("/scratc"); },
         KeyForm(8, 2000, "/scratc")},
        {[](CQueueLimits& limits) { limits.SetScratchPath(""); }, KeyForm(8, 2000, "")},
        // Values are compared with their length, but written up to a null byte.
        {[](CQueueLimits& limits) {
             limits.SetScratchPath({"/scratch\0x", 10});
         },
         KeyForm(8)},
        {[](CQueueLimits& limits) { limits.SetDiskPerThread(7); }, KeyForm(8, 2000, "/scratch", 7)},
        {[](CQueueLimits& limits) { limits.SetThreadsPerMolecule(0); },
         KeyForm(8, 2000, "/scratch", 30, 0)}};
    for (const auto& [change, text] : cases) {
        const auto changeAndCheck = [&change = change](CQueueLimits& limits) {
            change(limits);
            EXPECT_TRUE(limits.m_dirty);
        };
        EXPECT_EQ(ContentAfter(changeAndCheck), text);
    }
}

TEST_F(QueueLimitsWrite, DestructorKeepsFileWithoutChange) {
    const auto setSameValues = [](CQueueLimits& limits) {
        limits.SetMaxThreads(8);
        limits.SetMemoryPerThread(2000);
        limits.SetDiskPerThread(30);
        limits.SetThreadsPerMolecule(4);
        limits.SetScratchPath("/scratch");
        EXPECT_FALSE(limits.m_dirty);
    };
    EXPECT_EQ(ContentAfter(setSameValues), original);
    EXPECT_EQ(ContentAfter([](CQueueLimits&) {}), original);
    // An assignment without a setter is not a change.
    EXPECT_EQ(ContentAfter([](CQueueLimits& limits) { limits.MaxThreads = 5; }), original);
}

TEST_F(QueueLimitsWrite, RevertedChangeIsStillWritten) {
    const auto changeAndRevert = [](CQueueLimits& limits) {
        limits.SetMaxThreads(6);
        limits.SetMaxThreads(8);
        EXPECT_TRUE(limits.m_dirty);
    };
    EXPECT_EQ(ContentAfter(changeAndRevert), KeyForm(8));
}

TEST_F(QueueLimitsWrite, WritesUnchangedAndChangedObject) {
    CQueueLimits limits(Directory());
    EXPECT_EQ(limits.writeQueueLimits(), 0);
    EXPECT_EQ(Content(), KeyForm(8));
    limits.SetMaxThreads(6);
    EXPECT_EQ(limits.writeQueueLimits(), 0);
    EXPECT_FALSE(limits.m_dirty);
    EXPECT_EQ(Content(), KeyForm(6));
}

TEST_F(QueueLimitsWrite, ReplacesWholeFileWithKeyForm) {
    for (const std::string& text :
         {std::string("12"), "MaxThreads: 12\n" + std::string(9000, '#')}) {
        hx_test::WriteFile(m_file, text);
        CQueueLimits limits(Directory());
        EXPECT_EQ(limits.writeQueueLimits(), 0);
        EXPECT_EQ(Content(), KeyForm(12, 1024, "/tmp", 1, 0));
    }
}

TEST_F(QueueLimitsWrite, KeepsModeOwnerAndInode) {
    chmod(m_file.c_str(), 0664);
    // Only root can set another owner.
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

TEST_F(QueueLimitsWrite, DoesNotCreateMissingFile) {
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

TEST_F(QueueLimitsWrite, DoesNotWriteFileCreatedLater) {
    fs::remove(m_file);
    CQueueLimits limits(Directory());
    hx_test::WriteFile(m_file, original);
    EXPECT_FALSE(limits.accessQueueLimits());
    EXPECT_EQ(limits.writeQueueLimits(), -1);
    EXPECT_EQ(Content(), original);
}

TEST_F(QueueLimitsWrite, ReturnsErrorOfOpenAndRemainsDirty) {
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

TEST_F(QueueLimitsWrite, KeepsFileWithoutWritePermission) {
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
    EXPECT_EQ(Content(), original);
}

TEST_F(QueueLimitsWrite, AccessRequiresWritableFile) {
    CQueueLimits limits(Directory());
    EXPECT_TRUE(limits.accessQueueLimits());
    fs::remove(m_file);
    EXPECT_FALSE(limits.accessQueueLimits());
}

TEST_F(QueueLimitsWrite, DoesNotDetectWriteErrors) {
    CQueueLimits limits(Directory());
    limits.SetMaxThreads(6);
    fs::remove(m_file);
    fs::create_symlink("/dev/full", m_file);
    EXPECT_EQ(limits.writeQueueLimits(), 0);
    EXPECT_FALSE(limits.m_dirty);
}

TEST_F(QueueLimitsWrite, InstallErrorDoesNotWriteChange) {
    const auto result = hx_test::RunInChild({}, [&] {
        CQueueLimits limits(Directory());
        limits.SetMaxThreads(6);
        CInstallBase::InstallError("No luck", 3, 0);
    });
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(Content(), original);
}

}  // namespace
