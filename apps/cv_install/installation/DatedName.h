// Renames that replace nothing, and names for what a setup replaces but keeps.
#pragma once

#include <string>

// True if errno is that of a renameat2 whose flags the file system does not have.
bool CannotRenameWithFlags();

// Moves an entry to a name that is free. Returns 0 or an error number, EEXIST if it is not free.
int MoveToFreeName(int fromDirectory, const std::string& from, int toDirectory,
                   const std::string& to);

// Moves an entry to `name` with the present time, such as "icons.20261122-140509". Returns the new
// name; empty with errno set on a failure.
std::string MoveToDatedName(int fromDirectory, const std::string& from, int toDirectory,
                            const std::string& name);

// Warns that `name` was replaced, and that its former content is now at `path`.
void WarnOfDatedName(const std::string& name, const std::string& path);
