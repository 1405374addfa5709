// Paths that only root can change.
#pragma once

#include <optional>
#include <string>

#include "installation/State.h"

// The directory that contains the last component of a path, opened, and that component.
struct RootPath {
    Descriptor parent;
    std::string name;
};

// Why a path cannot be resolved.
struct Unresolved {
    enum class Reason { OthersCanWrite, LinkOfOther, SystemError };

    Reason reason = Reason::SystemError;
    std::string directory;  // the one that others can write to
    int error = 0;
};

// True for a directory that only root can write to.
bool IsRootsAlone(const State& state);

// Resolves an absolute path, one component after the other. Every directory must be one that only
// root can write to; links in them, which are root's, are followed. With `followsLast`, so is the
// last component if it is a link. That component need not exist.
std::optional<Unresolved> ResolveRootPath(const std::string& path, bool followsLast,
                                          RootPath& resolved);
