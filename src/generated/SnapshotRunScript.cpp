// Writes the run script corvane26_snapshot directly, for callers without a commit script, which
// makes it from a template.
#include <cstdio>

#include "generated/FileWriter.h"
#include "generated/RunScriptParts.h"
#include "setuprun/CInstallBase.h"

int CInstallBase::WriteCorvaneSnapshot() {
    hx::WriteRunTimeFile(*this, hx::RunTimeFile::SnapshotScript, [this](FILE* script) {
        hx::WriteRunScriptHead(script);
        hx::WriteRootDirectories(script, *this);
        hx::WriteLibraryPath(script, "");
        std::fputs(R"(cvset CORV_SNAPSHOT "${CORV_ROOT}" "${CORV_USER_SNAPSHOT}"

exec "${CORV_SNAPSHOT}/cv_snapshot" "$@"
)",
                   script);
    });
    return 1;
}
