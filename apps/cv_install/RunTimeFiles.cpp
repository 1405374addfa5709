#include "RunTimeFiles.h"

#include <sys/stat.h>

#include <cstdio>
#include <vector>

#include "Conversation.h"
#include "ResultCheck.h"

namespace {

// The commit script sets the mode of the shared directory only when it creates it. Setting it here
// keeps an interrupted setup from leaving another mode.
void MakeSharedDirectory(const CInstallBase& run) {
    const QByteArray path = run.m_installDir.toUtf8();
    // CreateInstallDirectory reports a failure. chmod, because mkdir's mode is subject to the
    // umask.
    if (mkdir(path.constData(), 0775) == 0)
        (void)chmod(path.constData(), 0775);
}

ExitStatus TellConsoleClosed() {
    std::printf("\n");
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: the console was closed\n    %s\n", OnlyRunTimeFilesChanged);
    return ExitStatus::ConsoleClosed;
}

}  // namespace

ExitStatus WriteRunTimeFiles(CInstallBase& run, bool submissionScripts) {
    if (run.m_accessFlags == CInstallBase::RootAccess)
        MakeSharedDirectory(run);
    run.CreateInstallDirectory();
    std::vector<int (CInstallBase::*)()> writers = {&CInstallBase::WriteQChemRC,
                                                    &CInstallBase::WriteQCScratch};
    if (submissionScripts) {
        writers.push_back(&CInstallBase::WriteCorvaneSamba);
        writers.push_back(&CInstallBase::WriteCorvaneSsh);
    }
    for (const auto writer : writers) {
        (run.*writer)();
        if (PersonLeft(run))
            return TellConsoleClosed();
    }
    const QString problem = FindIncompleteRunTimeFile(run, submissionScripts);
    if (problem.isEmpty())
        return ExitStatus::Complete;
    std::fflush(stdout);
    std::fprintf(stderr, "cv_install: %s\n    %s\n", qUtf8Printable(problem),
                 OnlyRunTimeFilesChanged);
    return ExitStatus::SystemCallFailed;
}
