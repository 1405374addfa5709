// Shows what a verification found.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "verify/RecordedInstallation.h"
#include "verify/VerifyResult.h"

// One line, such as "/var/corvane: mode: expected 0775, found 0700".
QString LineOf(const FoundDifference& difference);

// Prints one line for each difference and for each entry that could not be checked. Without a
// difference, prints that the installation is as the setup left it.
void PrintResult(const RecordedInstallation& installation, const VerifyResult& result);

// Prints one line for each entry.
void PrintUnchecked(const std::vector<Unchecked>& unchecked);

// Arrays of objects.
nlohmann::ordered_json JsonOf(const std::vector<FoundDifference>& differences);
nlohmann::ordered_json JsonOf(const std::vector<Unchecked>& unchecked);
