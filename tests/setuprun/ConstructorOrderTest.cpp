// What the constructor sets for the programs that it starts, how it fails, and in which order.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

constexpr const char* NoDirectory =
    "Corvane Install: Error\n"
    "    Unable to determine current working directory.  Aborting\n";
constexpr const char* NoMemory =
    "Corvane Install: Error\n    Unable to determine amount of memory.  Aborting\n";

void Construct(bool allowNonRoot, const char* argv0 = "/opt/corvane26/cv_install") {
    Arguments arguments({argv0});
    const CInstallBase run(allowNonRoot, arguments.argc(), arguments.argv());
}

// Makes the amount of memory unknown where no pages are told. Without processors no record of one
// stays allocated, which a leak checker could not tell apart here.
void HideMemory(Machine& machine, const std::string& memInfo = "MemFree: 1 kB\n") {
    machine.Replace("/proc/cpuinfo", "");
    machine.Replace("/proc/meminfo", memInfo);
}

void HidePages() {
    setenv("HX_TEST_SYSCONF", (std::to_string(_SC_PHYS_PAGES) + "=-1").c_str(), 1);
}

class ConstructorOrder : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
    Machine m_machine;
};

TEST_F(ConstructorOrder, RootsProgramsFindTheSharedDirectory) {
    m_machine.Expect(AsRoot, [] {
        setenv("CORV_CORVANERC", "/older", 1);
        setenv("CORV_ACCESS", "/older", 1);
        setenv("CORV_INSTALL", "/older", 1);
        Construct(false);
        EXPECT_STREQ(getenv("CORV_CORVANERC"), "/var/corvane");
        EXPECT_STREQ(getenv("CORV_ACCESS"), "/var/corvane");
        EXPECT_STREQ(getenv("CORV_INSTALL"), "/opt/corvane26");
    });
}

TEST_F(ConstructorOrder, AUsersProgramsFindThePrivateCopy) {
    m_machine.Expect(AsUser, [] {
        unsetenv("CORV_CORVANERC");
        unsetenv("CORV_ACCESS");
        unsetenv("CORV_INSTALL");
        Construct(true, "/home/größe/cv_install");
        EXPECT_STREQ(getenv("CORV_CORVANERC"), "/home/größe");
        EXPECT_STREQ(getenv("CORV_ACCESS"), "/home/größe");
        EXPECT_STREQ(getenv("CORV_INSTALL"), "/home/größe");
    });
}

TEST_F(ConstructorOrder, AUserWithTheSharedDirectoryKeepsTheBinariesApart) {
    m_machine.MakeDirectory("/var/corvane");
    m_machine.Expect(AsUser, [] {
        Construct(true);
        EXPECT_STREQ(getenv("CORV_CORVANERC"), "/var/corvane");
        EXPECT_STREQ(getenv("CORV_ACCESS"), "/var/corvane");
        EXPECT_STREQ(getenv("CORV_INSTALL"), "/opt/corvane26");
    });
}

TEST_F(ConstructorOrder, ARemovedWorkingDirectoryEndsTheRunWithStatus14) {
    const hx_test::TempDir dir;
    const std::string gone = dir / "gone";
    const auto result = m_machine.Run(AsRoot, [&] {
        ASSERT_TRUE(std::filesystem::create_directory(gone));
        ASSERT_EQ(chdir(gone.c_str()), 0);
        ASSERT_EQ(rmdir(gone.c_str()), 0);
        Construct(true);
    });
    EXPECT_EQ(result.status, 14);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, std::string(NoDirectory) + "    No such file or directory\n");
}

TEST_F(ConstructorOrder, AnUnreadableWorkingDirectoryIsToldByItsReason) {
    const auto result = m_machine.Run(AsRoot, [] {
        setenv("HX_TEST_FAIL", "getcwd=13", 1);
        Construct(true);
    });
    EXPECT_EQ(result.status, 14);
    EXPECT_EQ(result.err, std::string(NoDirectory) + "    Permission denied\n");
}

TEST_F(ConstructorOrder, TheWorkingDirectoryIsNeededBeforeTheAccessDecision) {
    const auto result = m_machine.Run(AsUser, [] {
        setenv("HX_TEST_FAIL", "getcwd=2", 1);
        Construct(false);
    });
    EXPECT_EQ(result.status, 14);
}

TEST_F(ConstructorOrder, UnknownMemoryEndsTheRunWithStatus2) {
    HideMemory(m_machine);
    for (const auto identity : {AsRoot, AsUser}) {
        const auto result = m_machine.Run(identity, [] {
            HidePages();
            Construct(true);
        });
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, NoMemory);
    }
}

TEST_F(ConstructorOrder, LessThanAMegabyteIsUnknownMemory) {
    HideMemory(m_machine, "MemTotal: 1023 kB\n");
    const auto result = m_machine.Run(AsRoot, [] {
        HidePages();
        Construct(true);
    });
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, NoMemory);
}

TEST_F(ConstructorOrder, TheAccessDecisionComesBeforeTheMemory) {
    HideMemory(m_machine);
    const auto result = m_machine.Run(AsUser, [] {
        HidePages();
        Construct(false);
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, Refusal);
}

TEST_F(ConstructorOrder, TheEnvironmentIsSetBeforeTheMemoryIsMeasured) {
    HideMemory(m_machine);
    const auto result = m_machine.Run(AsRoot, [] {
        unsetenv("CORV_INSTALL");
        HidePages();
        std::atexit([] { std::printf("%s", getenv("CORV_INSTALL")); });
        Construct(true);
    });
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "/opt/corvane26");
}

TEST_F(ConstructorOrder, ARefusedRunSetsNoEnvironment) {
    const auto result = m_machine.Run(AsUser, [] {
        setenv("CORV_INSTALL", "/older", 1);
        std::atexit([] { std::printf("%s", getenv("CORV_INSTALL")); });
        Construct(false);
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "/older");
}

TEST_F(ConstructorOrder, OptionsDoNotChangeTheDiscoveryOfTheServiceAccount) {
    m_machine.Write("/etc/passwd", "corvsrvc:x:611:612::/:/bin/false\nmine:x:711:712::/:/bin/sh\n");
    m_machine.Write("/etc/group", "corvsrvc:x:612:anna,bert\nours:x:712:carl\n");
    m_machine.Expect(AsRoot, [] {
        Arguments arguments({"cv_install", "-g", "ours", "-u", "mine"});
        const CInstallBase run(false, arguments.argc(), arguments.argv());
        EXPECT_EQ(run.m_serviceGroup, "ours");
        EXPECT_EQ(run.m_serviceUser, "mine");
        EXPECT_EQ(run.m_serviceUid, 611);
        EXPECT_EQ(run.m_serviceGid, 612);
        EXPECT_EQ(run.m_serviceCurrentMembers, (QStringList{"anna", "bert"}));
    });
}

}  // namespace
