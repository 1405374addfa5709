#include "RootSetup.h"

#include <cstdio>
#include <functional>

#include "Console.h"
#include "InPlace.h"
#include "Outcome.h"
#include "StagedSetup.h"
#include "answers/Checks.h"
#include "answers/Conversation.h"
#include "answers/Facts.h"
#include "answers/Members.h"
#include "answers/StartRun.h"
#include "apply/Interruption.h"
#include "apply/ScriptRun.h"
#include "apply/SetupLog.h"
#include "installation/Installation.h"
#include "installation/TimeLimit.h"
#include "installation/TreeCheck.h"
#include "merge/Accounts.h"
#include "merge/Merge.h"
#include "merge/Services.h"
#include "record/PreviousSetup.h"
#include "record/SetupRecord.h"
#include "report/Agreement.h"
#include "report/JsonReport.h"
#include "report/Report.h"
#include "report/Summary.h"
#include "report/TextDifferences.h"
#include "staging/PrivateMounts.h"
#include "staging/StagedRun.h"
#include "undo/SavedStates.h"
#include "undo/UndoSetup.h"

namespace {

// In the child process: everything up to the end of the commit script.
Failure Stage(Arguments& arguments, const Answers& file, const Descriptor& liveTree,
              const EntryPlaces& places, const SetupLock& lock, StagedMachine& staged) {
    Answers answers;
    PreviousSetup previous;
    Failure failure;
    const std::unique_ptr<CInstallBase> run = StartRun(
        arguments, file,
        [&](CInstallBase& started) {
            const TimeLimit limit;
            failure = ReadPreviousSetup(started, liveTree.Number(), previous);
            return AnswersToRepeat(previous, started);
        },
        answers);
    if (run->m_clusterNode)
        Console::SetDefaultLevel(Console::Level::Quiet);
    if (!failure)
        failure = CheckPlaces(run->m_binariesDir, run->m_installDir);
    if (!failure) {
        failure = AskQuestions(*run, answers, previous.answers, [&](const QString& scratch) {
            PrivateMounts::ShowScratchDirectory(liveTree, scratch);
        });
    }
    const Descriptor scripts = OpenScriptDirectory();
    staged.members = FindMemberChanges(*run);
    staged.answers = answers;
    staged.conditions = ConditionsOf(*run, answers);
    if (!failure) {
        JsonReport::NoteAnswers(answers);
        Outcome::NoteAnswers(answers);
        failure = ReportFindings(
            RunChecks(FindFacts(*run, answers, staged.members, places, liveTree.Number())));
    }
    if (!failure)
        failure = PrivateMounts::CoverTemporaryFiles();
    CommitScript script;
    script.isDryRun = arguments.Has(OwnOption::DryRun);
    if (!failure)
        failure = StageFiles(*run, previous, liveTree, lock, staged, script);
    if (failure)
        FinishFailedStage(script, scripts, failure);
    return failure;
}

uid_t UidOf(const std::optional<ServiceAccount>& account) {
    return account ? account->uid : static_cast<uid_t>(-1);
}

Failure ReadLiveMachine(const StagedMachine& staged, const LiveRows& atStaging, bool alwaysRestart,
                        LiveMachine& live) {
    const TimeLimit limit;
    Descriptor liveTree;
    Failure failure = OpenInstallDirectory(liveTree);
    Differences& differences = live.differences;
    if (!failure) {
        live.rows = ReadLiveRows(liveTree.Number());
        failure = FindAccountDifferences(atStaging, staged, differences);
    }
    std::optional<ServiceAccount> recorded;
    if (!failure)
        failure = ReadServiceAccount(recorded);
    if (!failure)
        failure = FindPathDifferences(staged, liveTree.Number(), UidOf(recorded), differences);
    if (!failure)
        failure = FindServiceDifferences(staged, alwaysRestart, differences);
    return failure;
}

// As it was asked for, it is shown with --quiet, too.
void ShowContents(const StagedMachine& staged, const Differences& differences) {
    const Console::Printing printing(Console::Importance::Needed);
    Descriptor liveTree;
    Failure failure;
    {
        const TimeLimit limit;
        failure = OpenInstallDirectory(liveTree);
    }
    if (failure)
        ReportWarning(*failure);
    else
        PrintTextDifferences(staged, liveTree.Number(), differences);
}

Failure SaveState(const SetupFacts& facts, const Differences& differences, SavedStates& states) {
    Descriptor liveTree;
    Failure failure = OpenInstallDirectory(liveTree);
    return failure ? failure : states.Begin(facts, differences, liveTree.Number());
}

Failure MergeAndReport(const SetupLock& lock, const StagedMachine& staged,
                       const Differences& differences) {
    SetupRecord record({.installDir = staged.installDir,
                        .productDir = staged.productDir,
                        .conditions = staged.conditions,
                        .serviceUser = staged.serviceUser,
                        .serviceGroup = staged.serviceGroup,
                        .formerPages = staged.formerPages});
    SavedStates states(staged.installDir);
    SetupLog::Keep();
    // A merge ends by itself within seconds.
    Interruption::ComesTooLate();
    // A setup that is killed from here on leaves something that the next one replaces.
    lock.NoteMerge(true);
    Failure failure;
    {
        const TimeLimit limit;
        const SetupFacts facts = FactsOf(CommandLine(), staged.installDir);
        failure = record.Prepare(facts, staged.answers, staged.script);
        if (!failure)
            failure = SaveState(facts, differences, states);
    }
    if (!failure) {
        failure = Merge(staged, differences);
        if (failure && failure->changes == Changes::None)
            states.Discard();
    }
    if (!failure)
        failure = record.Place();
    if (!failure)
        states.Complete();
    // The next setup completes one that was not taken back.
    lock.NoteMerge(failure && failure->changes != Changes::None);
    if (failure)
        return failure;
    Summary summary = SummaryOf(staged);
    failure = CheckService(summary);
    ShowSummary(summary);
    return failure;
}

Failure Complete(const Arguments& arguments, const SetupLock& lock, const StagedMachine& staged,
                 const LiveRows& atStaging) {
    if ((staged.conditions & WithoutClusterNode) == 0)
        Console::SetDefaultLevel(Console::Level::Quiet);
    // The comparison does not show whether the service runs with what was merged.
    const bool alwaysRestart = arguments.Has(OwnOption::Restart) || lock.FoundIncompleteMerge();
    const auto read = [&](LiveMachine& live) {
        return ReadLiveMachine(staged, atStaging, alwaysRestart, live);
    };
    const auto showContents = [&](const Differences& differences) {
        ShowContents(staged, differences);
    };
    const auto agree = [&](Differences& differences) {
        return Agree(staged, atStaging, read, showContents, differences);
    };
    Differences differences;
    bool continues = false;
    Failure failure = ReportStaged(arguments, staged, {read, showContents, agree, alwaysRestart},
                                   differences, continues);
    if (!failure && continues)
        failure = MergeAndReport(lock, staged, differences);
    return failure;
}

Failure RunWithoutStaging(Arguments& arguments, const Answers& file, const SetupLock& lock,
                          const QString& reason) {
    if (arguments.Has(OwnOption::DryRun) || arguments.Has(OwnOption::IfNeeded)) {
        return Problem{
            ExitStatus::NoDryRun,
            QStringLiteral("cannot find out what a setup would change: %1").arg(reason),
            QStringLiteral("That needs private mounts. Run the setup without --dry-run and "
                           "--if-needed, or outside of the container or chroot.")};
    }
    ReportWarning({ExitStatus::Complete,
                   QStringLiteral("cannot prepare the setup in private: %1").arg(reason),
                   QStringLiteral("The setup changes the machine step by step, and a failure "
                                  "leaves the changes made so far.")});
    const QString installDir = QLatin1String(sharedDirectory);
    Failure failure = RestoreAfterUnfinished(arguments, installDir, Unfinished::All);
    if (!failure)
        failure = CheckBeforeStart(installDir);
    return failure ? failure : RunInPlace(arguments, file, lock);
}

}  // namespace

