// The files that cv_install writes itself, through the library, before the commit script.
#pragma once

#include "Problem.h"
#include "installation/Installation.h"
#include "setuprun/CInstallBase.h"

// Creates the install directory and the Q-Chem files in it, and the submission scripts if
// `conditions` include them. Fails when a file is truncated; the library ends the process on other
// failures.
Failure WriteRunTimeFiles(CInstallBase& run, unsigned conditions);

// True for a file that WriteRunTimeFiles writes and checks.
bool IsRunTimeFile(const Entry& entry);
