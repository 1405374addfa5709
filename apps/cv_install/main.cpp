// cv_install: the console setup of Corvane. It owns the order; the library owns each step.
#include "Arguments.h"
#include "Conversation.h"
#include "ExitStatus.h"
#include "ScriptRun.h"
#include "Usage.h"
#include "setuprun/CInstallBase.h"

namespace {

void AnswerWithDefaults(CInstallBase& run) {
    run.m_interactive = false;
    // The queue's menu has no default to answer with.
    if (run.m_queueType == CInstallBase::QueueUnset)
        run.m_queueType = CInstallBase::QueueInternal;
}

int RunSetup(Arguments& arguments) {
    CInstallBase run(CInstallBase::ParseUserModeArg(arguments.argc(), arguments.argv()),
                     arguments.argc(), arguments.argv());
    // Without a figure one core is assumed: the limits are offered untested, and divided by.
    if (run.m_coreCount < 1)
        run.m_coreCount = 1;
    if (arguments.yes())
        AnswerWithDefaults(run);
    const ExitStatus status = AskQuestions(run);
    if (status != ExitStatus::Complete)
        return static_cast<int>(status);
    return RunCommitScript(run);
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments(argc, argv);
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
