// The environment that the constructor sets, its failures, and its order.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Machine.h"
#include "setuprun/Environment.h"

namespace {

constexpr const char* noDirectory =
    "Corvane Install: Error\n"
    "    Unable to determine current working directory.  Aborting\n";
constexpr const char* noMemory =
    "Corvane Install: Error\n    Unable to determine amount of memory.  Aborting\n";

// Makes the amount of memory unknown together with HidePages. An empty list of processors avoids
// records that a leak checker would report.
void HideMemory(Machine& machine, const std::string& memInfo = "MemFree: 1 kB\n") {
    machine.Replace("/proc/cpuinfo", "");
    machine.Replace("/proc/meminfo", memInfo);
}

void HidePages() {
    setenv("HX_TEST_SYSCONF", (std::to_string(_SC_PHYS_PAGES) + "=-1").c_str(), 1);
}

void PrintInstallVariableAtExit(const char* value) {
    setenv("CORV_INSTALL", value, 1);
    std::atexit([] { std::printf("%s", getenv("CORV_INSTALL")); });
}

class ConstructorOrder : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Constructs a run that ends the process, after `prepare`.
    void ExpectEnd(hx_test::World::Identity identity, const std::function<void()>& prepare,
                   int status, const std::string& err, const std::string& out = "") const {
        const auto result = m_machine.Run(identity, [&] {
            prepare();
            Construct(
                {program}, [](CInstallBase&) {}, identity == AsRoot);
        });
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out, out);
        EXPECT_EQ(result.err, err);
    }

    Machine m_machine;
};

TEST_F(ConstructorOrder, SetsEnvironmentForPrograms) {
    const auto expectVariables = [this](hx_test::World::Identity identity, const char* argv0,
                                        const char* settings, const char* install) {
        m_machine.Expect(identity, [=] {
            for (const char* before : {"", "/older"}) {
                setenv("CORV_CORVANERC", before, 1);
                setenv("CORV_ACCESS", before, 1);
                unsetenv("CORV_INSTALL");
                Construct({argv0});
                EXPECT_STREQ(getenv("CORV_CORVANERC"), settings);
                EXPECT_STREQ(getenv("CORV_ACCESS"), settings);
                EXPECT_STREQ(getenv("CORV_INSTALL"), install);
            }
        });
    };
    EXPECT_EQ(hx::environmentVariables.size(), 3U);
    expectVariables(AsRoot, program, "/var/corvane", "/opt/corvane26");
    expectVariables(AsUser, "/home/größe/cv_install", "/home/größe", "/home/größe");
    m_machine.MakeDirectory("/var/corvane");
    expectVariables(AsUser, program, "/var/corvane", "/opt/corvane26");
}

TEST_F(ConstructorOrder, FailsWithStatus14WithoutWorkingDirectory) {
    const hx_test::TempDir dir;
    const std::string gone = dir / "gone";
    ExpectEnd(
        AsRoot,
        [&] {
            ASSERT_TRUE(std::filesystem::create_directory(gone));
            ASSERT_EQ(chdir(gone.c_str()), 0);
            ASSERT_EQ(rmdir(gone.c_str()), 0);
        },
        14, std::string(noDirectory) + "    No such file or directory\n");
    // Before the access decision.
    ExpectEnd(
        AsUser, [] { setenv("HX_TEST_FAIL", "getcwd=13", 1); }, 14,
        std::string(noDirectory) + "    Permission denied\n");
}

TEST_F(ConstructorOrder, FailsWithStatus2WithUnknownMemory) {
    HideMemory(m_machine);
    ExpectEnd(AsRoot, HidePages, 2, noMemory);
    HideMemory(m_machine, "MemTotal: 1023 kB\n");
    ExpectEnd(AsRoot, HidePages, 2, noMemory);
}

TEST_F(ConstructorOrder, DecidesAccessBeforeMeasuringMemory) {
    HideMemory(m_machine);
    ExpectEnd(AsUser, HidePages, 1, refusal);
}

TEST_F(ConstructorOrder, SetsEnvironmentBeforeMeasuringMemory) {
    HideMemory(m_machine);
    const auto prepare = [] {
        PrintInstallVariableAtExit("/older");
        HidePages();
    };
    ExpectEnd(AsRoot, prepare, 2, noMemory, "/opt/corvane26");
}

TEST_F(ConstructorOrder, SetsNoEnvironmentForRefusedUser) {
    ExpectEnd(
        AsUser, [] { PrintInstallVariableAtExit("/older"); }, 1, refusal, "/older");
}

TEST_F(ConstructorOrder, DiscoversDefaultAccountDespiteOptions) {
    m_machine.Write("/etc/passwd", "corvsrvc:x:611:612::/:/bin/false\nmine:x:711:712::/:/bin/sh\n");
    m_machine.Write("/etc/group", "corvsrvc:x:612:anna,bert\nours:x:712:carl\n");
    m_machine.Expect(AsRoot, [] {
        Construct({"cv_install", "-g", "ours", "-u", "mine"}, [](CInstallBase& run) {
            EXPECT_EQ(run.m_serviceGroup, "ours");
            EXPECT_EQ(run.m_serviceUser, "mine");
            EXPECT_EQ(run.m_serviceUid, 611);
            EXPECT_EQ(run.m_serviceGid, 612);
            EXPECT_EQ(run.m_serviceCurrentMembers, (QStringList{"anna", "bert"}));
        });
    });
}

}  // namespace
