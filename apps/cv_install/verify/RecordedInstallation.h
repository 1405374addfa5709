// The installation that --verify and --status are about, as its record describes it.
#pragma once

#include <memory>

#include "installation/SetupLock.h"
#include "record/Manifest.h"
#include "record/RecordDirectory.h"

// When an installation was last verified, and what was found.
struct LastVerification {
    QString time;  // UTC, such as 2026-11-22T14:05:09Z
    int differences = 0;
};

struct RecordedInstallation {
    QString installDir;
    std::unique_ptr<RecordDirectory> record;  // open
    Manifest manifest;
    std::optional<LastVerification> lastVerification;

    bool IsRoots() const { return manifest.account.has_value(); }
};

// For root, the installation for all users; for another user, the private copy of this product
// directory if it is recorded, and otherwise that for all users. Takes no lock and changes nothing.
// Fails with RecordUnusable if there is no record, or a damaged one. `argv0` is that of the
// process.
Failure FindInstallation(const char* argv0, RecordedInstallation& installation);

// The same, but only the one that this user set up.
Failure FindOwnInstallation(const char* argv0, RecordedInstallation& installation);

// True if the last setup, undo, removal or repair did not run to its end. For an installation of
// another user, only `lock` is known.
bool IsUnfinished(const RecordedInstallation& installation, const LockState& lock);

// What a user's setup left in the record, which is outside the directory that the manifest is
// about. Paths are relative to the directory of records. The group is that found: the user can
// belong to several.
std::vector<ManifestEntry> EntriesOfUserRecord(const RecordedInstallation& installation);

// Records a verification, unless the record is another user's.
Failure RecordVerification(const RecordedInstallation& installation, int differences);
