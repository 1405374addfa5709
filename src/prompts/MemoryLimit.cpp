// Asks how much memory each thread may use, which settles m_memoryLimitMB.
#include <cstdio>

#include "prompts/LimitQuestion.h"
#include "setuprun/CInstallBase.h"

namespace {

void WriteIntroduction(int ramMB, int jobLimit, int shareMB) {
    std::printf(R"(------------------------------------------------------------

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
    // Kept: a job limit of 0 is the caller's error and is not guarded here.
    const int shareMB = run.m_ramMB / run.m_jobLimit;
    WriteIntroduction(run.m_ramMB, run.m_jobLimit, shareMB);
    // Another job limit makes the last memory limit meaningless.
    const bool preserve = run.m_prevJobLimit == run.m_jobLimit && run.m_prevMemoryLimitMB > 0;
    const int offered = preserve ? run.m_prevMemoryLimitMB : shareMB;
    return hx::AskForLimit(run, offered, hx::IntegerComplaint, [&] {
        if (preserve)
            WriteMemoryNotice(offered);
        std::printf("Memory usage limit per job [%dMB]: ", offered);
    });
}

}  // namespace

void CInstallBase::PromptMemoryLimit() {
    m_memoryLimitMB = m_argMemoryLimitMB > 0 ? m_argMemoryLimitMB : AskForMemory(*this);
    std::printf(R"(------------------------------------------------------------

  Memory limit per job: %dMB

)",
                m_memoryLimitMB);
    InstallPause();
}
