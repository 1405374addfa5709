#include "apply/RunTimeFiles.h"

#include <sys/stat.h>

#include <algorithm>

#include "installation/ContentCheck.h"
#include "installation/SetupRun.h"

namespace {

struct Writer {
    Item item;
    int (CInstallBase::*write)();
};

constexpr Writer writers[] = {
    {Item::QChemLimits, &CInstallBase::WriteQChemRC},
    {Item::QChemScratch, &CInstallBase::WriteQCScratch},
    {Item::SambaScript, &CInstallBase::WriteCorvaneSamba},
    {Item::SshScript, &CInstallBase::WriteCorvaneSsh},
};

// The commit script sets the mode of the shared directory only when it creates it. Setting it here
// keeps an interrupted setup from leaving another mode.
void CreateSharedDirectory(const CInstallBase& run) {
    const QByteArray path = run.m_installDir.toUtf8();
    const mode_t mode = Find(Item::InstallDirectory).rootMode;
    // CreateInstallDirectory reports a failure. chmod, because mkdir's mode is subject to the
    // umask.
    if (mkdir(path.constData(), mode) == 0)
        (void)chmod(path.constData(), mode);
}

}  // namespace

Failure WriteRunTimeFiles(CInstallBase& run, unsigned conditions) {
    if (IsRootSetup(run))
        CreateSharedDirectory(run);
    run.CreateInstallDirectory();
    for (const Writer& writer : writers) {
        const Entry& entry = Find(writer.item);
        if (!Applies(entry, conditions))
            continue;
        (run.*writer.write)();
        if (Failure failure = CheckContent(run, entry)) {
            failure->status = ExitStatus::SystemCallFailed;
            failure->changes = Changes::RunTimeFiles;
            return failure;
        }
    }
    return {};
}

bool IsRunTimeFile(const Entry& entry) {
    return std::any_of(std::begin(writers), std::end(writers),
                       [&entry](const Writer& writer) { return writer.item == entry.item; });
}
