#include "InPlace.h"

#include <fcntl.h>

#include "Console.h"
#include "Outcome.h"
#include "UserStaging.h"
#include "answers/AnswersFile.h"
#include "answers/Checks.h"
#include "answers/Conversation.h"
#include "answers/Facts.h"
#include "answers/Members.h"
#include "answers/StartRun.h"
#include "apply/Interruption.h"
#include "apply/RunTimeFiles.h"
#include "apply/ScriptRun.h"
#include "apply/SetupLog.h"
#include "installation/PackedPages.h"
#include "installation/SetupRun.h"
#include "installation/TreeCheck.h"
#include "merge/Accounts.h"
#include "merge/ServiceAccount.h"
#include "record/PreviousSetup.h"
#include "record/SetupRecord.h"
#include "report/JsonReport.h"
#include "report/Plan.h"
#include "report/ResultCheck.h"
#include "report/Summary.h"
#include "undo/SavedStates.h"

namespace {

// Shows the plan of a setup as root and asks for confirmation, with the commit script to read.
Failure Confirm(CInstallBase& run, const Answers& previous, unsigned conditions,
                const MemberChanges& members, CommitScript& script) {
    if (!run.m_interactive) {
        ShowPlan(run, previous, conditions, members, {});
        return {};
    }
    if (Failure failure = WriteScript(run, script, Changes::None))
        return failure;
    const Console::Printing printing(Console::Importance::Needed);
    const bool confirmed = AskAboutScript(script, [&] {
        ShowPlan(run, previous, conditions, members, script.path);
        return ConfirmPlan();
    });
    if (confirmed)
        return {};
    return PlanDeclined();
}

Failure ChangeMembers(const CInstallBase& run, const MemberChanges& changes) {
    std::vector<MemberDifference> members;
    Failure failure = FindMemberDifferences(run.m_serviceGroup.toStdString(), changes, members);
    Undo undo;
    if (!failure)
        failure = ApplyMembers(members, undo);
    undo.Forget();
    if (failure)
        failure->changes = Changes::Kept;
    return failure;
}

// A user's setup continues without a record, such as with a home directory that cannot be written
// to.
Failure AcceptWithoutRecord(const CInstallBase& run, const Failure& failure) {
    if (!failure || IsRootSetup(run))
        return failure;
    ReportWarning({failure->status, failure->text,
                   QStringLiteral("The setup continues. Its record is missing or incomplete.")});
    return {};
}

// Everything that changes the machine. As root, the tree is checked again before the script.
Failure ChangeMachine(CInstallBase& run, const SetupInPlace& setup, const SetupFacts& facts,
                      const Answers& answers, const MemberChanges& members, const SetupLock& lock,
                      bool isRecorded, CommitScript& script) {
    const unsigned conditions = setup.conditions;
    const bool root = IsRootSetup(run);
    const PackedPages& packed = *setup.packed;
    Failure failure = WriteRunTimeFiles(run, conditions);
    if (!failure && root)
        failure = FindUnsafePath(run.m_installDir, Changes::RunTimeFiles);
    if (!failure)
        failure = WriteScript(run, script, Changes::RunTimeFiles);
    SetupRecord record({.installDir = run.m_installDir,
                        .productDir = run.m_binariesDir,
                        .conditions = conditions,
                        .serviceUser = run.m_serviceUser,
                        .serviceGroup = run.m_serviceGroup,
                        .formerPages = setup.formerPages,
                        .packed = &packed});
    if (!failure && isRecorded)
        failure = AcceptWithoutRecord(run, record.Prepare(facts, answers, script.text));
    if (failure) {
        failure->changes = Changes::RunTimeFiles;
        return failure;
    }
    const EntryList keptPages = FindKeptPages(run, conditions);
    Interruption::ComesTooLate();
    failure = ReplacePages(run.m_installDir, setup.formerPages, packed, conditions);
    if (!failure)
        failure = FollowScript(script, lock, ScriptOutput::Shown);
    if (!failure)
        failure = CheckResult(run, conditions, keptPages, packed);
    if (!failure && root)
        failure = ChangeMembers(run, members);
    if (!failure && root)
        failure = RecordServiceAccount(run.m_serviceUser, run.m_serviceGroup);
    if (!failure && isRecorded)
        failure = AcceptWithoutRecord(run, record.Place());
    if (failure || keptPages.empty())
        return failure;
    const Descriptor tree(open(run.m_installDir.toUtf8().constData(), O_PATH | O_CLOEXEC));
    WarnOfKeptPages(run, tree.Number(), keptPages, packed);
    return {};
}

// In a setup as root the tree is checked again after the confirmation, because other users can
// change it meanwhile.
Failure CarryOut(CInstallBase& run, const PreviousSetup& previous, const Answers& answers,
                 const MemberChanges& members, const SetupLock& lock, CommitScript& script) {
    const unsigned conditions = ConditionsOf(run, answers) | InPlace;
    const bool root = IsRootSetup(run);
    HideMembersFromScript(run);
    PackedPages packed;
    Failure failure;
    if (root)
        failure = Confirm(run, previous.answers, conditions, members, script);
    if (!failure)
        packed.Read(run, conditions);
    if (!failure && root)
        failure = FindUnsafePath(run.m_installDir, Changes::None);
    if (failure)
        return failure;
    const Descriptor formerTree(
        open(run.m_installDir.toUtf8().constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const SetupInPlace setup = {.installDir = run.m_installDir,
                                .conditions = conditions,
                                .serviceUser = run.m_serviceUser,
                                .serviceGroup = run.m_serviceGroup,
                                .formerPages = FindReplacedPages(previous.manifest, packed,
                                                                 conditions, formerTree.Number()),
                                .packed = &packed};
    const SetupFacts facts = FactsOf(CommandLine(), run.m_installDir);
    SavedStates states(run.m_installDir);
    SetupLog::Keep();
    failure = states.BeginInPlace(facts, setup);
    const bool isRecorded = !failure || states.HasRecord();
    if (!isRecorded)
        failure = AcceptWithoutRecord(run, failure);
    if (failure)
        return failure;
    Interruption::EndsSetup(Changes::RunTimeFiles);
    failure = ChangeMachine(run, setup, facts, answers, members, lock, isRecorded, script);
    // Processes of a script that a signal ended may still write.
    const bool isSignaled = failure && failure->status >= ExitStatus::SignalBase;
    if (!failure)
        states.Complete();
    else if (!isSignaled)
        states.NoteFailed();
    return failure;
}

Failure CheckInPlace(const CInstallBase& run, const Answers& answers,
                     const MemberChanges& members) {
    const Descriptor tree(
        IsRootSetup(run) ? open(run.m_installDir.toUtf8().constData(), O_PATH | O_CLOEXEC) : -1);
    const EntryPlaces places = ReadEntryPlaces(run.m_installDir.toStdString(), tree.Number());
    return ReportFindings(RunChecks(FindFacts(run, answers, members, places, tree.Number())));
}

// What must hold before the first question, whose answer would be lost.
Failure FindObstacle(const CInstallBase& run, unsigned conditions, bool isStaged) {
    if (IsRootSetup(run))
        return FindRiskInPlace(run);
    Failure failure = FindObstacleForUser(run);
    if (!failure && isStaged)
        failure = FindObstacleToStaging(run, conditions);
    return failure;
}

}  // namespace

Failure RunInPlace(Arguments& arguments, const Answers& file, const SetupLock& lock) {
    const bool isStaged = IsStagedForUser(arguments);
    Answers answers;
    PreviousSetup previous;
    Failure failure;
    const std::unique_ptr<CInstallBase> run = StartRun(
        arguments, file,
        [&](CInstallBase& started) {
            const Descriptor tree(
                open(started.m_installDir.toUtf8().constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            failure = ReadPreviousSetup(started, tree.Number(), previous);
            return AnswersToRepeat(previous, started);
        },
        answers);
    // That of root was started before.
    if (!IsRootSetup(*run) && !arguments.Has(OwnOption::DryRun))
        SetupLog::Start(false);
    JsonReport::NoteLog(SetupLog::Path());
    if (run->m_clusterNode)
        Console::SetDefaultLevel(Console::Level::Quiet);
    if (!failure)
        failure = FindObstacle(*run, ConditionsOf(*run, answers), isStaged);
    if (!failure)
        failure = AskQuestions(*run, answers, previous.answers);
    const MemberChanges members = FindMemberChanges(*run);
    if (!failure) {
        JsonReport::NoteAnswers(answers);
        Outcome::NoteAnswers(answers);
        if (!isStaged)
            failure = SaveAnswersFile(arguments.TextOf(OwnOption::SaveAnswers), answers);
    }
    if (!failure)
        failure = CheckInPlace(*run, answers, members);
    bool continues = true;
    if (!failure && isStaged)
        failure = StageForUser(arguments, *run, previous, answers, lock, continues);
    if (failure || !continues)
        return failure;
    CommitScript script;
    failure = CarryOut(*run, previous, answers, members, lock, script);
    Summary summary = SummaryOf(*run);
    const bool isInstalled = !failure;
    if (isInstalled)
        failure = CheckService(summary);
    FinishScript(script, failure);
    if (isInstalled)
        ShowSummary(summary);
    return failure;
}
