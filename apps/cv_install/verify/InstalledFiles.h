// Compares the directories, files and links of an installation with its manifest.
#pragma once

#include "Problem.h"
#include "verify/RecordedInstallation.h"
#include "verify/VerifyResult.h"

// Below what is gone or of another kind, nothing is reported. Other users may write to the install
// tree: it is read through descriptors, no link is followed, and nothing is waited for. Fails if
// the install directory cannot be opened safely.
Failure CompareFiles(const RecordedInstallation& installation, VerifyResult& result);
