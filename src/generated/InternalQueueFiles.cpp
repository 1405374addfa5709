// The two files of the internal queue for callers without a commit script, which makes files of its
// own: QueueEntries, and QueueLimits with keys.
#include <cstdio>

#include "generated/FileWriter.h"
#include "setuprun/CInstallBase.h"

int CInstallBase::CreateInternalQueueEntries() {
    hx::WriteRunTimeFile(*this, hx::RunTimeFile::QueueEntries, [](FILE*) {});
    return 1;
}

int CInstallBase::WriteInternalQueueLimits() {
    hx::WriteRunTimeFile(*this, hx::RunTimeFile::QueueLimits,
                         [this](FILE* file) { std::fprintf(file, "%d", m_jobLimit); });
    return 1;
}
