// Files and directories as text, for comparisons.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "harness/TempDir.h"

namespace hx_test {

// Mode with kind, owner, and the content or link text on a second line, by path.
using Snapshot = std::map<std::string, std::string>;

inline std::string Describe(const std::filesystem::path& path) {
    struct stat entry = {};
    lstat(path.c_str(), &entry);
    std::ostringstream text;
    text << std::oct << entry.st_mode << std::dec << ' ' << entry.st_uid << ':' << entry.st_gid;
    if (S_ISLNK(entry.st_mode))
        text << '\n' << std::filesystem::read_symlink(path).string();
    else if (S_ISREG(entry.st_mode))
        text << '\n' << ReadFile(path);
    return text.str();
}

// Returns those of the paths that exist, and everything below them. Paths in the snapshot are
// relative to `base`, to which they are simply appended.
inline Snapshot SnapshotOf(const std::string& base, const std::vector<std::string>& paths) {
    namespace fs = std::filesystem;
    Snapshot snapshot;
    for (const std::string& path : paths) {
        const fs::file_status status = fs::symlink_status(base + path);
        if (!fs::exists(status))
            continue;
        snapshot[path] = Describe(base + path);
        if (!fs::is_directory(status))
            continue;
        for (const auto& entry : fs::recursive_directory_iterator(base + path))
            snapshot[entry.path().string().substr(base.size())] = Describe(entry.path());
    }
    return snapshot;
}

}  // namespace hx_test
