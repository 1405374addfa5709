// Asks how much memory each thread may use and sets m_memoryLimitMB.
#include <cstdio>

#include "prompts/LimitQuestion.h"
#include "setuprun/CInstallBase.h"

namespace {

void WriteIntroduction(int ramMB, int jobLimit, int shareMB) {
    CInstallBase::InstallSeparator();
    std::printf(R"(
Specify the amount of physical memory (RAM) available per
thread.  The formula to follow is the total available RAM
divided by the number of threads allowed to run simultaneously
(job limit entered previously).

    (Total RAM)/(Job Limit) = (%d)/(%d) = %dMB

The minimum amount of memory required per thread for good
performance is 512 MB.  The recommended amount of memory per
job is 1024 MB.

    System has %dMB of RAM with job limit=%d.

)",
                ramMB, jobLimit, shareMB, ramMB, jobLimit);
}

void WriteMemoryNotice(int previousMB) {
    std::printf(R"(A previous installation has set the memory usage
limit to "%dMB".  To preserve setting, accept the
default response to the next question.

)",
                previousMB);
}

int AskForMemory(CInstallBase& run) {
    // Compatibility: callers must not set a job limit of 0; there is no check.
    const int shareMB = run.m_ramMB / run.m_jobLimit;
    WriteIntroduction(run.m_ramMB, run.m_jobLimit, shareMB);
    // With a different job limit, the previous memory limit is meaningless.
    const bool preserve = run.m_prevJobLimit == run.m_jobLimit && run.m_prevMemoryLimitMB > 0;
    const int offered = preserve ? run.m_prevMemoryLimitMB : shareMB;
    return hx::AskForLimit(run, offered, hx::integerComplaint, [&] {
        if (preserve)
            WriteMemoryNotice(offered);
        std::printf("Memory usage limit per job [%dMB]: ", offered);
    });
}

}  // namespace

void CInstallBase::PromptMemoryLimit() {
    m_memoryLimitMB = m_argMemoryLimitMB > 0 ? m_argMemoryLimitMB : AskForMemory(*this);
    InstallSeparator();
    std::printf("\n  Memory limit per job: %dMB\n\n", m_memoryLimitMB);
    InstallPause();
}
