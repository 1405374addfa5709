// The part that the questions for the job, memory and scratch limits share.
#pragma once

#include <functional>

#include "setuprun/CInstallBase.h"

namespace hx {

// The reaction to an invalid answer; the job limit has its own.
inline constexpr const char* integerComplaint =
    R"(Value entered must be an integer value greater the 0.
Please try again.
)";

// Asks until the answer is a limit of 1 or more, or is empty, which selects `offered` without a
// check. `ask` writes the question. After an invalid answer, writes `complaint`, pauses and asks
// again. With m_interactive false, writes `offered` after the question instead of reading.
int AskForLimit(CInstallBase& run, int offered, const char* complaint,
                const std::function<void()>& ask);

}  // namespace hx
