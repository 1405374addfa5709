// Files below /proc: each reader reads the input as its file, and returns a value in range.
#include <dlfcn.h>
#include <sanitizer/allocator_interface.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/Expect.h"
#include "fuzz/MemoryFile.h"
#include "probes/cpu_memory.h"
#include "probes/processor_identity.h"

namespace {

constexpr long Unknown = -1;
constexpr unsigned Processors = 8;

long answer = Unknown;  // returned by sysconf for the names that the readers use

// Frees the records that the core count keeps by design, which would hide other leaks.
class KeptRecords {
public:
    KeptRecords() { Watched() = this; }
    ~KeptRecords() {
        Watched() = nullptr;
        for (void* record : m_records)
            std::free(record);
    }
    KeptRecords(const KeptRecords&) = delete;
    KeptRecords& operator=(const KeptRecords&) = delete;

    static void Allocated(const volatile void* memory, size_t size) {
        constexpr size_t recordSize = 16;
        KeptRecords* watched = Watched();
        if (watched == nullptr || size != recordSize)
            return;
        Watched() = nullptr;
        watched->m_records.push_back(const_cast<void*>(memory));
        Watched() = watched;
    }

    static void Freed(const volatile void* memory) {
        if (Watched() != nullptr)
            std::erase(Watched()->m_records, const_cast<void*>(memory));
    }

private:
    static KeptRecords*& Watched() {
        static KeptRecords* watched = nullptr;
        return watched;
    }

    std::vector<void*> m_records;
};

unsigned CountCores(int verbose) {
    const KeptRecords kept;
    unsigned count = 0;
    HX_EXPECT(hx_cpu_count(&count, verbose) == 0);
    return count;
}

void ExpectIdentityInRange() {
    const int vendor = procCPU();
    HX_EXPECT(vendor >= 0 && vendor <= 5);
    HX_EXPECT(procCPUModel(1) >= 0 && procCPUModel(1) <= 6);
    HX_EXPECT(procCPUModel(2) >= 0 && procCPUModel(2) <= 8);
    HX_EXPECT(procCPUModel(vendor < 3 ? 3 : vendor) == 0);
    HX_EXPECT(procVersion() >= 0 && procVersion() <= 3);
    const int clock = procCPUMhz();
    HX_EXPECT(clock >= -1);
    // Nominal clocks are multiples of 10, or of a third of 100: they end in 33, 66, or 0.
    const int rest = clock % 10;
    HX_EXPECT(clock == -1 || rest == 0 || rest == 3 || rest == 6 || clock > 10000);
    procCacheSize();
}

}  // namespace

extern "C" long sysconf(int name) noexcept {
    if (name == _SC_NPROCESSORS_CONF || name == _SC_PHYS_PAGES)
        return answer;
    static const auto real = reinterpret_cast<long (*)(int)>(dlsym(RTLD_NEXT, "sysconf"));
    return real(name);
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    __sanitizer_install_malloc_and_free_hooks(KeptRecords::Allocated, KeptRecords::Freed);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const std::string content(data, data + size);
    const hx_fuzz::MemoryFile cpuinfo("/proc/cpuinfo", content);
    const hx_fuzz::MemoryFile meminfo("/proc/meminfo", content);
    const hx_fuzz::MemoryFile version("/proc/version", content);
    answer = Processors;
    const unsigned cores = CountCores(1);
    // Negative values in the file can result in a negative sum, which is returned unchanged.
    HX_EXPECT(cores <= Processors || static_cast<int>(cores) < 0);
    answer = Unknown;
    CountCores(0);
    HX_EXPECT(procNCPU() == 0 || procNCPU() == 1);
    procRAM();
    ExpectIdentityInRange();
    return 0;
}
