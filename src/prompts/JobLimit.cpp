// Asks how many threads may run at once, which settles m_jobLimit.
#include <cstdio>

#include "prompts/LimitQuestion.h"
#include "setuprun/CInstallBase.h"

namespace {

void WriteIntroduction(int cores) {
    std::printf(R"(------------------------------------------------------------

Use this setting to limit the number of threads that can be run
simultaneously.  The recommended setting is to use the number
of processor cores present in the system.

System has %d processor cores.

)",
                cores);
}

// Kept: "interger" here, while the other limits have it right.
constexpr const char* Complaint = R"(Value entered must be an interger value greater the 0.
Please try again.
)";

}  // namespace

// Kept: the job limit of the last installation is not offered.
void CInstallBase::PromptJobLimit() {
    WriteIntroduction(m_coreCount);
    m_jobLimit = hx::AskForLimit(*this, m_coreCount, Complaint,
                                 [this] { std::printf("Job thread limit [%d]: ", m_coreCount); });
}
