// Checks the content of files that a setup wrote. The library and the commit script do not detect
// write errors, so that a full disk truncates files silently.
#pragma once

#include "Problem.h"
#include "installation/Installation.h"
#include "setuprun/CInstallBase.h"

// Whether this setup wrote the entry, which decides the remedy.
enum class Written { Now, Before };

// Checks the entry as its row in the installation table says. Edited web pages pass; missing and
// truncated ones do not. The status of a failure is Incomplete.
Failure CheckContent(const CInstallBase& run, const Entry& entry, Written written);
