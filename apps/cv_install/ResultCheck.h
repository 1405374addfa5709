// Looks for what a setup that seemed to go well has left unfinished.
#pragma once

#include "PagesCheck.h"
#include "setuprun/CInstallBase.h"

// The library and the commit script take some writes on trust, which a full disc then cuts short.
// Each returns what is incomplete, with the remedy, or nothing.

// After the writers that cv_install calls.
QString FindIncompleteRunTimeFile(const CInstallBase& run, bool submissionScripts);

// After a commit script that ended well: the queue's limits, the pages that it has unpacked, the
// service's unit.
QString FindIncompleteResult(const CInstallBase& run, const PageDirectories& pages);
