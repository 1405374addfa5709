// What a setup by root is about to do, on one screen.
#pragma once

#include "setuprun/CInstallBase.h"

// Writes the plan to stdout: account, members, directories, links, services and the script's path.
void ShowPlan(CInstallBase& run, const QString& scriptPath);

// Asks on the console whether to go on; only a yes is one.
bool ConfirmPlan();
