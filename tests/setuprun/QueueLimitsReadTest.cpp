// How a QueueLimits file is found and read.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <type_traits>

#include "Machine.h"
#include "setuprun/CQueueLimits.h"

namespace {

struct Values {
    int threads = 0;
    int memory = 1024;
    int disk = 1;
    std::string scratch = "/tmp";
    int perMolecule = 0;
};

void ExpectValues(const CQueueLimits& limits, const Values& values) {
    EXPECT_EQ(limits.MaxThreads, values.threads);
    EXPECT_EQ(limits.MemoryPerThreadMB, values.memory);
    EXPECT_EQ(limits.DiskPerThreadGB, values.disk);
    EXPECT_EQ(limits.Scratch, values.scratch);
    EXPECT_EQ(limits.ThreadsPerMolecule, values.perMolecule);
    EXPECT_FALSE(limits.m_dirty);
}

void ExpectRead(const std::vector<std::pair<std::string, Values>>& cases) {
    const hx_test::TempDir dir;
    for (const auto& [text, values] : cases) {
        SCOPED_TRACE(text);
        hx_test::WriteFile(dir / "QueueLimits", text);
        const CQueueLimits limits(dir.path().c_str());
        EXPECT_EQ(limits.m_path, dir / "QueueLimits");
        ExpectValues(limits, values);
    }
}

void ExpectThreads(const std::vector<std::pair<std::string, int>>& cases) {
    for (const auto& [text, threads] : cases)
        ExpectRead({{text, {.threads = threads}}});
}

void ExpectScratch(const std::vector<std::pair<std::string, std::string>>& cases) {
    for (const auto& [text, scratch] : cases)
        ExpectRead({{text, {.scratch = scratch}}});
}

TEST(QueueLimitsRead, ReadsKeysInAnyOrderAndCase) {
    ExpectRead({{"MaxThreads: 8\nMemoryPerThreadMB: 2000\nScratch: /scratch\nDiskPerThreadGB: 30\n"
                 "ThreadsPerMolecule: 4\n",
                 {8, 2000, 30, "/scratch", 4}},
                {"threadspermolecule: 4\nSCRATCH: /s\n  diskperthreadgb:\t\t30\nmaxTHREADS:     8\n"
                 "\tMEMORYperTHREADmb:2000",
                 {8, 2000, 30, "/s", 4}}});
}

TEST(QueueLimitsRead, KeepsDefaultsOfMissingKeys) {
    ExpectRead({{"", {}}, {"Scratch: /s\n", {.scratch = "/s"}}});
}

TEST(QueueLimitsRead, IgnoresOtherLines) {
    ExpectRead({{"# MaxThreads: 3\n\nMaxThreads 4\nMaxThreads : 5\nMax Threads: 6\nThreads: 7\n"
                 "xScratch: /x\n",
                 {}},
                {"MemoryPerThreadMB\nMemoryPerThreadMB 2000\nDiskPerThreadGB\nScratch\n"
                 "DiskPerThreadGB 30\nScratch /s\nMemoryPerThreadMB",
                 {}},
                {"\vMaxThreads: 8\n\fScratch: /s\n", {}}});
}

TEST(QueueLimitsRead, UsesLaterOfEqualKeys) {
    ExpectThreads({{"MaxThreads: 8\nMaxThreads: 6\n", 6}, {"MaxThreads: 8\nMaxThreads:\n", 0}});
    ExpectScratch({{"Scratch: /one\nscratch: /two\n", "/two"}});
}

TEST(QueueLimitsRead, ReadsInvalidNumberAsZero) {
    ExpectRead(
        {{"MaxThreads: x\nMemoryPerThreadMB: letters\nDiskPerThreadGB: -3\n"
          "ThreadsPerMolecule: 0\n",
          {0, 0, 0, "/tmp", 0}}});
}

TEST(QueueLimitsRead, TrimsSpacesAndTabsOfScratchOnly) {
    ExpectScratch({{"Scratch:\n", ""},
                   {"Scratch: \t\n", ""},
                   {"Scratch: \t/s \t\n", "/s"},
                   {"Scratch: /s\r\n", "/s\r"},
                   {"Scratch: \v/s\f\n", "\v/s\f"},
                   {"Scratch: \f/s\v\n", "\f/s\v"}});
}

TEST(QueueLimitsRead, ReadsBareNumberAlone) {
    for (const char* text : {"8", "8\n", " \t 8 Scratch: /s\n", "8\nScratch: /s\nMaxThreads: 3\n",
                             "8MaxThreads: 3\n", "+8\nScratch: /s\n"})
        ExpectThreads({{text, 8}});
    // Truncated to 32 bits.
    ExpectThreads({{"4294967305\nScratch: /s\n", 9}});
}

TEST(QueueLimitsRead, ReadsKeysAfterFirstNumberBelowOne) {
    for (const char* number : {"0", "-1", "00", " 0", "4294967296", "2147483648"})
        ExpectRead({{std::string(number) + "\nScratch: /s\nDiskPerThreadGB: 7\n",
                     {.disk = 7, .scratch = "/s"}}});
}

TEST(QueueLimitsRead, IgnoresBareNumberOnLaterLine) {
    ExpectThreads({{"\n8\n", 0}});
    ExpectRead({{"Scratch: /s\n8\n", {.scratch = "/s"}}});
}

TEST(QueueLimitsRead, ReadsPiecesOf255BytesAsLines) {
    ExpectThreads({{std::string(255, '#') + "MaxThreads: 9\n", 9},
                   {std::string(510, '#') + "MaxThreads: 9\n", 9},
                   {std::string(254, '#') + "MaxThreads: 9\n", 0},
                   {std::string(256, '#') + "MaxThreads: 9\n", 0},
                   {std::string(255, ' ') + "8\n", 0},
                   {std::string(254, ' ') + "8\n", 8}});
    const std::string line = "Scratch: /" + std::string(400, 's');
    ExpectScratch({{line + "\n", line.substr(9, 255 - 9)}});
}

TEST(QueueLimitsRead, HasDefaultsAndNoPathWithoutReadableFile) {
    HX_REQUIRE_NAMESPACES();
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "QueueLimits", "MaxThreads: 8\n");
    chmod((dir / "QueueLimits").c_str(), 0200);
    const auto result = hx_test::RunInChild({.identity = AsUser}, [&] {
        for (const char* directory : {dir.path().c_str(), "/nowhere at all"}) {
            const CQueueLimits limits(directory);
            EXPECT_EQ(limits.m_path, "");
            ExpectValues(limits, {});
        }
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.out + result.err, "");
}

// A directory can be opened, but has no lines.
TEST(QueueLimitsRead, HasDefaultsAndPathForDirectory) {
    const hx_test::TempDir dir;
    std::filesystem::create_directory(dir / "QueueLimits");
    const CQueueLimits limits(dir.path().c_str());
    EXPECT_EQ(limits.m_path, dir / "QueueLimits");
    ExpectValues(limits, {});
}

TEST(QueueLimitsRead, FindsDirectory) {
    HX_REQUIRE_NAMESPACES();
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "QueueLimits", "Scratch: /in-root\n");
    std::filesystem::create_directory(dir / "rc");
    hx_test::WriteFile(dir / "rc/QueueLimits", "Scratch: /in-rc\n");
    struct {
        const char* directory;
        const char* environment;
        const char* read;
    } const cases[] = {{"/rc", "/elsewhere", "/rc/QueueLimits /in-rc"},
                       {"/rc/", nullptr, "/rc//QueueLimits /in-rc"},
                       {nullptr, "/rc", "/rc/QueueLimits /in-rc"},
                       {nullptr, "/elsewhere", " /tmp"},
                       {nullptr, nullptr, "/QueueLimits /in-root"},
                       {nullptr, "", "/QueueLimits /in-root"},
                       {"", "/rc", "/QueueLimits /in-root"}};
    for (const auto& test : cases) {
        const auto result = hx_test::RunInChild({.identity = AsRoot}, [&] {
            ASSERT_EQ(chroot(dir.path().c_str()), 0);
            if (test.environment != nullptr)
                setenv("CORV_CORVANERC", test.environment, 1);
            else
                unsetenv("CORV_CORVANERC");
            const CQueueLimits limits(test.directory);
            std::printf("%s %s", limits.m_path.c_str(), limits.Scratch.c_str());
            EndWithoutLeakCheck();
        });
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, test.read);
    }
}

TEST(QueueLimitsClass, HasVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CQueueLimits>);
}

}  // namespace
