// What the writers of run-time files share.
#pragma once

#include <QString>
#include <cstdio>
#include <functional>

#include "setuprun/CInstallBase.h"

namespace hx {

// In the order of the table in FileWriter.cpp.
enum class RunTimeFile {
    RunScript,
    SnapshotScript,
    SambaScript,
    SshScript,
    QChemRC,
    QCScratch,
    QueueEntries,
    QueueLimits,
    Count
};

// Writes `file` below m_installDir anew, with its mode whatever the umask, and reports it if it is
// one that is reported. A file that the user may write to is truncated in place, so that its owner
// and its other links survive; any other is removed first. A full disc goes unnoticed. Ends the
// process when the file cannot be removed, opened or given its mode.
void WriteRunTimeFile(CInstallBase& run, RunTimeFile file,
                      const std::function<void(FILE*)>& content);

// A separator, the lines if the run reports on stdout, and a pause.
void Report(CInstallBase& run, const std::function<void()>& lines);

}  // namespace hx
