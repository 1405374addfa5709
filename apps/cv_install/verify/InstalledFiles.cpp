#include "verify/InstalledFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "installation/Limits.h"
#include "installation/TreeCheck.h"
#include "record/InstalledEntries.h"
#include "record/PreviousSetup.h"
#include "report/OwnerNames.h"

namespace {

QString BytesText(off_t size) {
    return QStringLiteral("%1 bytes").arg(size);
}

QString DigestText(const std::string& digest) {
    return QStringLiteral("sha256 ") + QString::fromStdString(digest);
}

QString ReasonOf(int error) {
    if (error == EREMOTE)
        return QStringLiteral("it is on a FUSE file system");
    // The timer interrupts system calls that wait.
    return error == EINTR ? QStringLiteral("timed out") : QString::fromUtf8(std::strerror(error));
}

class FileComparison {
public:
    FileComparison(const RecordedInstallation& installation, VerifyResult& result)
        : m_installation(installation), m_result(result) {}

    Failure Open();
    void CompareLink();
    void CompareEntries();
    void CompareLimits();
    void CompareUserRecord();

private:
    // Where an entry is read, and how it is shown.
    struct Place {
        int base;  // -1 if it does not exist
        std::string path;
        std::string shown;
        Reading reading;
    };

    Place PlaceOf(const std::string& path) const;
    static bool IsAtOrBelow(const std::vector<std::string>& paths, const std::string& shown);
    void Compare(const ManifestEntry& entry, const Place& place);
    void CompareAttributes(const State& expected, const State& found, const Place& place);
    void CompareContent(const State& expected, const State& found, const Place& place);
    void Add(const Place& place, const State& expected, const char* attribute,
             const QString& expectedText, const QString& foundText);
    void AddUnchecked(const Place& place, int error);

    bool IsRoots() const { return m_installation.IsRoots(); }

