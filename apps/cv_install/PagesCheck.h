// Looks for pages of the compute service that were unpacked in part.
#pragma once

#include "setuprun/CInstallBase.h"

// The commit script leaves a directory of pages as it is once it is there, also when the setup that
// unpacked it met a full disc or was killed. Returns the first page of docroot/`name`.tar that is
// missing or cut short, with the remedy, or nothing. Edited pages are nobody's fault.
QString FindTruncatedPage(const CInstallBase& run, const char* name);
