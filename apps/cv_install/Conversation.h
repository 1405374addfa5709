// The questions of a setup, in their order, and what cv_install watches over while they are asked.
#pragma once

#include "ExitStatus.h"
#include "setuprun/CInstallBase.h"

// Asks everything. Returns ExitStatus::Complete when the answers can go into the commit script, and
// otherwise, told on stderr, ValueRefused or ConsoleClosed. Nothing is changed on the machine.
//
// On a terminal a refused answer is asked again, and an unsuitable scratch directory can be taken
// back; without one the first ends the setup, and the second is a warning.
ExitStatus AskQuestions(CInstallBase& run);

// On a terminal the end of the input is the person's wish to stop, not an empty answer.
bool PersonLeft(const CInstallBase& run);
