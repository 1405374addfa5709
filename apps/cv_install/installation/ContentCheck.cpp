#include "installation/ContentCheck.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QThread>
#include <algorithm>
#include <filesystem>
#include <memory>

#include "installation/ReadBack.h"
#include "installation/SetupRun.h"
#include "installation/State.h"
#include "setuprun/QueueLimitsKeys.h"

namespace {

namespace fs = std::filesystem;

// More than any of these files contains.
constexpr qsizetype mostBytes = 1 << 20;

Problem IncompleteFile(const QString& path) {
    return {ExitStatus::Incomplete, QStringLiteral("\"%1\" is incomplete or unreadable").arg(path),
            QStringLiteral("Make sure that its file system is writable and not full, then run the "
                           "setup again."),
            Changes::Unknown};
}

// True when the lines of the commit script are in the file, which may contain further lines of the
// service.
bool HasLimits(const QString& path, const CInstallBase& run) {
    const QByteArray text = '\n' + ReadBack(path, mostBytes);
    return std::all_of(hx::queueLimitsLines.begin(), hx::queueLimitsLines.end(),
                       [&](const hx::QueueLimitsLine& line) {
                           const QByteArray expected =
                               QByteArray("\n") + line.key + ": " + line.Answer(run) + '\n';
                           return !line.isCommitted(run) || text.contains(expected);
                       });
}

// Waits half a second, because the service, just started, may be writing the file.
bool HasLimitsSoon(const QString& path, const CInstallBase& run) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        if (HasLimits(path, run))
            return true;
        QThread::msleep(100);
    }
    return false;
}

bool HasExpectedBytes(const CInstallBase& run, const Entry& entry) {
    const QString path = PathIn(run, entry);
    if (entry.item == Item::QueueLimits)
        return HasLimitsSoon(path, run);
    const QByteArray expected = entry.item == Item::QChemScratch
                                    ? run.m_scratchDir.toUtf8()
                                    : ReadBack(PathIn(run, Find(Item::RenderedUnit)), mostBytes);
    return ReadBack(path, expected.size() + 1) == expected;
}

// An edited page is complete: a truncated one is the beginning of the packed one. A page that not
// everyone can read is not read here either.
bool IsCompletePage(int tree, const std::string& path, const QByteArray& packed) {
    const Descriptor directory = OpenDirectory(tree, fs::path(path).parent_path().string());
    const Descriptor page =
        directory ? OpenRegularFile(directory.Number(), fs::path(path).filename().string())
                  : Descriptor();
    struct stat found = {};
    if (!page || fstat(page.Number(), &found) != 0)
        return false;
    if ((found.st_mode & S_IROTH) == 0 || found.st_size >= packed.size())
        return true;
    QByteArray text(found.st_size, '\0');
    const ssize_t length = read(page.Number(), text.data(), static_cast<size_t>(text.size()));
    return length == text.size() && !packed.startsWith(text);
}

struct CloseArchive {
    void operator()(archive* open) const { archive_read_free(open); }
};
using ArchiveHandle = std::unique_ptr<archive, CloseArchive>;

QByteArray ReadMember(archive* from, const archive_entry* member) {
    QByteArray packed(archive_entry_size(const_cast<archive_entry*>(member)), '\0');
    const la_ssize_t length =
        archive_read_data(from, packed.data(), static_cast<size_t>(packed.size()));
    packed.truncate(std::max<la_ssize_t>(length, 0));
    return packed;
}

Problem IncompletePage(const QString& page, const QString& directory, Written written) {
    const QString remedy =
        written == Written::Now
            ? QStringLiteral(
                  "Free up disk space, remove directory \"%1\", then run the setup again.")
            : QStringLiteral(
                  "To restore all web pages, move directory \"%1\" away, then run the "
                  "setup again.");
    return {ExitStatus::Incomplete,
            QStringLiteral("web page \"%1\" is missing or truncated").arg(page),
            remedy.arg(directory), Changes::Unknown};
}

}  // namespace

Failure CheckPages(const CInstallBase& run, const Entry& entry, int tree, Written written) {
    const QString path = run.m_binariesDir + u'/' + QLatin1String(entry.reference);
    const std::string parent = std::string(pagesParent) + '/';
    const ArchiveHandle pages(archive_read_new());
    archive_read_support_format_tar(pages.get());
    int result =
        archive_read_open_filename(pages.get(), path.toUtf8().constData(), size_t{64} * 1024);
    while (result == ARCHIVE_OK) {
        archive_entry* member = nullptr;
        result = archive_read_next_header(pages.get(), &member);
        if (result != ARCHIVE_OK || archive_entry_filetype(member) != AE_IFREG)
            continue;
        const std::string page = parent + archive_entry_pathname(member);
        if (!IsCompletePage(tree, page, ReadMember(pages.get(), member))) {
            return IncompletePage(run.m_installDir + u'/' + QString::fromStdString(page),
                                  PathIn(run, entry), written);
        }
    }
    if (result == ARCHIVE_EOF)
        return {};
    return Problem{ExitStatus::Incomplete,
                   QStringLiteral("cannot read archive \"%1\": %2")
                       .arg(path, QString::fromUtf8(archive_error_string(pages.get()))),
                   QStringLiteral("Install the product directory again, then run the setup again."),
                   Changes::Unknown};
}

Failure CheckContent(const CInstallBase& run, const Entry& entry) {
    if (entry.check == Check::Archive) {
        const Descriptor tree(open(run.m_installDir.toUtf8().constData(), O_PATH | O_CLOEXEC));
        return CheckPages(run, entry, tree.Number(), Written::Now);
    }
    const QString path = PathIn(run, entry);
    const bool complete =
        entry.check == Check::None ||
        (entry.check == Check::Ending ? ReadBack(path, mostBytes).endsWith(entry.reference)
                                      : HasExpectedBytes(run, entry));
    if (complete)
        return {};
    return IncompleteFile(path);
}
