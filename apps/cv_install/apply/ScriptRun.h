// The commit script: written, confirmed, and run to its end.
#pragma once

#include <QByteArray>
#include <QString>
#include <functional>

#include "Problem.h"
#include "installation/SetupLock.h"
#include "setuprun/CInstallBase.h"

struct CommitScript {
    QString path;
    QByteArray text;  // empty: not written yet
};

// Writes the commit script to a new file and compares it with the text that `script` already has
// or, without one, with a second writing, because the library does not detect write errors. On a
// failure, whose changes are `changes`, no file is left.
Failure WriteScript(CInstallBase& run, CommitScript& script, Changes changes);

// Calls `ask`, which returns whether to continue, while the script can be read. Removes the file
// afterwards, also when SIGINT, SIGQUIT, SIGTERM or SIGHUP terminates the process meanwhile.
bool AskAboutScript(const CommitScript& script, const std::function<bool()>& ask);

// What happens to the script's output. Shown: on a terminal with a title for each section. Logged:
// only the log gets it, unless the script fails or --verbose is given.
enum class ScriptOutput { Shown, Logged };

// Runs the script, shows its output as it comes or logs it at the end, and passes SIGINT, SIGQUIT,
// SIGTERM and SIGHUP on to it. The status of a failure is the script's, 128 plus the signal that
// terminated it, or ScriptNotStarted. The script holds the lock too, so that it is not released
// while a script runs whose setup was killed; that script gets SIGTERM.
Failure FollowScript(const QString& path, const SetupLock& lock, ScriptOutput output);

// For a process that cannot continue: asks a script that still runs to end.
void StopScript();
