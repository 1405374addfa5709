// Files that stand in memory: what is fuzzed opens them by their path, with fopen or access.
#pragma once

#include <string>

namespace hx_fuzz {

// Stands at `path` while it lives. One thread; one object for a path at a time.
class MemoryFile {
public:
    MemoryFile(const char* path, std::string content);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    // The content that was written by fopen(path, "w") and fclose, or else the first one.
    std::string Content() const;

private:
    friend struct MemoryFiles;

    std::string m_path;
    std::string m_content;
    char* m_written = nullptr;  // of open_memstream
    size_t m_size = 0;
};

}  // namespace hx_fuzz
