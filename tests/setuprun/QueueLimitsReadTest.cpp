// How a QueueLimits file is found and read.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <type_traits>

#include "Machine.h"
#include "harness/Child.h"
#include "harness/TempDir.h"
#include "setuprun/CQueueLimits.h"

namespace {

using hx_test::World;

void ExpectValues(const CQueueLimits& limits, int threads, int memory, int disk,
                  const std::string& scratch, int perMolecule) {
    EXPECT_EQ(limits.MaxThreads, threads);
    EXPECT_EQ(limits.MemoryPerThreadMB, memory);
    EXPECT_EQ(limits.DiskPerThreadGB, disk);
    EXPECT_EQ(limits.Scratch, scratch);
    EXPECT_EQ(limits.ThreadsPerMolecule, perMolecule);
    EXPECT_FALSE(limits.m_dirty);
}

void ExpectDefaults(const CQueueLimits& limits) {
    ExpectValues(limits, 0, 1024, 1, "/tmp", 0);
}

// Reads a file of this text.
void Reading(const std::string& text, const std::function<void(const CQueueLimits&)>& look) {
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "QueueLimits", text);
    const CQueueLimits limits(dir.path().c_str());
    EXPECT_EQ(limits.m_path, dir / "QueueLimits");
    look(limits);
}

std::string ScratchOf(const std::string& text) {
    std::string scratch;
    Reading(text, [&](const CQueueLimits& limits) { scratch = limits.Scratch; });
    return scratch;
}

int MaxThreadsOf(const std::string& text) {
    int threads = -1;
    Reading(text, [&](const CQueueLimits& limits) { threads = limits.MaxThreads; });
    return threads;
}

TEST(QueueLimitsRead, TakesEveryKey) {
    Reading(
        "MaxThreads: 8\nMemoryPerThreadMB: 2000\nScratch: /scratch\nDiskPerThreadGB: 30\n"
        "ThreadsPerMolecule: 4\n",
        [](const CQueueLimits& limits) { ExpectValues(limits, 8, 2000, 30, "/scratch", 4); });
}

TEST(QueueLimitsRead, TakesKeysInAnyOrderAndCase) {
    Reading(
        "threadspermolecule: 4\nSCRATCH: /s\n  diskperthreadgb:\t\t30\nmaxTHREADS:     8\n"
        "\tMEMORYperTHREADmb:2000",
        [](const CQueueLimits& limits) { ExpectValues(limits, 8, 2000, 30, "/s", 4); });
}

TEST(QueueLimitsRead, AnEmptyFileGivesTheDefaults) {
    Reading("", ExpectDefaults);
}

TEST(QueueLimitsRead, MissingKeysKeepTheirDefaults) {
    Reading("Scratch: /s\n",
            [](const CQueueLimits& limits) { ExpectValues(limits, 0, 1024, 1, "/s", 0); });
}

TEST(QueueLimitsRead, PassesOverOtherLines) {
    Reading(
        "# MaxThreads: 3\n\nMaxThreads 4\nMaxThreads : 5\nMax Threads: 6\nThreads: 7\n"
        "xScratch: /x\n",
        ExpectDefaults);
}

TEST(QueueLimitsRead, TheLaterOfTwoEqualKeysWins) {
    EXPECT_EQ(MaxThreadsOf("MaxThreads: 8\nMaxThreads: 6\n"), 6);
    EXPECT_EQ(ScratchOf("Scratch: /one\nscratch: /two\n"), "/two");
}

TEST(QueueLimitsRead, ABadValueOverwritesTheDefaultWithZero) {
    Reading(
        "MaxThreads: x\nMemoryPerThreadMB: letters\nDiskPerThreadGB: -3\n"
        "ThreadsPerMolecule: 0\n",
        [](const CQueueLimits& limits) { ExpectValues(limits, 0, 0, 0, "/tmp", 0); });
    EXPECT_EQ(MaxThreadsOf("MaxThreads: 8\nMaxThreads:\n"), 0);
}

TEST(QueueLimitsRead, AnEmptyScratchOverwritesTheDefault) {
    EXPECT_EQ(ScratchOf("Scratch:\n"), "");
    EXPECT_EQ(ScratchOf("Scratch: \t\n"), "");
}

TEST(QueueLimitsRead, KeepsACarriageReturnInTheScratchDirectory) {
    Reading("MaxThreads: 8\r\nScratch: /s\r\n",
            [](const CQueueLimits& limits) { ExpectValues(limits, 8, 1024, 1, "/s\r", 0); });
}

TEST(QueueLimitsRead, TheBareFormIsTheNumberAlone) {
    const auto expectEight = [](const CQueueLimits& limits) {
        ExpectValues(limits, 8, 1024, 1, "/tmp", 0);
    };
    Reading("8", expectEight);
    Reading("8\n", expectEight);
    Reading(" \t 8 Scratch: /s\n", expectEight);
    Reading("8\nScratch: /s\nMaxThreads: 3\n", expectEight);
    Reading("8MaxThreads: 3\n", expectEight);
    Reading("+8\nScratch: /s\n", expectEight);
}

