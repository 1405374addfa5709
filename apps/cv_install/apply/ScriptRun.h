// The commit script: written, confirmed, and run to its end.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <functional>

#include "Problem.h"
#include "apply/ScriptMessages.h"
#include "installation/SetupLock.h"
#include "installation/State.h"
#include "setuprun/CInstallBase.h"

struct CommitScript {
    QString path;
    QByteArray text;  // empty: not written yet
    bool isDryRun = false;
    bool wasRun = false;
    ScriptMessages messages;  // of a script that ended with another status than 0
    QByteArray closing;       // what it printed at its end, which is shown after a complete setup
};

// Writes the commit script to a new file and compares it with the text that `script` already has
// or, without one, with a second writing, because the library does not detect write errors. On a
// failure, whose changes are `changes`, no file is left.
Failure WriteScript(CInstallBase& run, CommitScript& script, Changes changes);

// Calls `ask`, which returns whether to continue, while the script can be read. Removes the file
// afterwards, also when a signal ends the process meanwhile.
bool AskAboutScript(const CommitScript& script, const std::function<bool()>& ask);

// What happens to the script's output. Shown: on a terminal with a title for each section. Logged:
// only the log gets it, unless the script fails or --verbose is given; in a dry run, only --verbose
// shows it. In all cases, its closing lines, which report success, are not shown.
enum class ScriptOutput { Shown, Logged };

// Runs the script, shows its output as it comes or logs it at the end, and passes SIGINT, SIGQUIT,
// SIGTERM and SIGHUP on to it. The status of a failure is the script's, 128 plus the signal that
// terminated it, or ScriptNotStarted. The script holds the lock too, so that it is not released
// while a script runs whose setup was killed; that script gets SIGTERM. With Logged, a script that
// does not end within `longestRun` is terminated, with all its processes.
inline constexpr std::chrono::minutes longestStagedRun(10);
Failure FollowScript(CommitScript& script, const SetupLock& lock, ScriptOutput output,
                     std::chrono::milliseconds longestRun = longestStagedRun);

// Describes a failure after the script's start in a dry run as what a setup would do, with the last
// messages of the script.
void DescribeForecast(const CommitScript& script, Failure& failure);

// At the end of a setup. Shows the closing lines if there is no failure, and otherwise logs them.
// Removes the script that was run if the setup is complete, and otherwise notes that it was kept.
void FinishScript(const CommitScript& script, const Failure& failure);

// The directory of commit scripts.
Descriptor OpenScriptDirectory();

// For a script that is written in private: fails if that directory could not take one.
Failure CheckScriptDirectory();

// After a failure in private, writes the script that was run to a new file of its name in
// `directory`.
void SaveScript(const CommitScript& script, const Descriptor& directory);

// For a process that cannot continue: asks a script that still runs to end.
void StopScript();
