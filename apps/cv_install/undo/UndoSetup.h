// Undoes the last setup.
#pragma once

#include "answers/Arguments.h"
#include "installation/SetupLock.h"

// Restores the state before the last setup that saved one, whether it was completed or not. Shows
// what changes and asks, as a setup does. Failures have been reported.
ExitStatus UndoSetup(const Arguments& arguments, const QString& installDir, const SetupLock& lock);

// Which unfinished setups leave what another one cannot complete.
enum class Unfinished { InPlace, All };

// Called first in a setup. After an unfinished one, restores the files from before it, so that this
// setup gives the same result as without that one. A dry run fails instead if anything differs.
Failure RestoreAfterUnfinished(const Arguments& arguments, const QString& installDir,
                               Unfinished which);
