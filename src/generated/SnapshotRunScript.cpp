// Writes the run script corvane26_snapshot, for callers without a commit script. The commit script
// creates it from a template.
#include <cstdio>

#include "generated/FileWriter.h"
#include "generated/RunScriptParts.h"
#include "setuprun/CInstallBase.h"

namespace {

// Compatibility: no dots, and one line with a second space, as in released versions.
constexpr hx::RunTimeFile snapshotScript = {"/corvane26_snapshot", 0755, hx::scriptFailures,
                                            "Corvane snapshot  script created",
                                            "Corvane snapshot script updated"};

}  // namespace

int CInstallBase::WriteCorvaneSnapshot() {
    hx::WriteRunTimeFile(*this, snapshotScript, [this](FILE* script) {
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
