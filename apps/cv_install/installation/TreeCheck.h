// Checks what a setup is about to read and write before it does. Members of the service group can
// write to the shared install tree, and the commit script follows what it finds there.
#pragma once

#include "Problem.h"
#include "installation/State.h"
#include "setuprun/CInstallBase.h"

// What to do about an entry that a setup refuses.
inline constexpr const char* inspectAndRemove = "Inspect it, remove it, then run the setup again.";

// The size of the largest QueueLimits that a setup reads, in bytes.
inline constexpr off_t largestLimits = 65536;

// Sets `installDir` to the install directory that the setup run's constructor will choose, by its
// rule. Fails without a working directory.
Failure FindInstallDirectory(const char* argv0, QString& installDir);

// What must be safe before the setup run is constructed, because its constructor reads QueueLimits:
// a regular file of at most 64 KB; for root also everything that FindUnsafePath checks, and a /tmp
// in which no other user can replace the commit script.
Failure CheckBeforeStart(const QString& installDir);

// Checks the tree that root writes to. Refuses symbolic links, except one of root's in place of the
// install directory; anything but regular files and directories where the script writes; files with
// more than one hard link that the script writes or gives to the service account; and a repository
// link whose target the script would pass to ln as an option. The problem's changes are `changes`.
Failure FindUnsafePath(const QString& installDir, Changes changes);

// Finds what makes a user's setup stop half-way: a product directory that cannot take a private
// copy, or run scripts of another owner, whose mode that user cannot change.
Failure FindObstacleForUser(const CInstallBase& run);

// Opens the install directory of a setup as root; leaves `tree` invalid when it does not exist. It
// may be a link of root's. Refuses it when another user could replace it, or when something other
// than a directory is there.
Failure OpenInstallDirectory(Descriptor& tree);

// The same for root. For a regular user, opens the private copy, if it exists.
Failure OpenInstallDirectory(const QString& installDir, Descriptor& tree);

// Refuses a staged setup from a product directory or a working directory below the install
// directory, which is not visible to it.
Failure CheckPlaces(const QString& binariesDir, const QString& installDir);

// Refuses a setup as root in place when another user could interfere: the service group has
// members, the service account has processes, or something in the tree belongs to or can be written
// to by anyone but root and that account.
Failure FindRiskInPlace(const CInstallBase& run);
