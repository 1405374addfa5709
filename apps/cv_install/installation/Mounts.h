// The mounted file systems that the calling process sees.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct Mount {
    int id = 0;
    std::string point;
    std::string type;

    // A user can mount a file system of this kind, and never answer a call on it.
    bool IsFuse() const { return type == "fuseblk" || type == "fuse" || type.starts_with("fuse."); }
};

// Empty when they cannot be read.
std::vector<Mount> ReadMounts();

// The mount that an open file is on, without a call to its file system.
std::optional<int> MountOf(int descriptor);
