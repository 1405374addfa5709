// Refuses values that would change the meaning of a line of the commit script, which holds them
// unquoted. Root runs that script, and some of the values come from places that others may write
// to: the QueueLimits file and the group database.
#pragma once

#include <optional>

#include "setuprun/CInstallBase.h"

struct Refusal {
    QString field;   // such as "scratch directory"
    QString value;   // as it stands
    QString reason;  // such as "it holds \"$\""
    QString remedy;  // a sentence
};

// The first value that must not reach the commit script, if there is one.
std::optional<Refusal> FindRefusedValue(const CInstallBase& run);

// The message for a refusal, safe to print on a terminal.
QString Describe(const Refusal& refusal);
