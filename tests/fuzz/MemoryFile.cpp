#include "fuzz/MemoryFile.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace hx_fuzz {

struct MemoryFiles {
    static MemoryFile* Find(const char* path) {
        for (MemoryFile* file : all) {
            if (file->m_path == path)
                return file;
        }
        return nullptr;
    }

    static FILE* Open(MemoryFile& file, const char* mode) {
        if (mode[0] == 'r')
            return fmemopen(file.m_content.data(), file.m_content.size(), mode);
        std::free(file.m_written);
        return open_memstream(&file.m_written, &file.m_size);
    }

    static std::vector<MemoryFile*> all;
};

std::vector<MemoryFile*> MemoryFiles::all;

MemoryFile::MemoryFile(const char* path, std::string content)
    : m_path(path), m_content(std::move(content)) {
    MemoryFiles::all.push_back(this);
}

MemoryFile::~MemoryFile() {
    std::erase(MemoryFiles::all, this);
    std::free(m_written);
}

std::string MemoryFile::Content() const {
    return m_written == nullptr ? m_content : std::string(m_written, m_size);
}

}  // namespace hx_fuzz

using hx_fuzz::MemoryFiles;

// The library calls these functions, because symbols of the program take precedence.
extern "C" FILE* fopen(const char* path, const char* mode) {
    static const auto real = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen"));
    hx_fuzz::MemoryFile* file = MemoryFiles::Find(path);
    return file == nullptr ? real(path, mode) : MemoryFiles::Open(*file, mode);
}

extern "C" int access(const char* path, int mode) noexcept {
    static const auto real =
        reinterpret_cast<int (*)(const char*, int)>(dlsym(RTLD_NEXT, "access"));
    return MemoryFiles::Find(path) == nullptr ? real(path, mode) : 0;
}
