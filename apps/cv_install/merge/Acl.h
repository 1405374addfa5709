// Access control lists that new files and directories inherit from their directory.
#pragma once

#include <sys/types.h>

#include <string>

// Removes the lists of a new file or directory when root owns it, because only its mode and owner
// then give access, and otherwise when one lets a named user or group write. Whatever else the
// administrator chose for new files stays, and so do all lists of a regular user's own entries.
// Returns false with errno set on failure.
bool LimitAcl(int descriptor, uid_t owner);

// True when LimitAcl would change nothing. The descriptor may have been opened with O_PATH.
bool HasLimitedAcl(int descriptor, uid_t owner);

// Gives the directory `copy` the list that new entries of a directory inherit. Leaves out named
// users and groups, which a user namespace cannot map: they do not change the modes of new entries.
// The descriptor may have been opened with O_PATH. Returns false with errno set on failure.
bool CopyDefaultAcl(int descriptor, const std::string& copy);
