// What cv_install writes itself, through the library, before the commit script.
#pragma once

#include "ExitStatus.h"
#include "setuprun/CInstallBase.h"

// Makes the install directory and the files of Q-Chem in it, and the submission scripts if they are
// wanted. Returns ExitStatus::Complete; or, told on stderr, ConsoleClosed when the person at the
// terminal left at a pause, and SystemCallFailed when a file was cut short. Other failures end the
// process.
ExitStatus WriteRunTimeFiles(CInstallBase& run, bool submissionScripts);

// For a failure between here and the first line of the commit script.
inline constexpr const char* OnlyRunTimeFilesChanged =
    "Nothing but the Q-Chem files and submission scripts has been changed.";
