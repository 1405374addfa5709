// Asks how much scratch space each thread may use and sets m_scratchLimitGB.
#include <cstdio>

#include "probes/CDfProcess.h"
#include "prompts/LimitQuestion.h"
#include "setuprun/CInstallBase.h"

namespace {

int FreeGigabytes(const QString& directory) {
    std::fflush(stdout);
    CDfProcess df;
    df.Run(directory);
    return df.TotalAvailable();
}

// Explains the default and returns it. A failed measurement is not mentioned.
int WriteIntroduction(const QString& directory, int jobLimit) {
    CInstallBase::InstallSeparator();
    std::printf("\n");
    const int freeGB = FreeGigabytes(directory);
    if (freeGB < 1 || jobLimit <= 0) {
        std::printf("Specify the amount of disk space available per job.\n");
        return 1;
    }
    const int shareGB = freeGB / jobLimit;
    std::printf(R"(Specify the amount of disk space available per thread.  The formula
to follow is the disk space available on file system the scratch
directory resides divided by the number of threads allowed to run
simultaneously (job limit entered previously).

    (Available Disk Space) / (Job Limit) = %d / %d = %d GB

)",
                freeGB, jobLimit, shareGB);
    return shareGB;
}

void WriteScratchNotice(int previousGB) {
    std::printf(R"(A previous installation has set the scratch disk
limit to "%dGB".  To preserve setting, accept the
default response to the next question.

)",
                previousGB);
}

// With a different job limit or directory path, the previous scratch limit is meaningless.
bool CanPreserve(const CInstallBase& run) {
    return run.m_prevJobLimit == run.m_jobLimit && run.m_prevScratchDir == run.m_scratchDir &&
           run.m_prevScratchLimitGB > 0;
}

int AskForScratch(CInstallBase& run) {
    const int shareGB = WriteIntroduction(run.m_scratchDir, run.m_jobLimit);
    const bool preserve = CanPreserve(run);
    const int offered = preserve ? run.m_prevScratchLimitGB : shareGB;
    return hx::AskForLimit(run, offered, hx::integerComplaint, [&] {
        if (preserve)
            WriteScratchNotice(offered);
        std::printf("Scratch limit per job [%dGB]: ", offered);
    });
}

}  // namespace

void CInstallBase::PromptScratchLimit() {
    m_scratchLimitGB = m_argScratchLimitGB > 0 ? m_argScratchLimitGB : AskForScratch(*this);
    InstallSeparator();
    std::printf("\n  Scratch limit per thread: %dGB\n\n", m_scratchLimitGB);
    InstallPause();
}
