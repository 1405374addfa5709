#include "setuprun/CQueueLimits.h"

#include <strings.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "support/FileHandle.h"

namespace {

constexpr const char* Blanks = " \t";

char* SkipBlanks(char* text) {
    return text + std::strspn(text, Blanks);
}

bool HasKey(const char* key, const char* line) {
    const size_t length = std::strlen(key);
    return strncasecmp(line, key, length) == 0 && line[length] == ':';
}

// What stands behind "key:" and the blanks that follow it; null for a line without the key.
char* ValueForKey(const char* key, char* line) {
    return HasKey(key, line) ? SkipBlanks(line + std::strlen(key) + 1) : nullptr;
}

// A number of 1 or more at the start of `text`, cut to 32 bits; otherwise 0.
int PositiveNumber(const char* text) {
    const int number = static_cast<int>(std::strtol(text, nullptr, 10));
    return number < 1 ? 0 : number;
}

template <typename Value>
void Change(Value& field, Value value, bool& dirty) {
    if (field == value)
        return;
    field = std::move(value);
    dirty = true;
}

// Kept: a key with a bad value stores 0, it does not leave the default.
void TakeKeyLine(CQueueLimits& limits, char* line) {
    const std::pair<const char*, int*> numbers[] = {
        {"MaxThreads", &limits.MaxThreads},
        {"MemoryPerThreadMB", &limits.MemoryPerThreadMB},
        {"DiskPerThreadGB", &limits.DiskPerThreadGB},
        {"ThreadsPerMolecule", &limits.ThreadsPerMolecule}};
    for (const auto& [key, field] : numbers) {
        if (HasKey(key, line))
            *field = limits.ParseIntForKey(key, line);
    }
    if (HasKey("Scratch", line))
        limits.Scratch = limits.ParseStringForKey("Scratch", line);
}

void TakeFile(CQueueLimits& limits, FILE* file) {
    // A longer line arrives in pieces, each taken as a line.
    std::array<char, 256> line = {};
    const auto readLine = [&] {
        return std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr;
    };
    if (!readLine())
        return;
    const int bareNumber = PositiveNumber(SkipBlanks(line.data()));
    if (bareNumber > 0) {
        limits.MaxThreads = bareNumber;
        return;
    }
    do {
        TakeKeyLine(limits, SkipBlanks(line.data()));
    } while (readLine());
}

}  // namespace

CQueueLimits::CQueueLimits(const char* directory) {
    if (directory == nullptr)
        directory = std::getenv("CORV_CORVANERC");
    if (directory != nullptr)
        m_path = directory;
    m_path += "/QueueLimits";
    const hx::FileHandle file(std::fopen(m_path.c_str(), "r"));
    if (file == nullptr)
        m_path.clear();
    else
        TakeFile(*this, file.get());
}

CQueueLimits::~CQueueLimits() {
    if (m_dirty)
        writeQueueLimits();
}

void CQueueLimits::SetMaxThreads(int threads) {
    Change(MaxThreads, threads, m_dirty);
}

void CQueueLimits::SetMemoryPerThread(int megabytes) {
    Change(MemoryPerThreadMB, megabytes, m_dirty);
}

void CQueueLimits::SetDiskPerThread(int gigabytes) {
    Change(DiskPerThreadGB, gigabytes, m_dirty);
}

void CQueueLimits::SetThreadsPerMolecule(int threads) {
    Change(ThreadsPerMolecule, threads, m_dirty);
}

void CQueueLimits::SetScratchPath(std::string directory) {
    Change(Scratch, std::move(directory), m_dirty);
}

bool CQueueLimits::accessQueueLimits() {
    return !m_path.empty() && access(m_path.c_str(), W_OK) == 0;
}

int CQueueLimits::writeQueueLimits() {
    if (m_path.empty())
        return -1;
    const hx::FileHandle file(std::fopen(m_path.c_str(), "w"));
    if (file == nullptr)
        return errno;
    std::fprintf(file.get(),
                 R"(MaxThreads: %d
MemoryPerThreadMB: %d
Scratch: %s
DiskPerThreadGB: %d
ThreadsPerMolecule: %d
)",
                 MaxThreads, MemoryPerThreadMB, Scratch.c_str(), DiskPerThreadGB,
                 ThreadsPerMolecule);
    m_dirty = false;
    return 0;
}

int CQueueLimits::ParseIntForKey(const char* key, char* line) {
    const char* value = ValueForKey(key, line);
    return value == nullptr ? 0 : PositiveNumber(value);
}

std::string CQueueLimits::ParseStringForKey(const char* key, char* line) {
    char* value = ValueForKey(key, line);
    if (value == nullptr)
        return {};
    size_t length = std::strlen(value);
    while (length > 0 && std::strchr(" \t\n", value[length - 1]) != nullptr)
        --length;
    value[length] = '\0';
    return value;
}
