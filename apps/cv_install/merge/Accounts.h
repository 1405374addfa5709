// The accounts that the commit script created or changed in staging, repeated on the live machine.
#pragma once

#include "Problem.h"
#include "installation/Difference.h"
#include "merge/Undo.h"

// Compares passwd and group in `stagedEtc`, the upper layer of /etc, with the live files. Adds to
// `accounts` and `members`.
Failure FindAccountDifferences(int stagedEtc, Differences& differences);

// Creates the accounts with the same numbers and changes the members, by groupadd, useradd and
// gpasswd.
Failure ApplyAccounts(const Differences& differences, Undo& undo);
