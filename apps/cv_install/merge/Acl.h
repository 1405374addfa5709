// Access control lists that new files and directories inherit from their directory.
#pragma once

#include <sys/types.h>

// Removes the lists of a new file or directory when root owns it, because only its mode and owner
// then give access, and otherwise when one lets a named user or group write. Whatever else the
// administrator chose for new files stays. Returns false with errno set on failure.
bool LimitAcl(int descriptor, uid_t owner);

// True when LimitAcl would change nothing. The descriptor may have been opened with O_PATH.
bool HasLimitedAcl(int descriptor, uid_t owner);
