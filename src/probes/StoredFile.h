// Reads a /proc file as a list of lines.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>

#include "support/FileHandle.h"
#include "support/storeFile.h"

namespace hx {

struct FreeLines {
    void operator()(char** lines) const { freeStoredFile(lines); }
};
using StoredLines = std::unique_ptr<char*, FreeLines>;

// Returns the lines of `path`, or null if it cannot be read. Compatibility: reports an unreadable
// file on standard output, but a failing fopen on standard error.
inline StoredLines StoreProcFile(const char* path) {
    if (access(path, R_OK) != 0) {
        std::printf("Corvane/install: can't read \"%s\"\n", path);
        return nullptr;
    }
    const FileHandle file(std::fopen(path, "r"));
    if (file == nullptr) {
        std::perror("Corvane/install");
        return nullptr;
    }
    return StoredLines(storeFile(file.get(), 40, 40, 80));
}

struct Fallback {
    int unreadable = 0;  // for a file that cannot be read
    int none = 0;        // for a file without a suitable line
};

// Calls `visit` with each line of `path` until it returns a value. `visit` can modify the line.
template <typename Visit>
int FirstAnswer(const char* path, const Fallback& fallback, Visit visit) {
    const StoredLines lines = StoreProcFile(path);
    if (lines == nullptr)
        return fallback.unreadable;
    for (char** line = lines.get(); *line != nullptr; ++line) {
        if (const std::optional<int> answer = visit(*line))
            return *answer;
    }
    return fallback.none;
}

}  // namespace hx
