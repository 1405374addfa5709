#include "record/ReplacedPages.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "WriteAll.h"
#include "installation/DatedName.h"
#include "installation/PathParts.h"

namespace {

constexpr mode_t modeOfPages = 0644;
constexpr mode_t modeOfPageDirectories = 0755;

bool IsBelowRow(const QString& path, const Entry& directory) {
    return path.startsWith(QLatin1String(directory.path) + u'/');
}

FormerPages InstalledPages(const Manifest& manifest, const Entry& directory) {
    const std::string tree = manifest.tree.empty() ? "" : manifest.tree + '/';
    FormerPages pages;
    for (const ManifestEntry& entry : manifest.entries) {
        if (!entry.path.starts_with(tree) || entry.state.digest.empty())
            continue;
        const QString path = QString::fromStdString(entry.path.substr(tree.size()));
        if (IsBelowRow(path, directory))
            pages[path] = QString::fromStdString(entry.state.digest);
    }
    return pages;
}

FormerPages PagesOfProduct(const PackedPages& packed, const Entry& directory) {
    FormerPages pages;
    for (const PackedPages::Page& page : packed.PagesOf(directory))
        pages[QString::fromStdString(page.path)] = DigestOfPage(page.text);
    return pages;
}

// A removal keeps a directory with edited pages or with other files.
bool LacksPage(int tree, const PackedPages& packed, const Entry& directory) {
    return OpenDirectory(tree, directory.path) &&
           std::ranges::any_of(packed.PagesOf(directory), [&](const PackedPages::Page& page) {
               const auto found = ReadStateAt(tree, page.path, Reading::Nothing);
               return found && found->kind == State::Kind::Missing;
           });
}

Problem CannotReplace(const std::string& page, int error) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot replace web page \"%1\": %2")
                .arg(QString::fromStdString(page), QString::fromUtf8(std::strerror(error))),
            QStringLiteral("Fix the cause, then run the setup again."), Changes::RunTimeFiles};
}

// Opens the directory of a page, and creates it if it does not exist.
Descriptor OpenPageDirectory(int tree, const std::string& path) {
    Descriptor opened = OpenDirectory(tree, path);
    if (opened || errno != ENOENT || path.empty())
        return opened;
    const Descriptor parent = OpenPageDirectory(tree, ParentOf(path));
    if (!parent || mkdirat(parent.Number(), BaseNameOf(path).c_str(), modeOfPageDirectories) != 0)
        return {};
    return OpenDirectory(tree, path);
}

bool WritePage(int directory, const std::string& name, const QByteArray& text) {
    unlinkat(directory, unfinishedPage, 0);
    const Descriptor file(openat(directory, unfinishedPage,
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    return file &&
           WriteAll(file.Number(), {text.constData(), static_cast<size_t>(text.size())}) == 0 &&
           fchmod(file.Number(), modeOfPages) == 0 && fsync(file.Number()) == 0 &&
           renameat(directory, unfinishedPage, directory, name.c_str()) == 0;
}

// The open install directory.
struct LiveTree {
    std::string path;
    Descriptor descriptor;

    std::string Whole(const std::string& below) const { return path + '/' + below; }
};

Failure ReplacePage(const LiveTree& tree, const PackedPages::Page& page,
                    const FormerPages& former) {
    const Descriptor directory = OpenPageDirectory(tree.descriptor.Number(), ParentOf(page.path));
    const std::string name = BaseNameOf(page.path);
    const std::optional<State> found =
        directory ? ReadState(directory.Number(), name, Reading::AllFiles) : std::nullopt;
    if (!found)
        return CannotReplace(tree.Whole(page.path), errno);
    const QString digest = QString::fromStdString(found->digest);
    if (found->kind == State::Kind::File && digest == DigestOfPage(page.text))
        return {};
    const bool isFormer = found->kind == State::Kind::File && !digest.isEmpty() &&
                          digest == former.value(QString::fromStdString(page.path));
    if (found->kind != State::Kind::Missing && !isFormer) {
        const std::string dated =
            MoveToDatedName(directory.Number(), name, directory.Number(), name);
        if (dated.empty())
            return CannotReplace(tree.Whole(page.path), errno);
        WarnOfDatedName(name, tree.Whole(ParentOf(page.path) + '/' + dated));
    }
    return WritePage(directory.Number(), name, page.text)
               ? Failure()
               : CannotReplace(tree.Whole(page.path), errno);
}

// An edited page stays.
Failure RemoveFormerPage(const LiveTree& tree, const std::string& path, const QString& digest) {
    const Descriptor directory = OpenDirectory(tree.descriptor.Number(), ParentOf(path));
    const std::string name = BaseNameOf(path);
    const std::optional<State> found =
        directory ? ReadState(directory.Number(), name, Reading::AllFiles) : State();
    if (!found || (found->digest == digest.toStdString() &&
                   unlinkat(directory.Number(), name.c_str(), 0) != 0))
        return CannotReplace(tree.Whole(path), errno);
    return {};
}

}  // namespace

QString DigestOfPage(const QByteArray& text) {
    return QString::fromLatin1(QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex());
}

FormerPages FindReplacedPages(const std::optional<Manifest>& previous, const PackedPages& packed,
                              unsigned conditions, int tree) {
    FormerPages replaced;
    for (const Entry& entry : Entries()) {
        if (entry.check != Check::Archive || !Applies(entry, conditions))
            continue;
        const FormerPages former = previous ? InstalledPages(*previous, entry) : FormerPages();
        const FormerPages now = PagesOfProduct(packed, entry);
        const bool isReplaced = former.isEmpty() ? LacksPage(tree, packed, entry) : former != now;
        if (now.isEmpty() || !isReplaced)
            continue;
        replaced.insert(former);
        replaced.insert(QLatin1String(entry.path), {});
    }
    return replaced;
}

bool IsReplaced(const Entry& directory, const FormerPages& former) {
    return former.contains(QLatin1String(directory.path));
}

Failure ReplacePages(const QString& installDir, const FormerPages& former,
                     const PackedPages& packed, unsigned conditions) {
    if (former.isEmpty())
        return {};
    const LiveTree tree = {
        installDir.toStdString(),
        Descriptor(open(installDir.toUtf8().constData(), O_PATH | O_DIRECTORY | O_CLOEXEC))};
    if (!tree.descriptor)
        return CannotReplace(tree.path, errno);
    for (const Entry& entry : Entries()) {
        if (!Applies(entry, conditions) || !IsReplaced(entry, former) ||
            !OpenDirectory(tree.descriptor.Number(), entry.path))
            continue;
        const FormerPages now = PagesOfProduct(packed, entry);
        for (const PackedPages::Page& page : packed.PagesOf(entry)) {
            if (Failure failure = ReplacePage(tree, page, former))
                return failure;
        }
        for (auto page = former.begin(); page != former.end(); ++page) {
            if (!IsBelowRow(page.key(), entry) || now.contains(page.key()))
                continue;
            if (Failure failure = RemoveFormerPage(tree, page.key().toStdString(), page.value()))
                return failure;
        }
    }
    return {};
}
