#include "UserStaging.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "Console.h"
#include "StagedSetup.h"
#include "answers/StartRun.h"
#include "apply/Interruption.h"
#include "report/Report.h"
#include "report/TextDifferences.h"
#include "staging/StagedRun.h"
#include "staging/TreeCopy.h"
#include "staging/UserView.h"

namespace {

Descriptor OpenTree(const CInstallBase& run) {
    return Descriptor(
        open(run.m_installDir.toUtf8().constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// Free space has been measured: what is written from now on is private.
Failure StageInView(const Arguments& arguments, CInstallBase& run, const PreviousSetup& previous,
                    const Descriptor& liveTree, const SetupLock& lock, StagedMachine& staged) {
    const Descriptor scripts = OpenScriptDirectory();
    CommitScript script;
    script.isDryRun = arguments.Has(OwnOption::DryRun);
    Failure failure = CheckScriptDirectory();
    if (!failure)
        failure = UserView::Enter(liveTree, TreeView::Copied, staged);
    if (!failure)
        failure = StageFiles(run, previous, liveTree, lock, staged, script);
    if (failure)
        FinishFailedStage(script, scripts, failure);
    return failure;
}

}  // namespace

bool IsStagedForUser(const Arguments& arguments) {
    return getuid() != 0 &&
           (arguments.Has(OwnOption::DryRun) || arguments.Has(OwnOption::IfNeeded));
}

Failure FindObstacleToStaging(const CInstallBase& run, unsigned conditions) {
    Failure failure = UserView::FindObstacle();
    if (!failure)
        failure = FindUnstagedEntry(OpenTree(run), run.m_installDir, conditions);
    return failure;
}

Failure StageForUser(const Arguments& arguments, CInstallBase& run, const PreviousSetup& previous,
                     const Answers& answers, const SetupLock& lock, bool& continues) {
    Descriptor liveTree = OpenTree(run);
    const StagedResult result = RunStaged(run.m_installDir, liveTree, [&](StagedMachine& staged) {
        staged.answers = answers;
        staged.conditions = ConditionsOf(run, answers);
        return StageInView(arguments, run, previous, liveTree, lock, staged);
    });
    if (result.signal != 0)
        Interruption::End(result.signal);
    if (!result.impossible.isEmpty())
        return UserView::Impossible(result.impossible,
                                    QStringLiteral("Free up memory, then run the setup again."));
    if (!result.staged)
        std::exit(result.status);
    const StagedMachine& staged = *result.staged;
    const auto read = [&](LiveMachine& live) {
        return FindPathDifferences(staged, liveTree.Number(), static_cast<uid_t>(-1),
                                   live.differences);
    };
    const auto agree = [&](Differences& differences) {
        return ShowDifferences(staged, read, differences);
    };
    // As it was asked for, it is shown with --quiet, too.
    const auto showContents = [&](const Differences& differences) {
        const Console::Printing printing(Console::Importance::Needed);
        PrintTextDifferences(staged, liveTree.Number(), differences);
    };
    Differences differences;
    return ReportStaged(arguments, staged,
                        {.read = read, .showContents = showContents, .agree = agree}, differences,
                        continues);
}
