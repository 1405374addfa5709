// Checks the result of a commit script that reported success.
#pragma once

#include <vector>

#include "Problem.h"
#include "installation/Installation.h"
#include "installation/PackedPages.h"
#include "setuprun/CInstallBase.h"

using EntryList = std::vector<const Entry*>;

// The directories of web pages that exist before the commit script runs, which therefore keeps
// them.
EntryList FindKeptPages(const CInstallBase& run, unsigned conditions);

// Checks the content of what the commit script wrote, and in a setup as root its owner, because the
// script does not detect that chown fails.
Failure CheckResult(const CInstallBase& run, unsigned conditions, const EntryList& keptPages,
                    const PackedPages& packed);

// Warns of missing and truncated pages below the install directory `tree`: an earlier setup was
// interrupted, or the product has new pages.
void WarnOfKeptPages(const CInstallBase& run, int tree, const EntryList& keptPages,
                     const PackedPages& packed);
