// cv_install: the console setup of Corvane. Calls the library's setup steps in order.
#include <unistd.h>

#include <cstring>

#include "Console.h"
#include "InPlace.h"
#include "Outcome.h"
#include "OutputFile.h"
#include "Problem.h"
#include "RootSetup.h"
#include "answers/AnswersFile.h"
#include "answers/Arguments.h"
#include "answers/Usage.h"
#include "apply/Interruption.h"
#include "apply/ProcessState.h"
#include "apply/SetupLog.h"
#include "installation/SetupLock.h"
#include "installation/TreeCheck.h"
#include "repair/RepairSetup.h"
#include "report/JsonReport.h"
#include "undo/RemoveSetup.h"
#include "undo/UndoSetup.h"
#include "verify/StatusReport.h"
#include "verify/Verification.h"

namespace {

// Returns the exit status; failures have been reported.
ExitStatus RunSetup(Arguments& arguments) {
    const bool isRoot = getuid() == 0;
    Interruption::EndsSetup(Changes::None);
    QString installDir;
    SetupLock lock;
    if (arguments.UsesStream(OwnOption::SaveAnswers))
        ReserveStandardOutput();
    Answers file;
    Failure failure = ReadAnswersFile(arguments.TextOf(OwnOption::Answers), file);
    if (!failure)
        failure = FindInstallDirectory(arguments.argv()[0], installDir);
    if (!failure) {
        JsonReport::NoteInstallDirectory(installDir);
        failure = lock.Take(installDir, std::chrono::seconds(arguments.NumberOf(OwnOption::Wait)),
                            arguments.Has(OwnOption::DryRun) ? SetupLock::Purpose::DryRun
                                                             : SetupLock::Purpose::Setup);
    }
    if (!failure && arguments.Has(OwnOption::Repair)) {
        Outcome::NoteAction("repair");
        return Repair(arguments, lock);
    }
    if (!failure && arguments.Has(OwnOption::Undo)) {
        Outcome::NoteAction("undo");
        return UndoSetup(arguments, installDir, lock);
    }
    if (!failure && arguments.Has(OwnOption::Remove)) {
        Outcome::NoteAction("removal");
        return RemoveSetup(arguments, installDir, lock);
    }
    if (!failure && isRoot)
        return RunAsRoot(arguments, file, lock);
    if (!failure)
        failure = RestoreAfterUnfinished(arguments, installDir, Unfinished::All);
    if (!failure)
        failure = CheckBeforeStart(installDir);
    if (!failure)
        failure = RunInPlace(arguments, file, lock);
    if (!failure)
        return ExitStatus::Complete;
    Report(*failure);
    return failure->status;
}

// True for a run that changes nothing and has no log. Known before the other arguments are.
bool HasNoLog(char** argv) {
    for (; *argv != nullptr; ++argv) {
        for (const char* option : {"--dry-run", "--verify", "--status"}) {
            if (std::strcmp(*argv, option) == 0)
                return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    PrepareProcess();
    JsonReport::Start(JsonReport::RequestIn(argc, argv));
    Console::Start();
    Outcome::Begin(argc, argv);
    if (!HasNoLog(argv))
        SetupLog::WriteOutcomeAtExit();
    Arguments arguments(argc, argv);
    if (arguments.Has(OwnOption::Verbose))
        Console::SetLevel(Console::Level::Verbose);
    else if (arguments.Has(OwnOption::Quiet))
        Console::SetLevel(Console::Level::Quiet);
    ExitStatus status = ExitStatus::Complete;
    if (arguments.Has(OwnOption::Help))
        PrintHelp();
    else if (arguments.Has(OwnOption::Version))
        PrintVersion();
    else if (arguments.Has(OwnOption::Verify))
        status = RunVerification(arguments);
    else if (arguments.Has(OwnOption::Status))
        status = RunStatus(arguments);
    else
        status = RunSetup(arguments);
    Interruption::ReportLateSignal();
    if (const int error = Console::OutputError()) {
        Report({ExitStatus::Complete,
                QStringLiteral("cannot write to standard output: %1")
                    .arg(QString::fromUtf8(std::strerror(error))),
                QStringLiteral("Some output was lost. The exit status is still valid."),
                Changes::Unknown});
    }
    return static_cast<int>(status);
}
