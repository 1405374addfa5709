#include "undo/UndoSetup.h"

#include <cstdio>

#include "Console.h"
#include "apply/Interruption.h"
#include "apply/SetupLog.h"
#include "report/JsonReport.h"
#include "undo/Restoration.h"
#include "undo/SavedStates.h"

namespace {

void ShowSetup(const SetupFacts& facts) {
    std::printf("Undo of the setup of %s by %s:\n  %s\n", qUtf8Printable(Printable(facts.time)),
                qUtf8Printable(Printable(facts.user)), qUtf8Printable(Printable(facts.command)));
}

void FinishUndo(const QString& time) {
    const Console::Printing summary(Console::Importance::Needed);
    std::printf("cv_install: undid the setup of %s\n", qUtf8Printable(Printable(time)));
    std::fflush(stdout);
}

// Whatever ends it, a further undo or setup completes it.
Failure CarryOutUndo(SavedStates& states, Restoration& restoration) {
    const bool wasComplete = states.Saved().isComplete;
    Failure failure = states.NoteComplete(false);
    if (!failure) {
        failure = restoration.Apply();
        if (failure)
            states.NoteComplete(wasComplete);
    }
    return failure ? failure : states.RestoreRecord();
}

Failure UndoLastSetup(const Arguments& arguments, const SetupLock& lock) {
    SavedStates states;
    StagedMachine content;
    Failure failure = states.LoadLast();
    if (failure && !arguments.Has(OwnOption::DryRun))
        states.RemoveLeftovers();
    if (!failure)
        failure = states.OpenContent(content);
    if (failure)
        return failure;
    ShowSetup(states.Facts());
    Restoration restoration(
        arguments, arguments.Has(OwnOption::Force) ? UndoPurpose::ForcedUndo : UndoPurpose::Undo,
        states.Saved(), std::move(content), [] { return std::vector<PathDifference>(); });
    failure = restoration.Plan();
    if (!failure)
        JsonReport::NoteChanges(restoration.Shown(), true);
    if (failure || arguments.Has(OwnOption::DryRun))
        return failure;
    SetupLog::Keep();
    Interruption::ComesTooLate();
    lock.NoteMerge(true);
    const QString time = states.Facts().time;
    failure = CarryOutUndo(states, restoration);
    lock.NoteMerge(false);
    if (!failure)
        FinishUndo(time);
    return failure;
}

}  // namespace

ExitStatus UndoAsRoot(const Arguments& arguments, const SetupLock& lock) {
    if (!arguments.Has(OwnOption::DryRun))
        SetupLog::Start(true);
    JsonReport::NoteLog(SetupLog::Path());
    const Failure failure = AboutAction(UndoLastSetup(arguments, lock),
                                        {"undo canceled", "during the undo", "un the undo again"});
    if (!failure)
        return ExitStatus::Complete;
    Report(*failure);
    return failure->status;
}
