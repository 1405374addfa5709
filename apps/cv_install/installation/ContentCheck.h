// Checks the content of files that a setup wrote. The library and the commit script do not detect
// write errors, so that a full disk truncates files silently.
#pragma once

#include "Problem.h"
#include "installation/Installation.h"
#include "setuprun/CInstallBase.h"

// Checks an entry that this setup wrote, as its row in the installation table says. The status of a
// failure is Incomplete.
Failure CheckContent(const CInstallBase& run, const Entry& entry);

// Whether this setup wrote the pages, which decides the remedy.
enum class Written { Now, Before };

// Checks a directory of web pages below the install directory `tree`. Edited pages pass; missing
// and truncated ones do not. Follows no links in the tree. The status of a failure is Incomplete.
Failure CheckPages(const CInstallBase& run, const Entry& entry, int tree, Written written);
