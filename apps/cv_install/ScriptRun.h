// The commit script: written, run, and followed to its end.
#pragma once

#include "setuprun/CInstallBase.h"

// The path of a new commit script; empty, told on stderr, when it could not be written.
QString WriteScript(CInstallBase& run);

// Runs the script, shows its output as it comes, on a terminal with a line for each section, and
// passes SIGINT, SIGQUIT, SIGTERM and SIGHUP on to it. Returns the exit status of cv_install: the
// script's, 128 plus the signal that ended it, or ExitStatus::ScriptNotStarted. Failures are told
// on stderr.
int FollowScript(const QString& path);

// For a process that cannot go on: asks a script that still runs to end.
void StopScript();
