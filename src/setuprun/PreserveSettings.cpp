// Takes over the answers of the last installation.
#include "setuprun/CInstallBase.h"
#include "setuprun/CQueueLimits.h"

void CInstallBase::PreserveSettings() {
    const CQueueLimits limits(m_installDir.toUtf8().constData());
    if (limits.m_path.empty())
        return;
    m_prevJobLimit = limits.MaxThreads;
    m_prevMemoryLimitMB = limits.MemoryPerThreadMB;
    m_prevScratchLimitGB = limits.DiskPerThreadGB;
    m_prevScratchDir = QString::fromStdString(limits.Scratch);
    m_threadsPerMolecule = limits.ThreadsPerMolecule;
}
