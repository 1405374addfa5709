// What the questions for the job, memory and scratch limits have in common.
#pragma once

#include <functional>

#include "setuprun/CInstallBase.h"

namespace hx {

// What is said of a bad answer; the job limit has its own.
inline constexpr const char* IntegerComplaint =
    R"(Value entered must be an integer value greater the 0.
Please try again.
)";

// Asks until the answer is empty, which takes `offered` untested, or is a limit of 1 or more.
// `ask` writes the question. A bad answer writes `complaint`, pauses and asks again. With
// m_interactive false `offered` is written behind the question as if it had been typed.
int AskForLimit(CInstallBase& run, int offered, const char* complaint,
                const std::function<void()>& ask);

}  // namespace hx
