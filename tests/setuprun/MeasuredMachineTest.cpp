// How the constructor takes over what the probes measure and what the machine has.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "Machine.h"
#include "setuprun/CInstallBase.h"
#include "support/COSRelease.h"

namespace {

void ConstructAndLook(const std::function<void(const CInstallBase&)>& look) {
    Arguments arguments({"/opt/corvane26/cv_install"});
    const CInstallBase run(true, arguments.argc(), arguments.argv());
    look(run);
}

void AnswerSysconf(int name, const std::string& answer) {
    const char* before = getenv("HX_TEST_SYSCONF");
    const std::string list = before == nullptr ? "" : std::string(before) + ",";
    setenv("HX_TEST_SYSCONF", (list + std::to_string(name) + "=" + answer).c_str(), 1);
}

class MeasuredMachine : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }
    Machine m_machine;
};

TEST_F(MeasuredMachine, HasTheCoresOfItsPackages) {
    std::string text;
    for (int processor = 0; processor < 16; ++processor) {
        text += "processor : " + std::to_string(processor) +
                "\nphysical id : " + std::to_string(processor / 8) + "\ncpu cores : 4\n";
    }
    m_machine.Replace("/proc/cpuinfo", text);
    const auto result = m_machine.Run(AsRoot, [] {
        AnswerSysconf(_SC_NPROCESSORS_CONF, "16");
        ConstructAndLook([](const CInstallBase& run) { EXPECT_EQ(run.m_coreCount, 8); });
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "") << "the trace is off";
}

TEST_F(MeasuredMachine, HasOneCoreWhenTheyCannotBeCounted) {
    m_machine.Replace("/proc/cpuinfo", "processor : 0\n", 0);
    const auto result = m_machine.Run(AsUser, [] {
        AnswerSysconf(_SC_NPROCESSORS_CONF, "16");
        ConstructAndLook([](const CInstallBase& run) { EXPECT_EQ(run.m_coreCount, 1); });
    });
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.err, "  Error, can't open /proc/cpuinfo to read.\n");
}

TEST_F(MeasuredMachine, KeepsAnUnknownNumberOfProcessors) {
    m_machine.Replace("/proc/cpuinfo", "processor : 0\n");
    m_machine.Expect(AsRoot, [] {
        AnswerSysconf(_SC_NPROCESSORS_CONF, "-1");
        ConstructAndLook([](const CInstallBase& run) { EXPECT_EQ(run.m_coreCount, -1); });
    });
}

TEST_F(MeasuredMachine, HasTheMemoryThatTheSystemTells) {
    m_machine.Expect(AsRoot, [] {
        AnswerSysconf(_SC_PHYS_PAGES, "4194304");
        AnswerSysconf(_SC_PAGESIZE, "4096");
        ConstructAndLook([](const CInstallBase& run) { EXPECT_EQ(run.m_ramMB, 16384); });
        unsetenv("HX_TEST_SYSCONF");
    });
}

TEST_F(MeasuredMachine, HasTheMemoryOfTheFileWhenTheSystemDoesNotTell) {
    m_machine.Replace("/proc/meminfo", "MemTotal: 8192000 kB\n");
    m_machine.Expect(AsRoot, [] {
        AnswerSysconf(_SC_PHYS_PAGES, "0");
        ConstructAndLook([](const CInstallBase& run) { EXPECT_EQ(run.m_ramMB, 8000); });
    });
}

TEST_F(MeasuredMachine, UsesTheCommandsOfOpenPbsWhereItIsInstalled) {
    m_machine.Write("/opt/pbs/bin/qsub", "", 0);
    m_machine.Expect(AsUser, [] {
        ConstructAndLook([](const CInstallBase& run) {
            EXPECT_EQ(run.m_qsubCmd, "/opt/pbs/bin/qsub");
            EXPECT_EQ(run.m_qdelCmd, "/opt/pbs/bin/qdel");
            EXPECT_EQ(run.m_qsigCmd, "/opt/pbs/bin/qsig");
        });
    });
}

TEST_F(MeasuredMachine, UsesTheLocalCommandsWithoutTheSubmitCommandOfOpenPbs) {
    m_machine.Write("/opt/pbs/bin/qdel", "", 0755);
    m_machine.Expect(AsUser, [] {
        ConstructAndLook([](const CInstallBase& run) {
            EXPECT_EQ(run.m_qsubCmd, "/usr/local/bin/qsub");
            EXPECT_EQ(run.m_qdelCmd, "/usr/local/bin/qdel");
            EXPECT_EQ(run.m_qsigCmd, "/usr/local/bin/qsig");
        });
    });
}

TEST_F(MeasuredMachine, HasTheNameAndKindOfItsRelease) {
    m_machine.Write("/etc/os-release", "NAME=\"Größe Linux\"\nID=own\nID_LIKE=debian\n");
    m_machine.Expect(AsRoot, [] {
        ConstructAndLook([](const CInstallBase& run) {
            EXPECT_EQ(run.m_osName, QString::fromUtf8("Größe Linux"));
            ASSERT_NE(run.m_osRelease, nullptr);
            EXPECT_EQ(run.m_osRelease->Name(), run.m_osName);
            EXPECT_TRUE(run.m_osRelease->DebBased());
            EXPECT_FALSE(run.m_osRelease->RpmBased());
        });
    });
}

TEST_F(MeasuredMachine, TheReleaseOutlivesTheRun) {
    m_machine.Expect(AsRoot, [] {
        COSRelease* release = nullptr;
        ConstructAndLook([&](const CInstallBase& run) { release = run.m_osRelease; });
        ASSERT_NE(release, nullptr);
        EXPECT_EQ(release->Name(), "Made up Linux");
    });
}

}  // namespace
