// Writes the commit script and starts it, without waiting for it.
#include <cstdio>

#include "commit/CCommitScript.h"
#include "setuprun/CInstallBase.h"

// Kept: the process object ends here, and with it a script that still runs.
void CInstallBase::Commit() {
    QString path;
    WriteCommitScript(path, false);
    std::fflush(stdout);
    CCommitScript script;
    script.Run(path);
}
