// Looks for pages of the compute service that are not as the product has them.
#pragma once

#include <QLatin1String>
#include <vector>

#include "setuprun/CInstallBase.h"

// Names of directories of pages, "resources" and "icons".
using PageDirectories = std::vector<QLatin1String>;

// Those that are not there. The commit script unpacks them, and leaves others as they are.
PageDirectories FindMissingPages(const CInstallBase& run);

// Each of the two returns the first page that is missing or cut short, with the remedy, or nothing.
// Edited pages are nobody's fault.

// In the directories that this setup has unpacked: there was no space, mostly.
QString FindIncompletePage(const CInstallBase& run, const PageDirectories& unpacked);

// In the others: a setup was stopped when it unpacked them, somebody removed the page, or the
// product has come with a new one.
QString FindOutdatedPage(const CInstallBase& run, const PageDirectories& unpacked);
