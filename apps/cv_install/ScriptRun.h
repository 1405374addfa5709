// Writes the commit script and follows it to its end.
#pragma once

#include "setuprun/CInstallBase.h"

// Shows the script's output as it comes, passes SIGINT, SIGTERM and SIGHUP on to it, and returns
// the exit status of cv_install: the script's, 128 plus the signal that ended it, or
// ExitStatus::ScriptNotWritten or ScriptNotStarted.
int RunCommitScript(CInstallBase& run);
