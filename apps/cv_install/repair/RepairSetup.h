// --repair: restores what --verify reports, as far as it is the setup's.
#pragma once

#include "answers/Arguments.h"
#include "installation/SetupLock.h"

// Of the installation for all users as root, and of a private copy as its user. Returns the exit
// status; failures have been reported.
ExitStatus Repair(Arguments& arguments, const SetupLock& lock);