TEST(QueueLimitsRead, AFirstNumberBelowOneIsNoBareForm) {
    const auto expectKeys = [](const CQueueLimits& limits) {
        ExpectValues(limits, 0, 1024, 7, "/s", 0);
    };
    for (const char* number : {"0", "-1", "00", " 0", "4294967296", "2147483648"})
        Reading(std::string(number) + "\nScratch: /s\nDiskPerThreadGB: 7\n", expectKeys);
}

TEST(QueueLimitsRead, ABareNumberIsCutTo32Bits) {
    Reading("4294967305\nScratch: /s\n",
            [](const CQueueLimits& limits) { ExpectValues(limits, 9, 1024, 1, "/tmp", 0); });
}

TEST(QueueLimitsRead, ANumberOnALaterLineIsNoBareForm) {
    EXPECT_EQ(MaxThreadsOf("\n8\n"), 0);
    EXPECT_EQ(MaxThreadsOf("Scratch: /s\n8\n"), 0);
}

TEST(QueueLimitsRead, APieceOf255BytesIsALine) {
    EXPECT_EQ(MaxThreadsOf(std::string(255, '#') + "MaxThreads: 9\n"), 9);
    EXPECT_EQ(MaxThreadsOf(std::string(510, '#') + "MaxThreads: 9\n"), 9);
    EXPECT_EQ(MaxThreadsOf(std::string(254, '#') + "MaxThreads: 9\n"), 0);
    EXPECT_EQ(MaxThreadsOf(std::string(256, '#') + "MaxThreads: 9\n"), 0);
}

TEST(QueueLimitsRead, ALongScratchDirectoryIsCutAtItsPiece) {
    const std::string line = "Scratch: /" + std::string(400, 's');
    EXPECT_EQ(ScratchOf(line + "\n"), line.substr(9, 255 - 9));
}

TEST(QueueLimitsRead, ANumberBehindTheFirstPieceIsNoBareForm) {
    EXPECT_EQ(MaxThreadsOf(std::string(255, ' ') + "8\n"), 0);
    EXPECT_EQ(MaxThreadsOf(std::string(254, ' ') + "8\n"), 8);
}

TEST(QueueLimitsRead, AMissingFileGivesDefaultsAndNoPath) {
    const hx_test::TempDir dir;
    const CQueueLimits limits(dir.path().c_str());
    EXPECT_EQ(limits.m_path, "");
    ExpectDefaults(limits);
}

TEST(QueueLimitsRead, AnUnreadableFileGivesDefaultsAndNoPath) {
    HX_REQUIRE_NAMESPACES();
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "QueueLimits", "MaxThreads: 8\n");
    chmod((dir / "QueueLimits").c_str(), 0200);
    const auto result = hx_test::RunInChild({.identity = World::Identity::User}, [&] {
        const CQueueLimits limits(dir.path().c_str());
        EXPECT_EQ(limits.m_path, "");
        ExpectDefaults(limits);
    });
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST(QueueLimitsRead, SaysNothing) {
    const auto result = hx_test::RunInChild({}, [] {
        const CQueueLimits limits("/nowhere at all");
        EXPECT_EQ(limits.m_path, "");
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
}

class QueueLimitsDirectory : public testing::Test {
protected:
    void SetUp() override {
        HX_REQUIRE_NAMESPACES();
        hx_test::WriteFile(m_dir / "QueueLimits", "Scratch: /in-root\n");
        std::filesystem::create_directory(m_dir / "rc");
        hx_test::WriteFile(m_dir / "rc/QueueLimits", "Scratch: /in-rc\n");
    }

    // The path and the scratch directory that are read with the test's directory as the root, so
    // that a file at the root of the file system can be had.
    std::string Read(const char* directory, const char* environment) const {
        const auto result = hx_test::RunInChild({.identity = World::Identity::Root}, [&] {
            ASSERT_EQ(chroot(m_dir.path().c_str()), 0);
            if (environment != nullptr)
                setenv("CORV_CORVANERC", environment, 1);
            else
                unsetenv("CORV_CORVANERC");
            const CQueueLimits limits(directory);
            std::printf("%s %s", limits.m_path.c_str(), limits.Scratch.c_str());
            EndWithoutLeakCheck();
        });
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        return result.out;
    }

    hx_test::TempDir m_dir;
};

TEST_F(QueueLimitsDirectory, IsTheGivenOne) {
    EXPECT_EQ(Read("/rc", "/elsewhere"), "/rc/QueueLimits /in-rc");
    EXPECT_EQ(Read("/rc/", nullptr), "/rc//QueueLimits /in-rc");
}

TEST_F(QueueLimitsDirectory, IsThatOfTheEnvironmentForANullPointer) {
    EXPECT_EQ(Read(nullptr, "/rc"), "/rc/QueueLimits /in-rc");
    EXPECT_EQ(Read(nullptr, "/elsewhere"), " /tmp");
}

TEST_F(QueueLimitsDirectory, IsTheRootWithoutEither) {
    EXPECT_EQ(Read(nullptr, nullptr), "/QueueLimits /in-root");
    EXPECT_EQ(Read(nullptr, ""), "/QueueLimits /in-root");
}

TEST_F(QueueLimitsDirectory, IsTheRootForAnEmptyTextWhateverTheEnvironment) {
    EXPECT_EQ(Read("", "/rc"), "/QueueLimits /in-root");
}

TEST(QueueLimitsClass, HasAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CQueueLimits>);
}

}  // namespace
