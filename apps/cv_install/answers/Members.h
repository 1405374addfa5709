// The members of the service group, exactly as answered. The commit script changes no members,
// because it rewrites all groups of a user who leaves, keeps one who is in no other group, and
// fails for users of a directory service.
#pragma once

#include "installation/MemberChanges.h"
#include "setuprun/CInstallBase.h"

// Sets the present members to those of the service group in use. The library always looks up those
// of the group's default name.
void FindPresentMembers(CInstallBase& run);

// Replaces the answer "none" in the wanted members, and repeated names. Returns who joins and who
// leaves to make the members those of the answer.
MemberChanges FindMemberChanges(CInstallBase& run);

// Keeps the members out of the commit script. The wanted members are lost.
void HideMembersFromScript(CInstallBase& run);
