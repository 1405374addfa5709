#include "fuzz/SetupRun.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "answers/ValueGuard.h"
#include "fuzz/Expect.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/RunEnd.h"
#include "support/COSRelease.h"

namespace {

constexpr const char* Program = "/opt/corvane/cv_install";

// Returns whether bash or sed would interpret a byte of `value`. The guard checks characters.
bool Contains(const QString& value, const char* unusable) {
    const QByteArray bytes = value.toUtf8();
    for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x20 || code == 0x7f || std::string(unusable).find(byte) != std::string::npos)
            return true;
    }
    return false;
}

bool HasAccountCharacters(const QString& value) {
    const std::string name = value.toStdString();
    return !name.empty() && name.front() != '-' && name.front() != '+' &&
           name.find_first_not_of(
               "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
               "_.@+-") == std::string::npos;
}

}  // namespace

namespace hx_fuzz {

std::vector<std::string> Sections(const std::string& input, size_t count) {
    const std::string line = "====\n";
    std::vector<std::string> sections;
    size_t start = 0;
    while (sections.size() + 1 < count) {
        const size_t end = input.find(line, start);
        if (end == std::string::npos)
            break;
        sections.push_back(input.substr(start, end - start));
        start = end + line.size();
    }
    sections.push_back(input.substr(start));
    sections.resize(count);
    return sections;
}

Words::Words(const std::string& text) : m_words{Program} {
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        // Arguments end at a NUL.
        m_words.emplace_back(text.substr(start, end - start).c_str());
        start = end + 1;
    }
    for (std::string& word : m_words)
        m_pointers.push_back(word.data());
    m_pointers.push_back(nullptr);
}

int RunOver(int argc, char** argv, const std::string& queueLimits,
            const std::function<void(CInstallBase&)>& body) {
    const MemoryFile limits("/var/corvane/QueueLimits", queueLimits);
    // A processor entry would create a record that is never freed.
    const MemoryFile cpuinfo("/proc/cpuinfo", "");
    return StatusOf([&] {
        CInstallBase run(true, argc, argv);
        // The setup never frees it by design, which would hide other leaks.
        const std::unique_ptr<COSRelease> release(run.m_osRelease);
        body(run);
    });
}

void ExpectGuarded(const CInstallBase& run) {
    if (const Failure invalid = FindInvalidValue(run)) {
        HX_EXPECT(!invalid->remedy.isEmpty());
        HX_EXPECT(!invalid->text.isEmpty());
        return;
    }
    for (const QString& value : {run.m_scratchDir, run.m_prevScratchDir})
        HX_EXPECT(!Contains(value, "\"$`\\"));
    for (const QString& value :
         {run.m_scheduler, run.m_queueName, run.m_partitionName, run.m_qsubCmd, run.m_qdelCmd,
          run.m_qsigCmd, run.m_sbatchCmd, run.m_scancelCmd})
        HX_EXPECT(!Contains(value, "\"$`\\|&"));
    for (const QString& name :
         QStringList{run.m_serviceGroup, run.m_serviceUser} + run.m_serviceMembers)
        HX_EXPECT(HasAccountCharacters(name));
}

}  // namespace hx_fuzz

// Makes every setup one as root.
extern "C" uid_t getuid() noexcept {
    return 0;
}