ExitStatus RunAsRoot(Arguments& arguments, const Answers& file, const SetupLock& lock) {
    if (!arguments.Has(OwnOption::DryRun))
        SetupLog::Start(true);
    JsonReport::NoteLog(SetupLog::Path());
    Descriptor liveTree;
    LiveRows atStaging;
    EntryPlaces places;
    const QString installDir = QLatin1String(sharedDirectory);
    Failure failure = RestoreAfterUnfinished(arguments, installDir, Unfinished::InPlace);
    if (!failure) {
        const TimeLimit limit;
        failure = OpenInstallDirectory(liveTree);
        if (!failure) {
            atStaging = ReadLiveRows(liveTree.Number());
            places = ReadEntryPlaces(sharedDirectory, liveTree.Number());
        }
    }
    if (!failure) {
        const StagedResult result = RunStaged(installDir, liveTree, [&](StagedMachine& staged) {
            return Stage(arguments, file, liveTree, places, lock, staged);
        });
        if (result.signal != 0)
            Interruption::End(result.signal);
        if (!result.impossible.isEmpty())
            failure = RunWithoutStaging(arguments, file, lock, result.impossible);
        else if (!result.staged)
            return static_cast<ExitStatus>(result.status);
        else
            failure = Complete(arguments, lock, *result.staged, atStaging);
    }
    if (!failure)
        return ExitStatus::Complete;
    Report(*failure);
    return failure->status;
}
