// The lines of QueueLimits on the live machine or in staging.
#pragma once

#include <QString>
#include <map>
#include <optional>

#include "setuprun/QueueLimitsKeys.h"

// Values by key in lower case.
using Limits = std::map<QString, QString>;

// The lines "key: value" of QueueLimits below `tree`, if it is a regular file that other users can
// read.
std::optional<Limits> ReadLimits(int tree);

// False for a line that only the programs of Corvane write. A setup at most keeps it.
inline bool IsSetBySetup(const hx::QueueLimitsLine& line) {
    return line.isCommitted == hx::IsAlwaysCommitted;
}
