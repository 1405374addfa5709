// Writes the two files of the internal queue, for callers without a commit script. The commit
// script writes QueueEntries, and QueueLimits with keys.
#include <cstdio>

#include "generated/FileWriter.h"
#include "setuprun/CInstallBase.h"

namespace {

constexpr hx::RunTimeFile queueEntries = {"/queue_entries", 0666, hx::queueFailures};
constexpr hx::RunTimeFile queueLimits = {"/QueueLimits", 0644, hx::queueFailures};

}  // namespace

int CInstallBase::CreateInternalQueueEntries() {
    hx::WriteRunTimeFile(*this, queueEntries, [](FILE*) {});
    return 1;
}

int CInstallBase::WriteInternalQueueLimits() {
    hx::WriteRunTimeFile(*this, queueLimits,
                         [this](FILE* file) { std::fprintf(file, "%d", m_jobLimit); });
    return 1;
}
