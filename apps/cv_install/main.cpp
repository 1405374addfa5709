// cv_install: the console setup of Corvane. Calls the library's setup steps in order.
#include <cstring>

#include "Problem.h"
#include "answers/Arguments.h"
#include "answers/Conversation.h"
#include "answers/Usage.h"
#include "apply/ProcessState.h"
#include "apply/RunTimeFiles.h"
#include "apply/ScriptRun.h"
#include "apply/SetupLog.h"
#include "installation/SetupRun.h"
#include "installation/TreeCheck.h"
#include "report/Plan.h"
#include "report/ResultCheck.h"
#include "report/Summary.h"
#include "setuprun/CInstallBase.h"

namespace {

void AnswerWithDefaults(CInstallBase& run) {
    run.m_interactive = false;
    // The queue's menu has no default.
    if (run.m_queueType == CInstallBase::QueueUnset)
        run.m_queueType = CInstallBase::QueueInternal;
}

unsigned ConditionsOf(const CInstallBase& run, const Arguments& arguments) {
    unsigned conditions = IsRootSetup(run) ? AsRoot : AsUser;
    if (!run.m_clusterNode)
        conditions |= WithoutClusterNode;
    if (arguments.Has(OwnOption::SubmissionScripts))
        conditions |= WithSubmissionScripts;
    return conditions;
}

// Shows the plan of a setup as root and asks for confirmation, with the commit script to read.
Failure Confirm(CInstallBase& run, unsigned conditions, CommitScript& script) {
    if (!run.m_interactive) {
        ShowPlan(run, conditions, {});
        return {};
    }
    if (Failure failure = WriteScript(run, script, Changes::None))
        return failure;
    const bool confirmed = AskAboutScript(script, [&] {
        ShowPlan(run, conditions, script.path);
        return ConfirmPlan();
    });
    if (confirmed)
        return {};
    return Problem{ExitStatus::Declined, QStringLiteral("setup canceled: plan not confirmed"), {}};
}

// Everything that changes the machine. In a setup as root the tree is checked again after each wait
// for an answer, because other users can change it meanwhile.
Failure CarryOut(CInstallBase& run, unsigned conditions, const SetupLock& lock) {
    const bool root = IsRootSetup(run);
    CommitScript script;
    Failure failure;
    if (root)
        failure = Confirm(run, conditions, script);
    if (!failure && root)
        failure = FindUnsafePath(run.m_installDir, Changes::None);
    if (!failure)
        failure = WriteRunTimeFiles(run, conditions);
    if (!failure && root)
        failure = FindUnsafePath(run.m_installDir, Changes::RunTimeFiles);
    if (!failure)
        failure = WriteScript(run, script, Changes::RunTimeFiles);
    if (failure)
        return failure;
    const EntryList keptPages = FindKeptPages(run, conditions);
    failure = FollowScript(script.path, lock);
    if (!failure)
        failure = CheckResult(run, conditions, keptPages);
    return failure;
}

Failure RunSetup(Arguments& arguments) {
    QString installDir;
    SetupLock lock;
    Failure failure = FindInstallDirectory(arguments.argv()[0], installDir);
    if (!failure)
        failure = lock.Take(installDir, std::chrono::seconds(arguments.NumberOf(OwnOption::Wait)));
    if (!failure)
        failure = CheckBeforeStart(installDir);
    if (failure)
        return failure;
    CInstallBase run(CInstallBase::ParseUserModeArg(arguments.argc(), arguments.argv()),
                     arguments.argc(), arguments.argv());
    // The limits are divided by the number of cores.
    if (run.m_coreCount < 1)
        run.m_coreCount = 1;
    if (arguments.Has(OwnOption::Yes))
        AnswerWithDefaults(run);
    SetupLog::Start(IsRootSetup(run));
    // Before the questions, whose answers would be lost.
    if (!IsRootSetup(run))
        failure = FindObstacleForUser(run);
    if (!failure)
        failure = AskQuestions(run);
    if (!failure)
        failure = CarryOut(run, ConditionsOf(run, arguments), lock);
    if (!failure)
        ShowSummary(run);
    return failure;
}

}  // namespace

int main(int argc, char** argv) {
    PrepareProcess();
    Arguments arguments(argc, argv);
    Failure failure;
    if (arguments.Has(OwnOption::Help))
        PrintHelp();
    else if (arguments.Has(OwnOption::Version))
        PrintVersion();
    else
        failure = RunSetup(arguments);
    if (failure)
        Report(*failure);
    if (const int error = SetupLog::OutputError()) {
        Report({ExitStatus::Complete,
                QStringLiteral("cannot write to standard output: %1")
                    .arg(QString::fromUtf8(std::strerror(error))),
                QStringLiteral("Some output was lost. The exit status is still valid."),
                Changes::Unknown});
    }
    return static_cast<int>(failure ? failure->status : ExitStatus::Complete);
}
