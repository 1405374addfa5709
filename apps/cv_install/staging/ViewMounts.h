// The mounts of a private view of the machine.
#pragma once

#include <string>

#include "Problem.h"
#include "installation/State.h"

// Where the view keeps its directories. It exists everywhere, and neither the library nor the
// script needs what is below it.
inline const std::string viewBase = "/sys";

// What takes the place of the install directory.
inline const std::string viewTree = viewBase + "/tree";

// What the view has in place of the install directory: copies of what the library and the script
// look at, or nothing that a setup makes, as before a first setup.
enum class TreeView { Copied, Empty };

// Mounts the tmpfs of the view, in a mount namespace of this process. The functions return false
// with errno set on a failure.
bool MountViewBase();

// Binds what is at `from` over `to`.
bool BindMount(const std::string& from, const std::string& to, unsigned long flags = 0);

// A path that leads to what was opened, for a mount or for access by name.
std::string PathOfOpened(const Descriptor& opened);

Descriptor OpenPath(const std::string& path);

// The failure to make something of the view, with the cause in errno.
Problem StagingFailed(const std::string& path);
