// All questions of a setup as root in order, with a QueueLimits file and fuzzed answers. The
// accepted answers are in range, and the end of input never hangs.
//
// An input is a QueueLimits file, "====", one option for each line, "====" and the answers.
#include <cstdio>

#include "fuzz/Expect.h"
#include "fuzz/SetupRun.h"
#include "probes/CDfProcess.h"

namespace {

constexpr int ConsoleClosed = 2;

class Console {
public:
    explicit Console(std::string& text)
        : m_kept(stdin), m_file(fmemopen(text.data(), text.size(), "r")) {
        stdin = m_file;
    }
    ~Console() {
        stdin = m_kept;
        std::fclose(m_file);
    }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    bool AtEnd() const { return std::feof(m_file) != 0; }

private:
    FILE* m_kept;
    FILE* m_file;
};

bool IsTrimmed(const QString& text) {
    return text == text.trimmed();
}

void AskForLimits(CInstallBase& run) {
    run.PromptJobLimit();
    HX_EXPECT(run.m_jobLimit >= 1);
    run.PromptMemoryLimit();
    // The limit is 0 if there are more threads than megabytes.
    HX_EXPECT(run.m_memoryLimitMB >= (run.m_jobLimit > run.m_ramMB ? 0 : 1));
    run.PromptScratchDirectory();
    run.PromptScratchLimit();
    HX_EXPECT(run.m_scratchLimitGB >= 0);
}

void ExpectNames(const QStringList& names) {
    for (const QString& name : names)
        HX_EXPECT(!name.isEmpty() && !name.contains(u',') && !name.contains(u' '));
}

void Converse(CInstallBase& run) {
    AskForLimits(run);
    const int chosen = run.m_queueType;
    run.PromptQueueType();
    HX_EXPECT(chosen == CInstallBase::QueueUnset
                  ? run.m_queueType == CInstallBase::QueueInternal ||
                        run.m_queueType == CInstallBase::QueueExternal
                  : run.m_queueType == chosen);
    if (chosen == CInstallBase::QueueUnset) {
        HX_EXPECT(IsTrimmed(run.m_queueName) && IsTrimmed(run.m_partitionName));
        HX_EXPECT(!run.m_qsubCmd.isEmpty() && !run.m_sbatchCmd.isEmpty());
    }
    run.PromptComputeServiceGroupMembers();
    ExpectNames(run.m_serviceMembers);
    hx_fuzz::ExpectGuarded(run);
}

int freeGigabytes = 0;

}  // namespace

// Replaces df: the free space depends on the input.
void CDfProcess::Run(const QString& /*path*/) {}
int CDfProcess::TotalAvailable() {
    return freeGigabytes;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    auto sections = hx_fuzz::Sections(std::string(data, data + size), 3);
    hx_fuzz::Words words(sections[1]);
    freeGigabytes = static_cast<int>(size);
    Console console(sections[2]);
    const int status = hx_fuzz::RunOver(words.argc(), words.argv(), sections[0], Converse);
    HX_EXPECT(status == -1 || (status == ConsoleClosed && console.AtEnd()));
    return 0;
}
