// Writes and starts the commit script, which makes all changes to the machine. This file selects
// the sections; the script itself checks the current state of the machine.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commit/CCommitScript.h"
#include "commit/CommitSections.h"
#include "setuprun/CInstallBase.h"
#include "support/FileHandle.h"

namespace {

// Opens a new file in /tmp with mode 0600. On failure, returns null and prints the cause to stderr.
hx::FileHandle OpenScript(QString& path) {
    char name[80] = "/tmp/corvane26_commit_XXXXXX";
    const int descriptor = mkstemp(name);
    if (descriptor == -1) {
        std::fprintf(stderr, "Writing Commit Script: mkstemp failed, %s\n", std::strerror(errno));
        return nullptr;
    }
    hx::FileHandle script(fdopen(descriptor, "w"));
    if (script == nullptr) {
        close(descriptor);
        std::fprintf(stderr, "Writing Commit Script: fdopen failed\n");
        return nullptr;
    }
    path = QString::fromUtf8(name);
    return script;
}

void WriteSections(FILE* script, CInstallBase& run) {
    const bool root = hx::IsRootRun(run);
    hx::WriteServiceNames(script, run);
    hx::WriteChmodFunction(script);
    hx::WriteToolVariables(script, run);
    hx::WriteStartMessage(script);
    if (root) {
        hx::WriteRootGuard(script);
        const QString joining = run.AddServiceGroupUsers();
        const QString leaving = run.RemoveServiceGroupUsers();
        hx::WriteServiceAccount(script, run);
        hx::WriteGroupMembers(script, joining, leaving);
    }
    hx::WriteDirectories(script, run);
    if (!run.m_clusterNode)
        hx::WriteServerFiles(script);
    hx::WriteRunScriptVariables(script, run);
    hx::WriteRunScript(script, run);
    if (root) {
        hx::WriteCommandLink(script, "corvane26");
        // Compatibility: only the section of the first link ends with an empty line.
        std::fputs("\n", script);
    }
    hx::WriteSnapshotScript(script, run);
    if (root) {
        hx::WriteCommandLink(script, "corvane26_snapshot");
        hx::WriteOwnership(script, run);
    }
    hx::WriteQueueEntries(script, run);
    hx::WriteQueueLimits(script, run);
    if (root && !run.m_clusterNode)
        hx::WriteComputeService(script);
    hx::WriteClosing(script);
}

}  // namespace

bool CInstallBase::WriteCommitScript(QString& path, bool /*reserved*/) {
    path.clear();
    const hx::FileHandle script = OpenScript(path);
    if (script == nullptr)
        return false;
    WriteSections(script.get(), *this);
    return true;
}

// Compatibility: destroys the process object at once, which kills a script that is still running.
void CInstallBase::Commit() {
    QString path;
    WriteCommitScript(path, false);
    std::fflush(stdout);
    CCommitScript script;
    script.Run(path);
}
