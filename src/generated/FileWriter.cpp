#include "generated/FileWriter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <iterator>

#include "setuprun/Require.h"
#include "support/FileHandle.h"

namespace hx {
namespace {

// What stands before and behind a path.
struct Frame {
    const char* before;
    const char* after;
};

enum class OpenFailure { EndsWithTwo, EndsWithErrno };

struct FailureTexts {
    Frame unlink;
    Frame open;
    OpenFailure openFailure;
};

// Kept: a script that cannot be opened ends the run with the error's number and without its text.
constexpr FailureTexts ofScripts = {{"Unable to update \"", "\", unlink failed"},
                                    {"Unable to open \"", "\" for write"},
                                    OpenFailure::EndsWithErrno};
constexpr FailureTexts ofQChemFiles = {{"Unable to delete \"", "\""},
                                       {"Unable to open file \"", "\" for write"},
                                       OpenFailure::EndsWithTwo};
constexpr FailureTexts ofQueueFiles = {
    {"Unable to delete \"", "\""}, {"Unable to create \"", "\""}, OpenFailure::EndsWithTwo};

struct FileTraits {
    const char* suffix;
    const FailureTexts& failures;
    const char* updated;  // first line of the report; null: not reported here
    const char* created;
    mode_t mode;
    bool reportsItsPath = false;  // before that line
};

// Kept: the snapshot script's reports lack the dots, and one has a second blank.
constexpr FileTraits table[] = {
    {"/corvane26", ofScripts, "Corvane run script updated...", "Corvane run script created...",
     0755},
    {"/corvane26_snapshot", ofScripts, "Corvane snapshot script updated",
     "Corvane snapshot  script created", 0755},
    {"/corvane26_samba", ofScripts, " script updated...", " script created...", 0755, true},
    {"/corvane26_ssh", ofScripts, " script updated...", " script created...", 0755, true},
    {"/qchemrc/qchemrc", ofQChemFiles, nullptr, nullptr, 0644},
    {"/qchemrc/qcscratch", ofQChemFiles, nullptr, nullptr, 0644},
    {"/queue_entries", ofQueueFiles, nullptr, nullptr, 0666},
    {"/QueueLimits", ofQueueFiles, nullptr, nullptr, 0644}};
static_assert(std::size(table) == static_cast<size_t>(RunTimeFile::Count));

FileHandle Open(const char* name, const QString& path, const FailureTexts& failures) {
    FileHandle file(std::fopen(name, "w"));
    const int error = errno;
    if (file == nullptr) {
        const bool tellsNumber = failures.openFailure == OpenFailure::EndsWithErrno;
        CInstallBase::InstallError(
            QLatin1String(failures.open.before) + path + QLatin1String(failures.open.after),
            tellsNumber ? error : 2, tellsNumber ? 0 : error);
    }
    return file;
}

}  // namespace

void WriteRunTimeFile(CInstallBase& run, RunTimeFile file,
                      const std::function<void(FILE*)>& content) {
    const FileTraits& traits = table[static_cast<size_t>(file)];
    const QString path = run.m_installDir + QLatin1String(traits.suffix);
    const QByteArray name = path.toUtf8();
    const bool existed = access(name.constData(), F_OK) == 0;
    if (existed && access(name.constData(), W_OK) != 0) {
        Require(unlink(name.constData()) == 0, traits.failures.unlink.before, path,
                traits.failures.unlink.after);
    }
    content(Open(name.constData(), path, traits.failures).get());
    Require(chmod(name.constData(), traits.mode) == 0, "Unable to chmod \"", path);
    if (traits.updated == nullptr)
        return;
    Report(run, [&] {
        std::printf("  %s%s\n    \"%s\"\n", traits.reportsItsPath ? name.constData() : "",
                    existed ? traits.updated : traits.created, name.constData());
    });
}

void Report(CInstallBase& run, const std::function<void()>& lines) {
    CInstallBase::InstallSeparator();
    if (run.m_allowNonRoot)
        lines();
    run.InstallPause();
}

}  // namespace hx
