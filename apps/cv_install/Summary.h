// What stands at the end of a setup.
#pragma once

#include "setuprun/CInstallBase.h"

// Writes where the installation stands, in a root run the state of its service, the log's path and
// the next step.
void ShowSummary(const CInstallBase& run);
