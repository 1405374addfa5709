// The order of the public fields, which callers are compiled against.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "setuprun/CInstallBase.h"
#include "setuprun/CQueueLimits.h"

namespace {

// offsetof on a class with a virtual destructor is supported by our compilers, which warn of it.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

void ExpectAscending(const std::vector<size_t>& offsets) {
    for (size_t i = 1; i < offsets.size(); ++i)
        EXPECT_LT(offsets[i - 1], offsets[i]) << "field " << i;
}

#define AT(field) offsetof(CInstallBase, field)

TEST(BinaryInterface, TheSetupRunKeepsTheOrderOfItsFields) {
    ExpectAscending({AT(m_osRelease),
                     AT(m_osName),
                     AT(m_productTitle),
                     AT(m_allowNonRoot),
                     AT(m_binariesDir),
                     AT(m_installDir),
                     AT(m_coreCount),
                     AT(m_ramMB),
                     AT(m_accessFlags),
                     AT(m_cdInstall),
                     AT(m_interactive),
                     AT(m_clusterNode),
                     AT(m_setup),
                     AT(m_userMode),
                     AT(m_serviceGroup),
                     AT(m_serviceUser),
                     AT(m_scheduler),
                     AT(m_queueType),
                     AT(m_queueName),
                     AT(m_qsubCmd),
                     AT(m_qdelCmd),
                     AT(m_qsigCmd),
                     AT(m_partitionName),
                     AT(m_sbatchCmd),
                     AT(m_scancelCmd),
                     AT(m_compSrvcAllow),
                     AT(m_compSrvcHttpPort),
                     AT(m_compSrvcHttpAddr),
                     AT(m_compSrvcHttpsPort),
                     AT(m_compSrvcHttpsAddr),
                     AT(m_compSrvcCert),
                     AT(m_compSrvcKey),
                     AT(m_compSrvcDh),
                     AT(m_jobLimit),
                     AT(m_prevJobLimit),
                     AT(m_scratchDir),
                     AT(m_prevScratchDir),
                     AT(m_scratchLimitGB),
                     AT(m_prevScratchLimitGB),
                     AT(m_argScratchLimitGB),
                     AT(m_memoryLimitMB),
                     AT(m_prevMemoryLimitMB),
                     AT(m_argMemoryLimitMB),
                     AT(m_threadsPerMolecule),
                     AT(m_serviceUid),
                     AT(m_serviceGid),
                     AT(m_serviceMembers),
                     AT(m_serviceCurrentMembers)});
}

#undef AT
#define AT(field) offsetof(CQueueLimits, field)

TEST(BinaryInterface, QueueLimitsKeepsTheOrderOfItsFields) {
    ExpectAscending({AT(m_dirty), AT(m_path), AT(MaxThreads), AT(MemoryPerThreadMB),
                     AT(DiskPerThreadGB), AT(Scratch), AT(ThreadsPerMolecule)});
}

}  // namespace
