// Files in memory, for code that opens them by their path with fopen or access.
#pragma once

#include <string>

namespace hx_fuzz {

// The file `path` while the object lives. Not thread-safe; at most one object for each path.
class MemoryFile {
public:
    MemoryFile(const char* path, std::string content);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    // Returns the content written with fopen(path, "w") and fclose, or else the initial one.
    std::string Content() const;

private:
    friend struct MemoryFiles;

    std::string m_path;
    std::string m_content;
    char* m_written = nullptr;  // of open_memstream
    size_t m_size = 0;
};

}  // namespace hx_fuzz
