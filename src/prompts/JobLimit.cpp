// Asks how many threads may run at once and sets m_jobLimit.
#include <cstdio>

#include "prompts/LimitQuestion.h"
#include "setuprun/CInstallBase.h"

namespace {

void WriteIntroduction(int cores) {
    CInstallBase::InstallSeparator();
    std::printf(R"(
Use this setting to limit the number of threads that can be run
simultaneously.  The recommended setting is to use the number
of processor cores present in the system.

System has %d processor cores.

)",
                cores);
}

// Compatibility: "interger" only here, as in released versions.
constexpr const char* jobComplaint = R"(Value entered must be an interger value greater the 0.
Please try again.
)";

}  // namespace

// Compatibility: the job limit of a previous setup is not offered.
void CInstallBase::PromptJobLimit() {
    WriteIntroduction(m_coreCount);
    m_jobLimit = hx::AskForLimit(*this, m_coreCount, jobComplaint,
                                 [this] { std::printf("Job thread limit [%d]: ", m_coreCount); });
}
