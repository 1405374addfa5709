// Removes what setups made.
#pragma once

#include "answers/Arguments.h"
#include "installation/SetupLock.h"

// Restores the state before the first setup. Without --purge, settings, log, record and accounts
// that setups created stay. Shows what changes and asks, as a setup does. Failures have been
// reported.
ExitStatus RemoveSetup(const Arguments& arguments, const QString& installDir,
                       const SetupLock& lock);
