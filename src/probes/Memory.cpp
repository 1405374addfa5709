// Reads the physical memory from sysconf or else from /proc/meminfo.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "probes/StoredFile.h"
#include "probes/cpu_memory.h"

namespace {

// Returns the megabytes of a MemTotal line, or -1 if the line has no number. Skips other lines.
std::optional<int> MegabytesOfMemTotal(const char* line) {
    char word[12] = "";
    int consumed = 0;
    long long kilobytes = 0;
    if (std::sscanf(line, "%11s%n", word, &consumed) != 1 || std::strcmp(word, "MemTotal:") != 0)
        return std::nullopt;
    if (std::sscanf(line + consumed, " %lld", &kilobytes) != 1)
        return -1;
    return static_cast<int>(kilobytes >> 10);
}

}  // namespace

int procRAM() {
    const long long pages = sysconf(_SC_PHYS_PAGES);
    const long long pageSize = sysconf(_SC_PAGESIZE);
    if (pages > 0 && pageSize > 0)
        return static_cast<int>((pages * pageSize) >> 20);
    return hx::FirstAnswer("/proc/meminfo", {.unreadable = -1, .none = -1}, MegabytesOfMemTotal);
}
