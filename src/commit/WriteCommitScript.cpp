// Writes the commit script, which does everything that touches the machine. Which sections stand in
// it is decided here; what depends on the machine's present state, the script tests itself.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commit/CommitSections.h"
#include "setuprun/CInstallBase.h"
#include "support/FileHandle.h"

namespace {

// Opens a new file under /tmp, mode 0600; null, with the reason on stderr, when that fails.
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
        // Kept: an empty line behind the first link only.
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
