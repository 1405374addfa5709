#include "installation/PackedPages.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "installation/SetupRun.h"
#include "installation/State.h"

namespace {

namespace fs = std::filesystem;

struct CloseArchive {
    void operator()(archive* open) const { archive_read_free(open); }
};
using ArchiveHandle = std::unique_ptr<archive, CloseArchive>;

// Like libarchive, returns ARCHIVE_OK or an error.
int ReadPage(archive* from, archive_entry* member, std::vector<PackedPages::Page>& pages) {
    const char* name = archive_entry_pathname(member);
    if (name == nullptr)
        return ARCHIVE_FATAL;
    QByteArray text(archive_entry_size(member), '\0');
    const la_ssize_t length =
        archive_read_data(from, text.data(), static_cast<size_t>(text.size()));
    if (length < 0)
        return ARCHIVE_FATAL;
    text.truncate(length);
    pages.push_back({std::string(pagesParent) + '/' + name, text});
    return ARCHIVE_OK;
}

// libarchive does not describe each lack of memory.
QString ErrorOf(archive* from) {
    const char* text = from == nullptr ? nullptr : archive_error_string(from);
    return QString::fromUtf8(text == nullptr ? std::strerror(ENOMEM) : text);
}

Failure ReadArchive(const QString& path, std::vector<PackedPages::Page>& pages) {
    const ArchiveHandle handle(archive_read_new());
    archive* const from = handle.get();
    int result = from == nullptr ? ARCHIVE_FATAL : archive_read_support_format_tar(from);
    if (result == ARCHIVE_OK)
        result = archive_read_open_filename(from, path.toUtf8().constData(), size_t{64} * 1024);
    while (result == ARCHIVE_OK) {
        archive_entry* member = nullptr;
        result = archive_read_next_header(from, &member);
        if (result == ARCHIVE_OK && archive_entry_filetype(member) == AE_IFREG)
            result = ReadPage(from, member, pages);
    }
    if (result == ARCHIVE_EOF)
        return {};
    return Problem{ExitStatus::Incomplete,
                   QStringLiteral("cannot read archive \"%1\": %2").arg(path, ErrorOf(from)),
                   QStringLiteral("Install the product directory again, then run the setup again."),
                   Changes::Unknown};
}

// An edited page is complete: a truncated one is the beginning of the packed one. A page that not
// everyone can read is not read here either.
bool IsComplete(const PackedPages::Page& packed, int tree) {
    const fs::path path = packed.path;
    const Descriptor directory = OpenDirectory(tree, path.parent_path().string());
    const Descriptor page =
        directory ? OpenRegularFile(directory.Number(), path.filename().string()) : Descriptor();
    struct stat found = {};
    if (!page || fstat(page.Number(), &found) != 0)
        return false;
    if ((found.st_mode & S_IROTH) == 0 || found.st_size >= packed.text.size())
        return true;
    QByteArray text(found.st_size, '\0');
    const ssize_t length = read(page.Number(), text.data(), static_cast<size_t>(text.size()));
    return length == text.size() && !packed.text.startsWith(text);
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

void PackedPages::Read(const CInstallBase& run, unsigned conditions) {
    Read(run.m_binariesDir, conditions);
}

void PackedPages::Read(const QString& productDir, unsigned conditions) {
    for (const Entry& entry : Entries()) {
        if (entry.check != Check::Archive || !Applies(entry, conditions))
            continue;
        Archive& archive = m_archives[&entry];
        archive.failure =
            ReadArchive(productDir + u'/' + QLatin1String(entry.reference), archive.pages);
    }
}

Failure PackedPages::Check(const CInstallBase& run, const Entry& entry, int tree,
                           Written written) const {
    const Archive& archive = m_archives.at(&entry);
    for (const Page& page : archive.pages) {
        if (!IsComplete(page, tree)) {
            return IncompletePage(run.m_installDir + u'/' + QString::fromStdString(page.path),
                                  PathIn(run, entry), written);
        }
    }
    return archive.failure;
}
