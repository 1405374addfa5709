// The setup run with the command line applied.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "answers/Arguments.h"
#include "setuprun/CInstallBase.h"

// Constructs the setup run, which measures the machine and reads the answers of the last setup.
std::unique_ptr<CInstallBase> StartRun(Arguments& arguments);

// The conditions of rows of the installation table that hold in this setup.
unsigned ConditionsOf(const CInstallBase& run, const Arguments& arguments);

// The answers in use, with a label for each.
std::vector<std::pair<QString, QString>> ValuesOf(const CInstallBase& run);
