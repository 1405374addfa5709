// Parts of a path.
#pragma once

#include <string>

// The part of a path before its last slash; empty without one.
inline std::string ParentOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// The last component of a path.
inline std::string BaseNameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

inline bool IsBelow(const std::string& path, const std::string& directory) {
    return path.starts_with(directory + '/');
}
