// Refuses values that would change the meaning of a line of the commit script, which contains them
// unescaped. Root runs that script, and some values come from files that other users can write to:
// QueueLimits and the group database.
#pragma once

#include "Problem.h"
#include "answers/AnswerTable.h"
#include "setuprun/CInstallBase.h"

// True for the name of a user or group that the commit script can contain as a word.
bool IsAccountName(const QString& name);

// Returns why a text that is used like this must not reach the commit script; empty if it may.
QString ReasonAgainst(const QString& text, AnswerUse use);

// Finds the first value that must not reach the commit script.
Failure FindInvalidValue(const CInstallBase& run);
