// cv_install: the console setup of Corvane. It owns the order; the library owns each step.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "Arguments.h"
#include "Conversation.h"
#include "ExitStatus.h"
#include "PagesCheck.h"
#include "Plan.h"
#include "ProcessState.h"
#include "ResultCheck.h"
#include "RunTimeFiles.h"
#include "ScriptRun.h"
#include "SetupLog.h"
#include "Summary.h"
#include "TreeCheck.h"
#include "Usage.h"
#include "setuprun/CInstallBase.h"

namespace {

void AnswerWithDefaults(CInstallBase& run) {
    run.m_interactive = false;
    // The queue's menu has no default to answer with.
    if (run.m_queueType == CInstallBase::QueueUnset)
        run.m_queueType = CInstallBase::QueueInternal;
}

constexpr const char* NothingChanged = "Nothing has been changed.";

// Tells the problem, and what has been changed; true when there is none.
bool IsUsable(const QString& problem, const char* changed) {
    if (problem.isEmpty())
        return true;
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: %s\n    %s\n", qUtf8Printable(problem), changed);
    return false;
}

// Behind a wait for a person: others had time for a trap, with which the script is of no use.
bool TreeIsStillUsable(const CInstallBase& run, const QString& script, const char* changed) {
    if (run.m_accessFlags != CInstallBase::RootAccess ||
        IsUsable(FindTrapInTree(run.m_installDir), changed))
        return true;
    unlink(script.toUtf8().constData());
    return false;
}

// Root sees what will happen and agrees to it; the script is the plan's other half.
bool PlanIsAgreedTo(CInstallBase& run, const QString& script) {
    if (run.m_accessFlags != CInstallBase::RootAccess)
        return true;
    ShowPlan(run, script);
    if (!run.m_interactive || ConfirmPlan())
        return true;
    unlink(script.toUtf8().constData());
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: not agreed to, nothing has been changed\n");
    return false;
}

ExitStatus ShowResult(const CInstallBase& run, const PageDirectories& pages) {
    const QString problem = FindIncompleteResult(run, pages);
    if (!problem.isEmpty()) {
        std::fprintf(stderr, "cv_install: %s\n", qUtf8Printable(problem));
        return ExitStatus::Incomplete;
    }
    const QString warning = FindOutdatedPage(run, pages);
    if (!warning.isEmpty())
        std::fprintf(stderr, "cv_install: %s\n", qUtf8Printable(warning));
    ShowSummary(run);
    return ExitStatus::Complete;
}

// Everything that changes the machine.
int CarryOut(CInstallBase& run, const QString& script, bool submissionScripts) {
    if (!PlanIsAgreedTo(run, script))
        return static_cast<int>(ExitStatus::Declined);
    if (!TreeIsStillUsable(run, script, NothingChanged))
        return static_cast<int>(ExitStatus::TreeRefused);
    const ExitStatus written = WriteRunTimeFiles(run, submissionScripts);
    if (written != ExitStatus::Complete)
        return static_cast<int>(written);
    if (!TreeIsStillUsable(run, script, OnlyRunTimeFilesChanged))
        return static_cast<int>(ExitStatus::TreeRefused);
    const PageDirectories pages = FindPageDirectories(run);
    const int status = FollowScript(script);
    if (status == static_cast<int>(ExitStatus::Complete))
        return static_cast<int>(ShowResult(run, pages));
    return status;
}

// The directory whose QueueLimits the constructor will read, by the constructor's own rule.
QString FutureInstallDirectory(const char* argv0) {
    const char* shared = "/var/corvane";
    struct stat entry = {};
    if (getuid() == 0 ||
        (stat(shared, &entry) == 0 && S_ISDIR(entry.st_mode) && access(shared, W_OK) == 0))
        return QString::fromUtf8(shared);
    std::array<char, 2048> directory = {};
    CInstallBase::CurrentDirectory(argv0, directory.data(), static_cast<int>(directory.size()));
    return QString::fromUtf8(directory.data());
}

// What must be safe before the setup run is constructed, which reads the tree's QueueLimits.
ExitStatus CheckBeforeStart(const char* argv0) {
    const QString installDir = FutureInstallDirectory(argv0);
    if (getuid() == 0 && !IsUsable(FindTrapInTree(installDir), NothingChanged))
        return ExitStatus::TreeRefused;
    if (!IsUsable(FindUnreadableQueueLimits(installDir), NothingChanged))
        return ExitStatus::TreeRefused;
    if (getuid() == 0 && !IsUsable(FindUnsafeTemporaryDirectory(), NothingChanged))
        return ExitStatus::ScriptNotWritten;
    return ExitStatus::Complete;
}

int RunSetup(Arguments& arguments) {
    const ExitStatus checked = CheckBeforeStart(arguments.argv()[0]);
    if (checked != ExitStatus::Complete)
        return static_cast<int>(checked);
    CInstallBase run(CInstallBase::ParseUserModeArg(arguments.argc(), arguments.argv()),
                     arguments.argc(), arguments.argv());
    // Without a figure one core is assumed: the limits are offered untested, and divided by.
    if (run.m_coreCount < 1)
        run.m_coreCount = 1;
    if (arguments.yes())
        AnswerWithDefaults(run);
    SetupLog::Start(run.m_accessFlags == CInstallBase::RootAccess);
    // Before the questions, whose answers would be lost.
    if (run.m_accessFlags != CInstallBase::RootAccess &&
        !IsUsable(FindObstacleForUser(run), NothingChanged))
        return static_cast<int>(ExitStatus::TreeRefused);
    const ExitStatus prepared = AskQuestions(run);
    if (prepared != ExitStatus::Complete)
        return static_cast<int>(prepared);
    const QString script = WriteScript(run);
    if (script.isEmpty())
        return static_cast<int>(ExitStatus::ScriptNotWritten);
    return CarryOut(run, script, arguments.submissionScripts());
}

int RunAsAsked(Arguments& arguments) {
    if (arguments.help()) {
        PrintHelp();
        return static_cast<int>(ExitStatus::Complete);
    }
    if (arguments.version()) {
        PrintVersion();
        return static_cast<int>(ExitStatus::Complete);
    }
    return RunSetup(arguments);
}

}  // namespace

int main(int argc, char** argv) {
    PrepareProcess();
    Arguments arguments(argc, argv);
    const int status = RunAsAsked(arguments);
    // The status tells how the setup went, also when nobody could read about it.
    if (SetupLog::LostOutput())
        std::fprintf(stderr, "cv_install: stdout cannot be written to, some lines are lost\n");
    return status;
}
