// The accounts that the commit script created in staging, repeated on the live machine, and the
// members of the service group.
#pragma once

#include <grp.h>
#include <pwd.h>

#include <optional>

#include "Problem.h"
#include "installation/Difference.h"
#include "installation/LiveRows.h"
#include "installation/StagedMachine.h"
#include "merge/Undo.h"

// Compares passwd and group in `staged.etc`, the upper layer of /etc, with the records at the start
// of staging, so that later changes of others stay. Adds to `accounts`, and to `members` those of
// `staged` except whom the live machine's /etc/group has or lacks already.
Failure FindAccountDifferences(const LiveRows& atStaging, const StagedMachine& staged,
                               Differences& differences);

// Creates the accounts with the same numbers and changes the members, by groupadd, useradd and
// gpasswd.
Failure ApplyAccounts(const Differences& differences, Undo& undo);

// Restores attributes of users by usermod.
Failure ApplyUserChanges(const std::vector<UserChange>& changes, Undo& undo);

// Changes the members of a group by gpasswd, which keeps the other groups of each user.
Failure ApplyMembers(const std::vector<MemberDifference>& members, Undo& undo);

// The changes of members that /etc/group has not.
Failure FindMemberDifferences(const std::string& group, const MemberChanges& changes,
                              std::vector<MemberDifference>& members);

// Looks an account up in the name service. It is null if it does not exist, and belongs to the C
// library, until the next look. Fails if the databases cannot be read.
Failure FindUser(const std::string& name, const passwd*& user);
Failure FindGroup(const std::string& name, const group*& found);

// The members of a group that /etc/group lists; empty if it does not list the group. Fails if the
// file cannot be read.
Failure ReadLocalMembers(const std::string& group, std::optional<QStringList>& members);

// What became of an account that a setup created. A group may have the members of `joined`. With
// another number, it is another account.
enum class CreatedAccount { Unchanged, Changed, Other, Missing };
Failure FindCreatedAccount(const AccountDifference& account,
                           const std::vector<MemberDifference>& joined, CreatedAccount& found);

// Deletes an account that a setup created, by userdel or groupdel. With `keepsGroup`, the group of
// the user's name stays. Returns why it failed; empty on success.
std::optional<QString> DeleteAccount(const AccountDifference& account, bool keepsGroup);

// Lists the members of a group in this order again, if it has the same ones.
void RestoreOrderOfMembers(const std::string& group, const QStringList& members);
