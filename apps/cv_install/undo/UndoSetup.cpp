#include "undo/UndoSetup.h"

#include <unistd.h>

#include <cstdio>

#include "Console.h"
#include "apply/Interruption.h"
#include "apply/SetupLog.h"
#include "report/JsonReport.h"
#include "undo/Restoration.h"
#include "undo/SavedStates.h"

namespace {

void ShowSetup(const SetupFacts& facts, bool isPlan) {
    const Console::Printing printing(isPlan ? Console::Importance::Needed
                                            : Console::Importance::Usual);
    std::printf("Undo of the setup of %s by %s:\n  %s\n", qUtf8Printable(Printable(facts.time)),
                qUtf8Printable(Printable(facts.user)), qUtf8Printable(Printable(facts.command)));
}

void FinishUndo(const QString& time) {
    const Console::Printing summary(Console::Importance::Needed);
    std::printf("cv_install: undid the setup of %s\n", qUtf8Printable(Printable(time)));
    std::fflush(stdout);
}

// If it is killed, a further undo completes it; a setup adds an attempt to the same state.
Failure CarryOutUndo(SavedStates& states, Restoration& restoration) {
    const bool wasComplete = states.Saved().isComplete;
    Failure failure = states.NoteComplete(false);
    if (!failure) {
        failure = restoration.Apply();
        if (failure && failure->changes == Changes::None)
            states.NoteComplete(wasComplete);
    }
    if (failure)
        return failure;
    failure = states.RestoreRecord();
    if (failure)
        failure->changes = Changes::Unknown;
    return failure;
}

Failure UndoLastSetup(const Arguments& arguments, const QString& installDir,
                      const SetupLock& lock) {
    SavedStates states(installDir);
    StagedMachine content;
    Failure failure = states.LoadLast();
    if (failure && !arguments.Has(OwnOption::DryRun))
        states.RemoveLeftovers();
    if (!failure)
        failure = states.OpenContent(content);
    if (failure)
        return failure;
    ShowSetup(states.Facts(), !arguments.Has(OwnOption::Yes));
    Restoration restoration(
        arguments, arguments.Has(OwnOption::Force) ? UndoPurpose::ForcedUndo : UndoPurpose::Undo,
        states.Saved(), std::move(content),
        [](const UndoPlan&) { return std::vector<PathDifference>(); });
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
    lock.NoteMerge(failure && failure->changes != Changes::None);
    if (!failure)
        FinishUndo(time);
    return failure;
}

Problem NotCompleted(const QString& time) {
    return {ExitStatus::NoDryRun,
            QStringLiteral("cannot find out what a setup would change: the setup of %1 was not "
                           "completed")
                .arg(Printable(time)),
            QStringLiteral("Run the setup, which first restores the files from before that one, or "
                           "undo that one with --undo.")};
}

Failure ApplyBeforeSetup(Restoration& restoration, const QString& time) {
    // A further setup completes this, too.
    Interruption::EndsSetup(Changes::Unknown);
    Failure failure = restoration.Apply();
    if (!failure)
        NoteRestoredFiles();
    Interruption::EndsSetup(Changes::None);
    if (!failure)
        std::printf("Restored the files from before the setup of %s, which was not completed.\n",
                    qUtf8Printable(Printable(time)));
    return failure;
}

}  // namespace

Failure RestoreAfterUnfinished(const Arguments& arguments, const QString& installDir,
                               Unfinished which) {
    SavedStates states(installDir);
    bool isFound = false;
    StagedMachine content;
    Failure failure = states.LoadUnfinished(which == Unfinished::All, isFound);
    // What is damaged is reported when the setup is undone.
    if (failure && failure->status == ExitStatus::RecordUnusable)
        return {};
    if (!failure && isFound)
        failure = states.OpenContent(content);
    if (failure || !isFound)
        return failure;
    Restoration restoration(arguments, UndoPurpose::FurtherSetup, states.Saved(),
                            std::move(content),
                            [](const UndoPlan&) { return std::vector<PathDifference>(); });
    failure = restoration.Plan();
    if (failure && failure->status == ExitStatus::RecordUnusable) {
        ReportWarning({failure->status, failure->text,
                       QStringLiteral("The setup continues with what an unfinished one left.")});
        return {};
    }
    const QString time = states.Facts().time;
    if (!failure && !restoration.Shown().IsEmpty())
        failure = arguments.Has(OwnOption::DryRun) ? Failure(NotCompleted(time))
                                                   : ApplyBeforeSetup(restoration, time);
    return AboutAction(failure, {"setup canceled", "during the setup", "un the setup again"});
}

ExitStatus UndoSetup(const Arguments& arguments, const QString& installDir, const SetupLock& lock) {
    if (!arguments.Has(OwnOption::DryRun))
        SetupLog::Start(getuid() == 0);
    JsonReport::NoteLog(SetupLog::Path());
    const Failure failure = AboutAction(UndoLastSetup(arguments, installDir, lock),
                                        {"undo canceled", "during the undo", "un the undo again"});
    if (!failure)
        return ExitStatus::Complete;
    Report(*failure);
    return failure->status;
}
