// --verify: compares the machine with what the previous setup left.
#pragma once

#include "answers/Arguments.h"
#include "verify/RecordedInstallation.h"
#include "verify/VerifyResult.h"

// Constructs no setup run and takes no lock. Returns Complete without a difference, Differs, or
// NotVerified; failures have been reported.
ExitStatus RunVerification(Arguments& arguments);

// Compares everything. Fails if that is impossible.
Failure FindInstalledDifferences(const RecordedInstallation& installation, VerifyResult& result);
