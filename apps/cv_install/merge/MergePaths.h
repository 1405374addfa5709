// Opens live directories for a merge, one component after the other, and refuses those that another
// user could use to make root change something else.
#pragma once

#include "Problem.h"
#include "installation/PathParts.h"
#include "installation/RootPath.h"
#include "installation/TreeOwners.h"

// `reason` continues a sentence that begins with the path.
Problem RefusedInMerge(const std::string& path, const char* reason);

// A system call failed with `error`.
Problem FailedInMerge(const std::string& path, int error);

// Resolves a path outside of the install tree, see ResolveRootPath.
Failure OpenRootParent(const std::string& path, bool followsLast, RootPath& opened);

// Resolves the path of a private copy. It may lead through links and directories of any user.
Failure OpenUserParent(const std::string& path, RootPath& opened);

// Opens a directory of the install tree. No link is followed. Each directory must belong to root or
// the service account and be readable for everyone or for the service group, so that entries in it
// are no secret; one that the installation table gives to root must be root's alone. In a private
// copy, any directory will do. `path` is relative to `tree`, and `installDir` is for messages.
Failure OpenTreeDirectory(int tree, const std::string& installDir, const std::string& path,
                          const TreeOwners& owners, Descriptor& directory);

// Refuses a FUSE file system that is mounted at or below the directory.
Failure FindFuseBelow(const Descriptor& directory);
