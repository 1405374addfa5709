// Looks at a scratch directory before jobs find out.
#pragma once

#include "setuprun/CInstallBase.h"

// A warning that names the directory and what will fail, or nothing when the directory will do.
QString FindScratchProblem(const QString& directory);
