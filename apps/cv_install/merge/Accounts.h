// The accounts that the commit script created or changed in staging, repeated on the live machine.
#pragma once

#include "Problem.h"
#include "installation/Difference.h"
#include "installation/LiveRows.h"
#include "merge/Undo.h"

// Compares passwd and group in `stagedEtc`, the upper layer of /etc, with the records at the start
// of staging, so that later changes of others stay. Adds to `accounts` and `members`, without
// members that the live machine has or lacks already.
Failure FindAccountDifferences(const LiveRows& atStaging, int stagedEtc, Differences& differences);

// Creates the accounts with the same numbers and changes the members, by groupadd, useradd and
// gpasswd.
Failure ApplyAccounts(const Differences& differences, Undo& undo);
