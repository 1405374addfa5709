// The fields that the constructor takes from the probes and the machine.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "Machine.h"
#include "support/COSRelease.h"

namespace {

class MeasuredMachine : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Constructs a run with these answers of sysconf, and expects this text on stderr.
    void ExpectRun(hx_test::World::Identity identity, const std::string& sysconf,
                   const std::function<void(const CInstallBase&)>& check,
                   const std::string& err = "") const {
        const auto result = m_machine.Run(identity, [&] {
            setenv("HX_TEST_SYSCONF", sysconf.c_str(), 1);
            Construct({program}, check);
            unsetenv("HX_TEST_SYSCONF");
        });
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_EQ(result.err, err);
    }

    Machine m_machine;
};

std::string Processors(const std::string& answer) {
    return std::to_string(_SC_NPROCESSORS_CONF) + "=" + answer;
}

std::string Pages(const std::string& answer) {
    return std::to_string(_SC_PHYS_PAGES) + "=" + answer;
}

TEST_F(MeasuredMachine, HasCoresOfPackages) {
    std::string text;
    for (int processor = 0; processor < 16; ++processor) {
        text += "processor : " + std::to_string(processor) +
                "\nphysical id : " + std::to_string(processor / 8) + "\ncpu cores : 4\n";
    }
    m_machine.Replace("/proc/cpuinfo", text);
    ExpectRun(AsRoot, Processors("16"),
              [](const CInstallBase& run) { EXPECT_EQ(run.m_coreCount, 8); });
}

TEST_F(MeasuredMachine, HasOneCoreIfCountFails) {
    m_machine.Replace("/proc/cpuinfo", "processor : 0\n", 0);
    ExpectRun(
        AsUser, Processors("16"), [](const CInstallBase& run) { EXPECT_EQ(run.m_coreCount, 1); },
        "  Error, can't open /proc/cpuinfo to read.\n");
}

TEST_F(MeasuredMachine, KeepsUnknownProcessorCount) {
    m_machine.Replace("/proc/cpuinfo", "processor : 0\n");
    ExpectRun(AsRoot, Processors("-1"),
              [](const CInstallBase& run) { EXPECT_EQ(run.m_coreCount, -1); });
}

TEST_F(MeasuredMachine, HasMemoryOfSystemOrFile) {
    m_machine.Replace("/proc/meminfo", "MemTotal: 8192000 kB\n");
    ExpectRun(AsRoot, Pages("4194304") + "," + std::to_string(_SC_PAGESIZE) + "=4096",
              [](const CInstallBase& run) { EXPECT_EQ(run.m_ramMB, 16384); });
    ExpectRun(AsRoot, Pages("0"), [](const CInstallBase& run) { EXPECT_EQ(run.m_ramMB, 8000); });
}

TEST_F(MeasuredMachine, UsesOpenPbsCommandsIfQsubExists) {
    const auto expectCommands = [this](const QString& directory) {
        ExpectRun(AsUser, "", [&](const CInstallBase& run) {
            EXPECT_EQ(run.m_qsubCmd, directory + "qsub");
            EXPECT_EQ(run.m_qdelCmd, directory + "qdel");
            EXPECT_EQ(run.m_qsigCmd, directory + "qsig");
        });
    };
    m_machine.Write("/opt/pbs/bin/qdel", "", 0755);
    expectCommands("/usr/local/bin/");
    m_machine.Write("/opt/pbs/bin/qsub", "", 0);
    expectCommands("/opt/pbs/bin/");
}

TEST_F(MeasuredMachine, HasReleaseThatOutlivesRun) {
    m_machine.Write("/etc/os-release", "NAME=\"Größe Linux\"\nID=own\nID_LIKE=debian\n");
    COSRelease* release = nullptr;
    m_machine.Expect(AsRoot, [&] {
        Construct({program}, [&](CInstallBase& run) {
            EXPECT_EQ(run.m_osName, "Größe Linux");
            release = run.m_osRelease;
        });
        ASSERT_NE(release, nullptr);
        EXPECT_EQ(release->Name(), "Größe Linux");
        EXPECT_TRUE(release->DebBased());
        EXPECT_FALSE(release->RpmBased());
    });
}

}  // namespace
