#include "RunTimeFiles.h"

#include <sys/stat.h>

#include <cstdio>
#include <vector>

#include "Conversation.h"
#include "ResultCheck.h"

namespace {

// The commit script gives the mode of the shared tree only to directories that it makes itself, so
// this one gets it here, at once: a setup that is stopped must not leave another mode behind.
void MakeSharedDirectory(const CInstallBase& run) {
    const mode_t former = umask(0);
    // A failure is told by CreateInstallDirectory, which then makes what is missing.
    (void)mkdir(run.m_installDir.toUtf8().constData(), 0775);
    umask(former);
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
