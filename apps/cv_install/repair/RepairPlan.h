// What a repair changes: the differences that a verification found and that are the setup's.
#pragma once

#include <map>
#include <vector>

#include "Problem.h"
#include "installation/Difference.h"
#include "verify/RecordedInstallation.h"
#include "verify/VerifyResult.h"

// A difference that stays, and why.
struct LeftDifference {
    FoundDifference difference;
    QString reason;
};

struct RepairPlan {
    // Paths have no links above them. Those of the record, which is not merged, are among them.
    Differences differences;
    std::vector<LeftDifference> left;
    // What was found at each path.
    std::map<std::string, std::vector<FoundDifference>> found;

    // True if a file must be created again, which requires staging.
    bool NeedsContent() const;

    // Removes a path, which stays as it is.
    void Leave(const std::string& path, const QString& reason);
};

// The absolute path of the install directory, without links.
std::string TreeOf(const Manifest& manifest);

// True for a file or directory of the record.
bool IsInRecord(const PathDifference& difference);

// Plans from what the manifest lists and the verification found. `alwaysRestart`: whether the
// service runs with what is on the machine is unknown. Fails if accounts cannot be read.
Failure FindRepair(const RecordedInstallation& installation, const VerifyResult& result,
                   bool alwaysRestart, RepairPlan& plan);

// The text of QueueLimits with other values for some keys. A missing line is added at the end. All
// other lines stay as they are.
QByteArray WithLimits(const QByteArray& text,
                      const std::vector<std::pair<const char*, QString>>& limits);
