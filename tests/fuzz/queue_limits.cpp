// QueueLimits files: values are in range, and a written file has the same values.
#include <algorithm>
#include <string>

#include "fuzz/Expect.h"
#include "fuzz/MemoryFile.h"
#include "setuprun/CQueueLimits.h"

namespace {

constexpr const char* Directory = "/fuzzed";
constexpr const char* Path = "/fuzzed/QueueLimits";

// The longest value on a Scratch line, which is read in pieces of 255 bytes.
constexpr size_t LongestScratch = 255 - sizeof "Scratch: " + 1;

bool IsSpaceOrTab(char character) {
    return character == ' ' || character == '\t';
}

void ExpectInRange(const CQueueLimits& limits) {
    HX_EXPECT(limits.m_path == Path && !limits.m_dirty);
    HX_EXPECT(limits.MaxThreads >= 0 && limits.MemoryPerThreadMB >= 0);
    HX_EXPECT(limits.DiskPerThreadGB >= 0 && limits.ThreadsPerMolecule >= 0);
    HX_EXPECT(limits.Scratch.size() < 256);
    HX_EXPECT(limits.Scratch.find_first_of(std::string("\n\0", 2)) == std::string::npos);
    HX_EXPECT(limits.Scratch.empty() || !IsSpaceOrTab(limits.Scratch.front()));
    HX_EXPECT(limits.Scratch.empty() || !IsSpaceOrTab(limits.Scratch.back()));
}

std::string Truncated(std::string scratch) {
    scratch.resize(std::min(scratch.size(), LongestScratch));
    scratch.resize(scratch.find_last_not_of(" \t") + 1);
    return scratch;
}

void ExpectSame(const CQueueLimits& limits, const CQueueLimits& again) {
    HX_EXPECT(limits.MaxThreads == again.MaxThreads);
    HX_EXPECT(limits.MemoryPerThreadMB == again.MemoryPerThreadMB);
    HX_EXPECT(limits.DiskPerThreadGB == again.DiskPerThreadGB);
    HX_EXPECT(limits.ThreadsPerMolecule == again.ThreadsPerMolecule);
    HX_EXPECT(Truncated(limits.Scratch) == again.Scratch);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const hx_fuzz::MemoryFile file(Path, std::string(data, data + size));
    CQueueLimits limits(Directory);
    ExpectInRange(limits);
    HX_EXPECT(limits.writeQueueLimits() == 0);
    const hx_fuzz::MemoryFile written("/written/QueueLimits", file.Content());
    const CQueueLimits again("/written");
    ExpectSame(limits, again);
    return 0;
}
