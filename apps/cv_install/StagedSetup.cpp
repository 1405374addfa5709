#include "StagedSetup.h"

#include <unistd.h>

#include <cerrno>

#include "Console.h"
#include "answers/AnswersFile.h"
#include "answers/Members.h"
#include "answers/StartRun.h"
#include "apply/RunTimeFiles.h"
#include "apply/SetupLog.h"
#include "installation/PackedPages.h"
#include "installation/ServiceState.h"
#include "installation/SetupRun.h"
#include "merge/ServiceAccount.h"
#include "merge/Services.h"
#include "record/ReplacedPages.h"
#include "report/JsonReport.h"
#include "report/Report.h"
#include "report/ResultCheck.h"
#include "report/Summary.h"
#include "staging/ViewMounts.h"

namespace {

// Whether the setup would change anything. If not, reports that. An administrator may have stopped
// or disabled the service.
Failure FindNeed(const StagedMachine& staged, const LiveReader& read, bool& isNeeded) {
    LiveMachine live;
    if (Failure failure = read(live))
        return failure;
    Differences& differences = live.differences;
    QString idleService;
    if (!differences.services.empty())
        idleService = StateOfIdleService(ServiceProperties());
    if (!idleService.isEmpty())
        KeepServiceIdle(differences);
    isNeeded = !staged.isRecorded || !differences.IsEmpty();
    if (isNeeded)
        return {};
    {
        const Console::Printing report(Console::Importance::Detail);
        PrintReport(staged, differences);
    }
    JsonReport::NoteChanges(differences, false);
    SetupLog::Discard();
    JsonReport::NoteLog({});
    ShowNothingToDo(idleService);
    return {};
}

// Removes the staged directories of web pages that the script is to unpack again. They are empty.
Failure StageNewPages(const CInstallBase& run, const PreviousSetup& previous,
                      const PackedPages& packed, int liveTree, StagedMachine& staged) {
    staged.formerPages = FindReplacedPages(previous.manifest, packed, staged.conditions, liveTree);
    for (const Entry& entry : Entries()) {
        const std::string path = PathOf(entry, run.m_installDir.toStdString());
        if (IsReplaced(entry, staged.formerPages) && rmdir(path.c_str()) != 0 && errno != ENOENT)
            return StagingFailed(path);
    }
    return {};
}

}  // namespace

Failure StageFiles(CInstallBase& run, const PreviousSetup& previous, const Descriptor& liveTree,
                   const SetupLock& lock, StagedMachine& staged, CommitScript& script) {
    HideMembersFromScript(run);
    PackedPages packed;
    packed.Read(run, staged.conditions);
    Failure failure = StageNewPages(run, previous, packed, liveTree.Number(), staged);
    if (!failure) {
        // For a user, the library reports each file.
        const Console::Printing detail(Console::Importance::Detail);
        failure = WriteRunTimeFiles(run, staged.conditions);
    }
    if (!failure)
        failure = WriteScript(run, script, Changes::None);
    const EntryList keptPages = FindKeptPages(run, staged.conditions);
    if (!failure)
        failure = FollowScript(script, lock, ScriptOutput::Logged);
    if (!failure)
        failure = CheckResult(run, staged.conditions, keptPages, packed);
    if (!failure && IsRootSetup(run))
        failure = RecordServiceAccount(run.m_serviceUser, run.m_serviceGroup);
    if (failure)
        return failure;
    WarnOfKeptPages(run, liveTree.Number(), keptPages, packed);
    staged.isRecorded = IsRecorded(staged.answers, previous);
    staged.interactive = run.m_interactive;
    staged.productDir = run.m_binariesDir;
    staged.serviceUser = run.m_serviceUser;
    staged.serviceGroup = run.m_serviceGroup;
    staged.script = script.text;
    staged.values = ValuesOf(run, previous.answers);
    staged.missingCommands = SummaryOf(run).missingCommands;
    for (const QString& command : staged.missingCommands)
        staged.values.emplace_back(QStringLiteral("Missing command"), command);
    return {};
}

void FinishFailedStage(const CommitScript& script, const Descriptor& scripts, Failure& failure) {
    DescribeForecast(script, failure);
    if (!script.isDryRun)
        SaveScript(script, scripts);
}

Failure ReportStaged(const Arguments& arguments, const StagedMachine& staged,
                     const StagedReport& report, Differences& differences, bool& continues) {
    const bool isDryRun = arguments.Has(OwnOption::DryRun);
    continues = false;
    Failure failure;
    bool isNeeded = true;
    if (arguments.Has(OwnOption::IfNeeded) && !report.isAlwaysNeeded)
        failure = FindNeed(staged, report.read, isNeeded);
    if (!failure && isNeeded) {
        failure = isDryRun ? ShowDifferences(staged, report.read, differences)
                           : report.agree(differences);
    }
    if (!failure && isNeeded && arguments.Has(OwnOption::Diff))
        report.showContents(differences);
    if (!failure && isNeeded)
        JsonReport::NoteChanges(differences, !staged.isRecorded);
    if (!failure)
        failure = SaveAnswersFile(arguments.TextOf(OwnOption::SaveAnswers), staged.answers);
    if (failure || !isNeeded)
        return failure;
    if (isDryRun)
        ShowSummaryOfDryRun(differences, "a setup");
    continues = !isDryRun;
    return {};
}
