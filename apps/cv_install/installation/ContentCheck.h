// Checks the content of files that a setup wrote. The library and the commit script do not detect
// write errors, so that a full disk truncates files silently.
#pragma once

#include "Problem.h"
#include "installation/Installation.h"
#include "setuprun/CInstallBase.h"

// Checks an entry that this setup wrote, as its row in the installation table says; PackedPages
// checks web pages. The status of a failure is Incomplete.
Failure CheckContent(const CInstallBase& run, const Entry& entry);
