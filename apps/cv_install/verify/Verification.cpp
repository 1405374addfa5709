#include "verify/Verification.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "installation/ServiceState.h"
#include "installation/SetupLock.h"
#include "installation/TimeLimit.h"
#include "report/JsonReport.h"
#include "verify/InstalledFiles.h"
#include "verify/InstalledMachine.h"
#include "verify/VerifyReport.h"

namespace {

void WarnOfSetup(const RecordedInstallation& installation) {
    const LockState lock = SetupLock::Look(installation.installDir, installation.IsRoots());
    if (!lock.runningSetup.isEmpty()) {
        ReportWarning({ExitStatus::Complete, lock.runningSetup,
                       QStringLiteral("To verify its result, run this again when it has ended.")});
    } else if (IsUnfinished(installation, lock)) {
        ReportWarning({ExitStatus::Complete,
                       QStringLiteral("the previous setup, undo, removal or repair did not run to "
                                      "its end"),
                       QStringLiteral("Run it again.")});
    }
}

Failure ResultOf(const RecordedInstallation& installation, const VerifyResult& result) {
    if (!result.differences.empty()) {
        return Problem{ExitStatus::Differs,
                       QStringLiteral("differences from the setup of \"%1\" at %2: %3")
                           .arg(installation.installDir, installation.manifest.facts.time)
                           .arg(result.differences.size()),
                       QStringLiteral("To restore them, run \"cv_install --repair\"."),
                       Changes::Unknown};
    }
    const auto unexpected = std::ranges::count_if(
        result.unchecked, [](const Unchecked& each) { return !each.isExpected; });
    if (unexpected == 0)
        return {};
    return Problem{ExitStatus::NotVerified,
                   QStringLiteral("cannot check everything in \"%1\"").arg(installation.installDir),
                   QStringLiteral("Fix the cause, then run this again."), Changes::Unknown};
}

Failure Verify(Arguments& arguments) {
    RecordedInstallation installation;
    if (Failure failure = FindInstallation(arguments.argv()[0], installation))
        return failure;
    JsonReport::NoteInstallDirectory(installation.installDir);
    WarnOfSetup(installation);
    VerifyResult result;
    if (Failure failure = FindInstalledDifferences(installation, result))
        return failure;
    PrintResult(installation, result);
    JsonReport::NoteMember("differences", JsonOf(result.differences));
    JsonReport::NoteMember("unchecked", JsonOf(result.unchecked));
    Failure failure = ResultOf(installation, result);
    const bool isVerified = !failure || failure->status == ExitStatus::Differs;
    if (const Failure unrecorded =
            isVerified
                ? RecordVerification(installation, static_cast<int>(result.differences.size()))
                : Failure())
        ReportWarning(*unrecorded);
    return failure;
}

}  // namespace

Failure FindInstalledDifferences(const RecordedInstallation& installation, VerifyResult& result) {
    const Manifest& manifest = installation.manifest;
    if (manifest.entries.empty()) {
        return Problem{ExitStatus::NotVerified,
                       QStringLiteral("the record of \"%1\" does not list what was installed")
                           .arg(installation.installDir),
                       QStringLiteral("Run the setup again."), Changes::Unknown};
    }
    {
        const TimeLimit limit;
        if (Failure failure = CompareFiles(installation, result))
            return failure;
        if (manifest.account)
            CompareAccount(*manifest.account, result);
        CompareCommands(manifest.commands, result);
    }
    if (HasService(manifest))
        CompareService(ServiceProperties(), result);
    CompareProduct(manifest, result);
    return {};
}

ExitStatus RunVerification(Arguments& arguments) {
    Failure failure = Verify(arguments);
    if (!failure)
        return ExitStatus::Complete;
    if (failure->status != ExitStatus::Differs)
        failure->status = ExitStatus::NotVerified;
    failure->changes = Changes::Unknown;
    Report(*failure);
    return failure->status;
}