    const RecordedInstallation& m_installation;
    VerifyResult& m_result;
    OwnerNames m_names;
    Descriptor m_top;
    Descriptor m_tree;
    // Shown paths: what is gone, of another kind or unreadable, and what has another mode, which
    // can make contents unreadable.
    std::vector<std::string> m_reported;
    std::vector<std::string> m_wrongModes;
};

// What is in place of the install directory is compared like any other entry.
Failure FileComparison::Open() {
    const Manifest& manifest = m_installation.manifest;
    m_top = Descriptor(open(manifest.top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!IsRoots()) {
        m_tree = OpenEntry(m_top.Number(), "");
        return {};
    }
    const std::optional<State> tree = ReadStateAt(m_top.Number(), manifest.tree, Reading::Nothing);
    if (!tree || tree->kind != State::Kind::Directory)
        return {};
    if (Failure failure = OpenInstallDirectory(m_tree)) {
        failure->changes = Changes::Unknown;
        return failure;
    }
    CompareLink();
    return {};
}

// The install directory may be a link of root's.
void FileComparison::CompareLink() {
    const std::string installDir = m_installation.installDir.toStdString();
    const std::string expected =
        std::filesystem::path(m_installation.manifest.top) / m_installation.manifest.tree;
    std::error_code error;
    const std::string found = std::filesystem::canonical(installDir, error).string();
    if (found == expected)
        return;
    m_result.differences.push_back({QString::fromStdString(installDir),
                                    {},
                                    WordOf(State::Kind::Link),
                                    "target",
                                    QString::fromStdString(expected),
                                    QString::fromStdString(found)});
    m_reported.push_back(installDir);
}

FileComparison::Place FileComparison::PlaceOf(const std::string& path) const {
    const std::string& tree = m_installation.manifest.tree;
    const std::string installDir = m_installation.installDir.toStdString();
    const Reading inTree = IsRoots() ? Reading::PublicFiles : Reading::AllFiles;
    if (path == tree)
        return {m_top.Number(), path, installDir, inTree};
    const std::string prefix = tree.empty() ? "" : tree + '/';
    if (path.starts_with(prefix)) {
        const std::string below = path.substr(prefix.size());
        return {m_tree.Number(), below, installDir + '/' + below, inTree};
    }
    return {m_top.Number(), path, '/' + path,
            getuid() == 0 ? Reading::AllFiles : Reading::PublicFiles};
}

bool FileComparison::IsAtOrBelow(const std::vector<std::string>& paths, const std::string& shown) {
    return std::ranges::any_of(paths, [&](const std::string& path) {
        return shown == path || shown.starts_with(path + '/');
    });
}

void FileComparison::Add(const Place& place, const State& expected, const char* attribute,
                         const QString& expectedText, const QString& foundText) {
    m_result.differences.push_back({QString::fromStdString(place.shown),
                                    {},
                                    WordOf(expected.kind),
                                    attribute,
                                    expectedText,
                                    foundText});
}

void FileComparison::AddUnchecked(const Place& place, int error) {
    m_result.unchecked.push_back(
        {QString::fromStdString(place.shown), ReasonOf(error), error == EACCES && getuid() != 0});
    m_reported.push_back(place.shown);
}

void FileComparison::CompareEntries() {
    for (const ManifestEntry& entry : m_installation.manifest.entries) {
        const Place place = PlaceOf(entry.path);
        if (!IsAtOrBelow(m_reported, place.shown))
            Compare(entry, place);
    }
}

void FileComparison::Compare(const ManifestEntry& entry, const Place& place) {
    const State& expected = entry.state;
    std::optional<State> found = State();
    if (place.base != -1) {
        found = ReadStateAt(place.base, place.path,
                            expected.digest.empty() ? Reading::Nothing : place.reading);
        // The content of a file with a wrong mode may be unreadable.
        if (!found && !expected.digest.empty())
            found = ReadStateAt(place.base, place.path, Reading::Nothing);
    }
    if (!found) {
        AddUnchecked(place, errno);
    } else if (!entry.isInstalled && found->kind == State::Kind::Missing) {
        // systemctl disable removes the directory of the link. What the setup left in it is
        // missing.
    } else if (found->kind != expected.kind) {
        Add(place, expected, "kind", QLatin1String(WordOf(expected.kind)),
            QLatin1String(WordOf(found->kind)));
        m_reported.push_back(place.shown);
    } else if (entry.isInstalled) {
        CompareAttributes(expected, *found, place);
        CompareContent(expected, *found, place);
    }
}

void FileComparison::CompareAttributes(const State& expected, const State& found,
                                       const Place& place) {
    if (found.mode != expected.mode && expected.kind != State::Kind::Link) {
        Add(place, expected, "mode", ModeText(expected.mode), ModeText(found.mode));
        m_wrongModes.push_back(place.shown);
    }
    if (found.owner != expected.owner) {
        Add(place, expected, "owner", m_names.User(expected.owner), m_names.User(found.owner));
    }
    if (found.group != expected.group)
        Add(place, expected, "group", m_names.Group(expected.group), m_names.Group(found.group));
    if (found.target != expected.target) {
        Add(place, expected, "target", QString::fromStdString(expected.target),
            QString::fromStdString(found.target));
    }
}

void FileComparison::CompareContent(const State& expected, const State& found, const Place& place) {
    if (expected.digest.empty() || expected.digest == found.digest)
        return;
    if (found.size != expected.size) {
        Add(place, expected, "content", BytesText(expected.size), BytesText(found.size));
    } else if (!found.digest.empty()) {
        Add(place, expected, "content", DigestText(expected.digest), DigestText(found.digest));
    } else if (!IsAtOrBelow(m_wrongModes, place.shown)) {
        m_result.unchecked.push_back(
            {QString::fromStdString(place.shown), ReasonOf(EACCES), getuid() != 0});
    }
}

// The lines that a setup writes. Without a public file, its entry has been reported.
void FileComparison::CompareLimits() {
    const std::optional<Limits> limits = m_tree ? ReadLimits(m_tree.Number()) : std::nullopt;
    const std::string shown =
        PathOf(Find(Item::QueueLimits), m_installation.installDir.toStdString());
    if (!limits || IsAtOrBelow(m_reported, shown))
        return;
    for (const auto& [key, expected] : LimitsOf(m_installation.manifest.answers)) {
        const auto found = limits->find(QString::fromLatin1(key).toLower());
        const QString value = found == limits->end() ? QStringLiteral("missing") : found->second;
        if (value != expected.trimmed()) {
            m_result.differences.push_back({QString::fromStdString(shown),
                                            {},
                                            WordOf(State::Kind::File),
                                            key,
                                            expected,
                                            value});
        }
    }
}

void FileComparison::CompareUserRecord() {
    const std::string records = UserRecords().toStdString();
    const Descriptor top(open(records.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const ManifestEntry& entry : EntriesOfUserRecord(m_installation)) {
        const Place place = {top.Number(), entry.path, std::filesystem::path(records) / entry.path,
                             Reading::AllFiles};
        if (!IsAtOrBelow(m_reported, place.shown))
            Compare(entry, place);
    }
}

}  // namespace

Failure CompareFiles(const RecordedInstallation& installation, VerifyResult& result) {
    FileComparison comparison(installation, result);
    if (Failure failure = comparison.Open())
        return failure;
    comparison.CompareEntries();
    comparison.CompareLimits();
    if (!installation.IsRoots())
        comparison.CompareUserRecord();
    return {};
}
