// A setup that works on the machine directly: a user's private copy, and a setup as root where a
// private view of the machine is impossible.
#pragma once

#include "Problem.h"
#include "answers/Arguments.h"
#include "installation/SetupLock.h"

// Asks, writes the files, runs the commit script, checks the result and shows the summary. A user's
// setup is staged and compared before, with --if-needed, or instead, with --dry-run.
Failure RunInPlace(Arguments& arguments, const Answers& file, const SetupLock& lock);
