// The end of a setup's output.
#pragma once

#include "setuprun/CInstallBase.h"

// Prints the install directory, commands of the scheduler that cannot be executed, in a setup as
// root the state of the service, the log's path, and the next step.
void ShowSummary(const CInstallBase& run);
