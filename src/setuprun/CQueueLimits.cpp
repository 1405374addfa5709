#include "setuprun/CQueueLimits.h"

#include <strings.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "setuprun/Environment.h"
#include "setuprun/QueueLimitsKeys.h"
#include "support/FileHandle.h"

namespace {

char* SkipSpaces(char* text) {
    return text + std::strspn(text, " \t");
}

// Returns the text after "key:" and the spaces that follow; null for a line without the key.
char* ValueForKey(const char* key, char* line) {
    const size_t length = std::strlen(key);
    const bool hasKey = strncasecmp(line, key, length) == 0 && line[length] == ':';
    return hasKey ? SkipSpaces(line + length + 1) : nullptr;
}

// Returns the number at the start of `text`, truncated to 32 bits; 0 if it is below 1 or missing.
int PositiveNumber(const char* text) {
    const int number = static_cast<int>(std::strtol(text, nullptr, 10));
    return number < 1 ? 0 : number;
}

// Truncates `text` after its last character that is not a space, a tab, or a newline.
char* TrimEnd(char* text) {
    size_t length = std::strlen(text);
    while (length > 0 && std::strchr(" \t\n", text[length - 1]) != nullptr)
        --length;
    text[length] = '\0';
    return text;
}

template <typename Value>
void Change(Value& field, Value value, bool& dirty) {
    if (field == value)
        return;
    field = std::move(value);
    dirty = true;
}

// Compatibility: an invalid number is stored as 0 and does not leave the default.
void ReadKeyLine(CQueueLimits& limits, char* line) {
    for (const hx::QueueLimitsLine& known : hx::queueLimitsLines) {
        char* value = ValueForKey(known.key, line);
        if (value == nullptr)
            continue;
        if (known.text != nullptr)
            limits.*known.text = TrimEnd(value);
        else
            limits.*known.number = PositiveNumber(value);
    }
}

void ReadLines(CQueueLimits& limits, FILE* file) {
    // Compatibility: each piece of a longer line is read as a line.
    std::array<char, 256> line = {};
    const auto readLine = [&] {
        return std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr;
    };
    if (!readLine())
        return;
    const int bareNumber = PositiveNumber(SkipSpaces(line.data()));
    if (bareNumber > 0) {
        limits.MaxThreads = bareNumber;
        return;
    }
    do {
        ReadKeyLine(limits, SkipSpaces(line.data()));
    } while (readLine());
}

}  // namespace

CQueueLimits::CQueueLimits(const char* directory) {
    if (directory == nullptr)
        directory = std::getenv(hx::settingsVariable);
    if (directory != nullptr)
        m_path = directory;
    m_path += "/QueueLimits";
    const hx::FileHandle file(std::fopen(m_path.c_str(), "r"));
    if (file == nullptr)
        m_path.clear();
    else
        ReadLines(*this, file.get());
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
    for (const hx::QueueLimitsLine& line : hx::queueLimitsLines) {
        if (line.text != nullptr)
            std::fprintf(file.get(), "%s: %s\n", line.key, (this->*line.text).c_str());
        else
            std::fprintf(file.get(), "%s: %d\n", line.key, this->*line.number);
    }
    m_dirty = false;
    return 0;
}

int CQueueLimits::ParseIntForKey(const char* key, char* line) {
    const char* value = ValueForKey(key, line);
    return value == nullptr ? 0 : PositiveNumber(value);
}

std::string CQueueLimits::ParseStringForKey(const char* key, char* line) {
    char* value = ValueForKey(key, line);
    return value == nullptr ? std::string() : TrimEnd(value);
}
