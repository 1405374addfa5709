// The plan of a setup as root: what it is about to do, on one screen.
#pragma once

#include <functional>

#include "Problem.h"
#include "answers/Answers.h"
#include "installation/MemberChanges.h"
#include "setuprun/CInstallBase.h"

// Prints the plan: the values in use, account, members, directories, links and services, and the
// path of the commit script if there is one to read. `previous` are the answers of the previous
// setup.
void ShowPlan(const CInstallBase& run, const Answers& previous, unsigned conditions,
              const MemberChanges& members, const QString& scriptPath);

// Asks whether to continue. Only an answer that begins with "y" is a yes. The answer d calls
// `details`, if there are any, and asks again.
bool ConfirmPlan(const std::function<void()>& details = {});

// The problem of a plan that was not confirmed.
Problem PlanDeclined();
