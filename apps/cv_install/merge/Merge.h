// Brings a staged setup into the live machine, in the parent process, under the lock.
#pragma once

#include "Problem.h"
#include "installation/Difference.h"
#include "installation/StagedMachine.h"

// Stops services of earlier versions, creates accounts, places the tree and what is outside it,
// checks the result, and starts the service. A failure is undone. If a part of that fails, the
// failure's `changes` are Unknown.
Failure Merge(const StagedMachine& staged, const Differences& differences);
