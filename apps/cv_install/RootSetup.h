// A setup as root: staged, shown, confirmed and merged.
#pragma once

#include "answers/Arguments.h"
#include "installation/SetupLock.h"

// Runs the setup, or where a private view of the machine is impossible, a setup in place. Returns
// the exit status; failures have been reported.
ExitStatus RunAsRoot(Arguments& arguments, const Answers& file, const SetupLock& lock);
