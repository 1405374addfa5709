// Looks for pages of the compute service that are not as the product has them.
#pragma once

#include <QLatin1String>
#include <vector>

#include "setuprun/CInstallBase.h"

// The directories of pages by name, "resources" and "icons".
struct PageDirectories {
    std::vector<QLatin1String> missing;  // the commit script unpacks them
    std::vector<QLatin1String> kept;     // it leaves them as they are
};

// As they stand before the commit script runs. It does nothing about pages on a cluster node.
PageDirectories FindPageDirectories(const CInstallBase& run);

// Each of the two returns the first page that is missing or cut short, with the remedy, or nothing.
// Edited pages are nobody's fault.

// In the directories that were missing: there was no space, mostly.
QString FindIncompletePage(const CInstallBase& run, const PageDirectories& pages);

// In those that were kept: a setup was stopped when it unpacked them, somebody removed the page, or
// the product has come with a new one.
QString FindOutdatedPage(const CInstallBase& run, const PageDirectories& pages);
