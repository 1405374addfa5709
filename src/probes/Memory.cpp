// Physical memory, from sysconf or else from /proc/meminfo.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "probes/StoredFile.h"
#include "probes/cpu_memory.h"

int procRAM() {
    const long long pages = sysconf(_SC_PHYS_PAGES);
    const long long pageSize = sysconf(_SC_PAGESIZE);
    if (pages > 0 && pageSize > 0)
        return static_cast<int>((pages * pageSize) >> 20);
    const hx::StoredLines lines = hx::StoreProcFile("/proc/meminfo");
    if (lines == nullptr)
        return -1;
    for (char** line = lines.get(); *line != nullptr; ++line) {
        char word[12] = "";
        int consumed = 0;
        long long kilobytes = 0;
        if (std::sscanf(*line, "%11s%n", word, &consumed) != 1 ||
            std::strcmp(word, "MemTotal:") != 0)
            continue;
        if (std::sscanf(*line + consumed, " %lld", &kilobytes) != 1)
            return -1;
        return static_cast<int>(kilobytes >> 10);
    }
    return -1;
}
