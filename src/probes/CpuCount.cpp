// Counts configured processors and, from /proc/cpuinfo, processor cores.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "probes/StoredFile.h"
#include "probes/cpu_memory.h"

namespace {

struct CpuRecord {
    int processor;
    int physicalId;
    int coreId;
    int cpuCores;
};

// Reads the number from a line "key : number", truncated to 32 bits. Returns false for other lines.
// Only spaces and tabs are allowed between the key and the colon.
bool ReadNumberForKey(const char* line, const char* key, int& number) {
    const size_t length = std::strlen(key);
    if (std::strncmp(line, key, length) != 0)
        return false;
    const char* rest = line + length;
    rest += std::strspn(rest, " \t");
    if (*rest != ':')
        return false;
    number = static_cast<int>(std::strtol(rest + 1, nullptr, 10));
    return true;
}

// The processor stanzas of /proc/cpuinfo, in file order.
class CpuTable {
public:
    void TakeLine(const char* line) {
        int number = 0;
        if (ReadNumberForKey(line, "processor", number))
            Open(number);
        else if (m_current == nullptr)
            return;
        else if (ReadNumberForKey(line, "physical id", number))
            m_current->physicalId = number;
        else if (ReadNumberForKey(line, "core id", number))
            m_current->coreId = number;
        else if (ReadNumberForKey(line, "cpu cores", number))
            m_current->cpuCores = number;
    }

    // Counts each package once, by its first stanza with a positive number of cores.
    int CountCores() {
        unsigned int sum = 0;
        for (size_t i = 0; i < m_used; ++i) {
            const CpuRecord& record = *m_records[i];
            if (record.physicalId != -1 && record.cpuCores > 0)
                DropRestOfPackage(i);
            sum += static_cast<unsigned int>(record.cpuCores);
        }
        return static_cast<int>(sum);
    }

private:
    void DropRestOfPackage(size_t first) {
        for (size_t i = first + 1; i < m_used; ++i) {
            if (m_records[i]->physicalId == m_records[first]->physicalId)
                m_records[i]->cpuCores = 0;
        }
    }

    // Compatibility: records are not freed. Without memory or a free slot, no record is current,
    // so the other lines of the stanza are ignored.
    void Open(int processor) {
        m_current = nullptr;
        if (m_used == m_records.size())
            return;
        m_current = static_cast<CpuRecord*>(std::malloc(sizeof(CpuRecord)));
        if (m_current == nullptr)
            return;
        *m_current = {processor, -1, -1, 1};
        m_records[m_used++] = m_current;
    }

    std::array<CpuRecord*, 1024> m_records = {};
    size_t m_used = 0;
    CpuRecord* m_current = nullptr;
};

}  // namespace

int hx_cpu_logical_count(unsigned int* count, int verbose) {
    if (count == nullptr)
        return -1;
    const int processors = static_cast<int>(sysconf(_SC_NPROCESSORS_CONF));
    if (verbose != 0)
        std::fprintf(stderr, "  system reports %d processors\n", processors);
    *count = static_cast<unsigned int>(processors);
    return 0;
}

int hx_cpu_count(unsigned int* count, int verbose) {
    if (count == nullptr)
        return -1;
    unsigned int configured = 0;
    hx_cpu_logical_count(&configured, verbose);
    const int logical = static_cast<int>(configured);
    // Compatibility: repeats the line that hx_cpu_logical_count printed.
    if (verbose != 0)
        std::fprintf(stderr, "  system reports %d processors\n", logical);
    *count = 0;
    const hx::FileHandle file(std::fopen("/proc/cpuinfo", "r"));
    if (file == nullptr) {
        std::fprintf(stderr, "  Error, can't open /proc/cpuinfo to read.\n");
        return -1;
    }
    CpuTable table;
    char line[1024];
    while (std::fgets(line, sizeof line, file.get()) != nullptr)
        table.TakeLine(line);
    const int found = table.CountCores();
    if (verbose != 0)
        std::fprintf(stderr, "  found %d cores in \"/proc/cpuinfo\"\n", found);
    const bool trusted = found != 0 && logical >= found;
    *count = static_cast<unsigned int>(trusted ? found : logical);
    return 0;
}

int procNCPU() {
    const int configured = static_cast<int>(sysconf(_SC_NPROCESSORS_CONF));
    if (configured > 0)
        return configured;
    // Compatibility: returns at most 1, no matter how many processors the file lists.
    return hx::FirstAnswer("/proc/cpuinfo", {.unreadable = 1, .none = 0},
                           [](const char* line) -> std::optional<int> {
                               char word[12] = "";
                               std::sscanf(line, "%11s", word);
                               if (std::strcmp(word, "processor") == 0)
                                   return 1;
                               return std::nullopt;
                           });
}
