// The fields after the constructor on a machine without a previous setup.
#include <gtest/gtest.h>

#include <type_traits>

#include "Machine.h"

namespace {

void ExpectDefaults(const CInstallBase& run) {
    EXPECT_NE(run.m_osRelease, nullptr);
    EXPECT_EQ(run.m_osName, "Made up Linux");
    EXPECT_EQ(run.m_productTitle, "Corvane'26");
    EXPECT_TRUE(run.m_allowNonRoot);
    EXPECT_EQ(run.m_binariesDir, "/opt/corvane26");
    EXPECT_EQ(run.m_installDir, "/opt/corvane26");
    EXPECT_GE(run.m_coreCount, 1);
    EXPECT_GT(run.m_ramMB, 0);
    EXPECT_EQ(run.m_accessFlags, 0);
    EXPECT_FALSE(run.m_cdInstall);
    EXPECT_TRUE(run.m_interactive);
    EXPECT_FALSE(run.m_clusterNode);
    EXPECT_FALSE(run.m_setup);
    EXPECT_FALSE(run.m_userMode);
    EXPECT_EQ(run.m_serviceGroup, "corvsrvc");
    EXPECT_EQ(run.m_serviceUser, "corvsrvc");
    EXPECT_EQ(run.m_scheduler, "TORQUE");
    EXPECT_EQ(run.m_queueType, 0);
    EXPECT_EQ(run.m_queueName, "");
    EXPECT_EQ(run.m_qsubCmd, "/usr/local/bin/qsub");
    EXPECT_EQ(run.m_qdelCmd, "/usr/local/bin/qdel");
    EXPECT_EQ(run.m_qsigCmd, "/usr/local/bin/qsig");
    EXPECT_EQ(run.m_partitionName, "");
    EXPECT_EQ(run.m_sbatchCmd, "/usr/bin/sbatch");
    EXPECT_EQ(run.m_scancelCmd, "/usr/bin/scancel");
    EXPECT_EQ(run.m_compSrvcAllow, "HTTP");
    EXPECT_EQ(run.m_compSrvcHttpPort, 8080);
    EXPECT_EQ(run.m_compSrvcHttpAddr, "0.0.0.0");
    EXPECT_EQ(run.m_compSrvcHttpsPort, 8443);
    EXPECT_EQ(run.m_compSrvcHttpsAddr, "0.0.0.0");
    EXPECT_EQ(run.m_compSrvcCert, "cert.pem");
    EXPECT_EQ(run.m_compSrvcKey, "key.pem");
    EXPECT_EQ(run.m_compSrvcDh, "dh.pem");
    EXPECT_EQ(run.m_jobLimit, 0);
    EXPECT_EQ(run.m_prevJobLimit, -1);
    EXPECT_EQ(run.m_scratchDir, "/tmp");
    EXPECT_EQ(run.m_prevScratchDir, "");
    EXPECT_EQ(run.m_scratchLimitGB, 0);
    EXPECT_EQ(run.m_prevScratchLimitGB, -1);
    EXPECT_EQ(run.m_argScratchLimitGB, -1);
    EXPECT_EQ(run.m_memoryLimitMB, 0);
    EXPECT_EQ(run.m_prevMemoryLimitMB, -1);
    EXPECT_EQ(run.m_argMemoryLimitMB, -1);
    EXPECT_EQ(run.m_threadsPerMolecule, 0);
    EXPECT_EQ(run.m_serviceUid, -1);
    EXPECT_EQ(run.m_serviceGid, -1);
    EXPECT_TRUE(run.m_serviceMembers.isEmpty());
    EXPECT_TRUE(run.m_serviceCurrentMembers.isEmpty());
}

TEST(InstallBase, HasDefaultsAsUser) {
    HX_REQUIRE_NAMESPACES();
    const Machine machine;
    machine.Expect(AsUser, [] { Construct({program}, ExpectDefaults); });
}

TEST(InstallBase, HasVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CInstallBase>);
}

TEST(GuiInstallerByte, IsZeroAtLoad) {
    EXPECT_EQ(g_hx_gui_installer, 0);
}

}  // namespace
