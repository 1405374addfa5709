// Undoes the last setup as root.
#pragma once

#include "answers/Arguments.h"
#include "installation/SetupLock.h"

// Restores the state before the last setup that saved one, whether it was completed or not. Shows
// what changes and asks, as a setup does. Failures have been reported.
ExitStatus UndoAsRoot(const Arguments& arguments, const SetupLock& lock);
