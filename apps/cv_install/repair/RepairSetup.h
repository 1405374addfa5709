// --repair: restores what --verify reports, as far as it is the setup's.
#pragma once

#include "answers/Arguments.h"
#include "installation/SetupLock.h"

// As root. Returns the exit status; failures have been reported.
ExitStatus RepairAsRoot(Arguments& arguments, const SetupLock& lock);
