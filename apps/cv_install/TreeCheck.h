// Looks for traps in the install tree before root writes through it.
#pragma once

#include "setuprun/CInstallBase.h"

// Members of the service group may write to the shared tree, and the commit script follows what it
// finds there. Returns what must not be followed, with the remedy, or nothing: a link, other than
// one of root's that is the tree itself, something other than a plain file or directory where the
// script writes one, or a file with a second name that it writes or gives away.
QString FindTrapInTree(const QString& installDir);

// Checks that no other user can replace a file of root's in /tmp, where the commit script is
// written. Returns the problem with its remedy, or an empty string.
QString FindUnsafeTemporaryDirectory();

// Checks the file that the setup run's constructor reads to its end. Returns the problem with its
// remedy when QueueLimits is not a regular file or is larger than 64 KB.
QString FindUnreadableQueueLimits(const QString& installDir);

// What makes a user's setup fail in the midst, with the remedy, or nothing: a product folder that
// cannot take a private copy, or run scripts of another owner, whose mode that user cannot change.
QString FindObstacleForUser(const CInstallBase& run);
