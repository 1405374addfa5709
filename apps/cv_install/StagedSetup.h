// The parts of a staged setup that root's and a user's have in common.
#pragma once

#include <functional>

#include "answers/Arguments.h"
#include "apply/ScriptRun.h"
#include "installation/StagedMachine.h"
#include "record/PreviousSetup.h"
#include "report/Agreement.h"

// Writes the files and runs the commit script, in the private view of the child process. Completes
// `staged`, whose answers, conditions and members are known. The text of the script that ran is in
// `script`, also after a failure.
Failure StageFiles(CInstallBase& run, const PreviousSetup& previous, const Descriptor& liveTree,
                   const SetupLock& lock, StagedMachine& staged, CommitScript& script);

// After a failure up to the end of StageFiles: a dry run describes what would fail, and a setup
// keeps the script that ran, in the directory `scripts`.
void FinishFailedStage(const CommitScript& script, const Descriptor& scripts, Failure& failure);

// How root's and a user's setup report.
struct StagedReport {
    LiveReader read;
    ContentPrinter showContents;
    // Shows what differs, and may ask.
    std::function<Failure(Differences&)> agree;
    // The setup changes something that a comparison does not show.
    bool isAlwaysNeeded = false;
};

// In the parent process, with --dry-run and --if-needed, and before root's merge: compares,
// reports, and saves the answers. Sets `continues` to true if the setup goes on.
Failure ReportStaged(const Arguments& arguments, const StagedMachine& staged,
                     const StagedReport& report, Differences& differences, bool& continues);
