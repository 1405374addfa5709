#include "undo/SavedStates.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "WriteAll.h"
#include "merge/AccountNumber.h"
#include "merge/Accounts.h"
#include "merge/MergePaths.h"
#include "merge/PrivateDirectory.h"

namespace {

constexpr size_t keptStates = 3;
constexpr const char* stateFile = "state";
constexpr const char* newStateFile = "state.new";
constexpr off_t largestState = off_t{64} << 20;

std::string PathOfStates() {
    return Find(Item::SavedStates).path;
}

Problem CannotSave(const std::string& path, int error) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot save \"%1\" for --undo: %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(error))),
            QStringLiteral("Fix the cause, then run the setup again.")};
}

Problem CannotUse(const std::string& path, const char* reason) {
    return {ExitStatus::RecordUnusable,
            QStringLiteral("cannot use saved state \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(reason)),
            QStringLiteral("To go back, run the setup with the former answers.")};
}

// Opens a directory of root's, and creates it if it does not exist.
Descriptor OpenOwnDirectory(int parent, const std::string& name,
                            mode_t mode = Find(Item::SavedStates).rootMode) {
    const bool isNew = mkdirat(parent, name.c_str(), mode) == 0;
    if (!isNew && errno != EEXIST)
        return {};
    if (isNew && fsync(parent) != 0)
        return {};
    return Descriptor(
        openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Below a directory of root's alone. --diff shows only what other users could read here.
constexpr mode_t modeOfLayers = 0755;

bool OpenLayers(int directory, StagedMachine& layers) {
    layers.installDir = QLatin1String(sharedDirectory);
    layers.tree = OpenOwnDirectory(directory, "tree", modeOfLayers);
    layers.etc = OpenOwnDirectory(directory, "etc", modeOfLayers);
    layers.bin = OpenOwnDirectory(directory, "bin", modeOfLayers);
    return layers.tree && layers.etc && layers.bin;
}

// The numbers of the states, in order.
std::vector<unsigned> NumbersIn(int states) {
    std::vector<unsigned> numbers;
    const int again = openat(states, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(again), closedir);
    while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
        id_t number = 0;
        if (ParseNumber(entry->d_name, number))
            numbers.push_back(number);
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

bool HasState(int states, unsigned number) {
    const std::string path = std::to_string(number) + '/' + stateFile;
    return faccessat(states, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

// True for a file that the setup replaces or removes. Jobs are never restored, and neither is what
// other users cannot read.
bool HasSavedContent(const PathDifference& difference) {
    return difference.before.kind == State::Kind::File && !difference.before.digest.empty() &&
           (difference.entry == nullptr || difference.entry->item != Item::QueueEntries);
}

Problem ChangedSincePlan(const std::string& path) {
    return RefusedInMerge(path, "was changed during the setup");
}

// Reads the content that the plan is about.
Failure ReadSavedContent(const PathDifference& difference, const LayerPath& place,
                         const StagedMachine& layers, int liveTree, QByteArray& bytes) {
    const Descriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const bool isInTree = place.base == layers.tree.Number();
    const std::optional<FileContent> content =
        isInTree ? ReadContent(liveTree, place.path, Reading::PublicFiles)
                 : ReadContent(root.Number(), difference.path.substr(1), Reading::AllFiles);
    if (!content && errno != ENOENT && errno != ENOTDIR && errno != ELOOP && errno != EREMOTE)
        return CannotSave(difference.path, errno);
    if (!content || content->refusal != nullptr ||
        QCryptographicHash::hash(content->bytes, QCryptographicHash::Sha256)
                .toHex()
                .toStdString() != difference.before.digest)
        return ChangedSincePlan(difference.path);
    bytes = content->bytes;
    return {};
}

Failure SaveContent(const PathDifference& difference, int liveTree, const StagedMachine& layers) {
    const LayerPath place = PathIn(layers, difference.path);
    QByteArray bytes;
    if (Failure failure = ReadSavedContent(difference, place, layers, liveTree, bytes))
        return failure;
    const std::filesystem::path path = place.path;
    const std::string name = path.filename();
    Descriptor directory(fcntl(place.base, F_DUPFD_CLOEXEC, 0));
    for (const std::filesystem::path& part : path.parent_path()) {
        if (directory)
            directory = OpenOwnDirectory(directory.Number(), part, modeOfLayers);
    }
    // A killed setup may have left it.
    unlinkat(directory.Number(), name.c_str(), 0);
    const Descriptor to(openat(directory.Number(), name.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    // --diff shows only what other users can read.
    const mode_t mode = difference.before.mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    if (!to || WriteAll(to.Number(), {bytes.constData(), static_cast<size_t>(bytes.size())}) != 0 ||
        fchmod(to.Number(), mode) != 0 || fsync(to.Number()) != 0 || fsync(directory.Number()) != 0)
        return CannotSave(difference.path, errno);
    return {};
}

// Of a web page, a setup changes only the owner, and does not read it. It comes back as a new file.
void ReadPages(std::vector<PathDifference>& paths, int liveTree) {
    const std::string top = std::string(sharedDirectory) + '/';
    for (PathDifference& difference : paths) {
        if (difference.change != Change::Modify || !difference.before.digest.empty() ||
            difference.before.kind != State::Kind::File || difference.entry == nullptr ||
            !difference.entry->ownsAllBelow)
            continue;
        const auto found = ReadStateAt(liveTree, difference.path.substr(top.size()));
        if (found) {
            difference.before.digest = found->digest;
            difference.after.digest = found->digest;
        }
    }
}

// The directory and the name of each file of the record.
std::vector<std::pair<bool, std::string>> FilesOfRecord() {
    const std::string top = std::string(Find(Item::Record).path) + '/';
    const std::string hidden = std::string(Find(Item::RecordPrivate).path) + '/';
    std::vector<std::pair<bool, std::string>> files;
    for (const Entry& entry : Entries()) {
        const std::string path = entry.path;
        if (entry.kind == Kind::File && path.starts_with(top))
            files.emplace_back(path.starts_with(hidden), std::filesystem::path(path).filename());
    }
    return files;
}

}  // namespace

SavedStates::SavedStates() : m_record(QLatin1String(sharedDirectory)) {}

Failure SavedStates::Open(bool creates) {
    Failure failure = creates ? m_record.Create() : m_record.Open();
    if (failure || m_record.Private() == -1)
        return failure;
    const std::string name = std::filesystem::path(PathOfStates()).filename();
    if (creates)
        m_states = OpenOwnDirectory(m_record.Private(), name);
    else
        m_states = Descriptor(openat(m_record.Private(), name.c_str(),
                                     O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!m_states && (creates || errno != ENOENT))
        return creates ? CannotSave(PathOfStates(), errno)
                       : CannotUse(PathOfStates(), std::strerror(errno));
    return {};
}

Failure SavedStates::FindLast(bool& isFound) {
    std::vector<unsigned> numbers = NumbersIn(m_states.Number());
    std::erase_if(numbers, [&](unsigned each) { return !HasState(m_states.Number(), each); });
    isFound = !numbers.empty();
    if (!isFound)
        return {};
    m_name = std::to_string(numbers.back());
    const std::string path = PathOfStates() + '/' + m_name;
    m_directory = Descriptor(
        openat(m_states.Number(), m_name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const Descriptor opened(
        openat(m_directory.Number(), stateFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat found = {};
    QFile file;
    if (!opened || fstat(opened.Number(), &found) != 0 || !S_ISREG(found.st_mode) ||
        !file.open(opened.Number(), QIODevice::ReadOnly))
        return CannotUse(path, "it cannot be read");
    const std::optional<ParsedRecord> text =
        found.st_size > largestState ? std::nullopt : ParseRecordText(file.readAll());
    std::optional<SavedSetup> saved = text ? ParseSavedSetup(text->body) : std::nullopt;
    if (!saved)
        return CannotUse(path, "it is damaged");
    if (text->facts.machineId != MachineId())
        return CannotUse(path, "it is from another machine");
    m_facts = text->facts;
    m_saved = std::move(*saved);
    return {};
}

Failure SavedStates::Write() {
    const QByteArray text = RecordText("# State before a setup", m_facts, TextOf(m_saved));
    const int directory = m_directory.Number();
    unlinkat(directory, newStateFile, 0);
    const Descriptor file(openat(directory, newStateFile,
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    const std::string_view bytes(text.constData(), static_cast<size_t>(text.size()));
    if (!file || WriteAll(file.Number(), bytes) != 0 || fsync(file.Number()) != 0 ||
        renameat(directory, newStateFile, directory, stateFile) != 0 || fsync(directory) != 0) {
        const int error = errno;
        unlinkat(directory, newStateFile, 0);
        return CannotSave(PathOfStates() + '/' + m_name + '/' + stateFile, error);
    }
    return {};
}

Failure SavedStates::SaveRecord() {
    for (const auto& [isPrivate, name] : FilesOfRecord()) {
        const int from = isPrivate ? m_record.Private() : m_record.Public();
        if (linkat(from, name.c_str(), m_directory.Number(), name.c_str(), 0) == 0)
            m_saved.record.push_back(name);
        else if (errno != ENOENT)
            return CannotSave(name, errno);
    }
    return {};
}

Failure SavedStates::SaveContents(const Differences& differences, int liveTree) const {
    StagedMachine layers;
    if (!OpenLayers(m_directory.Number(), layers))
        return CannotSave(PathOfStates(), errno);
    const std::vector<SavedPath> known = PathsOf(m_saved);
    for (const PathDifference& difference : differences.paths) {
        const bool isKnown = std::ranges::any_of(
            known, [&](const SavedPath& each) { return each.path == difference.path; });
        if (isKnown || !HasSavedContent(difference))
            continue;
        if (Failure failure = SaveContent(difference, liveTree, layers))
            return failure;
    }
    return {};
}

Failure SavedStates::Begin(const SetupFacts& facts, const Differences& differences, int liveTree) {
    if (Failure failure = Open(true))
        return failure;
    bool isFound = false;
    Failure damaged = FindLast(isFound);
    const bool continues = isFound && !damaged && !m_saved.isComplete;
    const bool changesNothing =
        differences.accounts.empty() && differences.members.empty() && differences.paths.empty();
    // A further state would take the place of a useful one.
    if (changesNothing && !continues) {
        m_name.clear();
        return {};
    }
    if (!continues) {
        const std::vector<unsigned> numbers = NumbersIn(m_states.Number());
        m_name = std::to_string(numbers.empty() ? 1 : numbers.back() + 1);
        m_saved = {};
        m_isNew = true;
        m_directory = OpenOwnDirectory(m_states.Number(), m_name);
        if (!m_directory)
            return CannotSave(PathOfStates() + '/' + m_name, errno);
    }
    m_facts = facts;
    for (const MemberDifference& member : differences.members) {
        if (!m_saved.members.contains(member.group))
            m_saved.members[member.group] = LocalMembers(member.group).value_or(QStringList());
    }
    Differences attempt = differences;
    ReadPages(attempt.paths, liveTree);
    Failure failure = m_isNew ? SaveRecord() : Failure();
    if (!failure)
        failure = SaveContents(attempt, liveTree);
    m_saved.attempts.push_back(std::move(attempt));
    m_saved.isComplete = false;
    if (!failure)
        failure = Write();
    if (failure)
        Discard();
    return failure;
}

void SavedStates::Complete() {
    if (m_name.empty())
        return;
    if (const Failure failure = NoteComplete(true)) {
        ReportWarning({failure->status, failure->text,
                       QStringLiteral("With --undo, this setup and the next one are undone.")});
    }
    Prune();
}

void SavedStates::Discard() {
    if (m_name.empty())
        return;
    if (m_isNew) {
        RemoveState(m_name);
        unlinkat(m_record.Private(), std::filesystem::path(PathOfStates()).filename().c_str(),
                 AT_REMOVEDIR);
    } else {
        // An attempt too many does no harm.
        m_saved.attempts.pop_back();
        Write();
    }
    m_name.clear();
}

Failure SavedStates::LoadLast() {
    bool isFound = false;
    Failure failure = Open(false);
    if (!failure && m_states)
        failure = FindLast(isFound);
    if (failure || isFound)
        return failure;
    return Problem{ExitStatus::RecordUnusable,
                   QStringLiteral("there is no saved state before a setup"),
                   QStringLiteral("Only setups as root that are prepared in private can be undone, "
                                  "and only the last %1 that changed something.")
                       .arg(keptStates)};
}

Failure SavedStates::OpenContent(StagedMachine& content) const {
    if (OpenLayers(m_directory.Number(), content))
        return {};
    return CannotUse(PathOfStates() + '/' + m_name, std::strerror(errno));
}

Failure SavedStates::NoteComplete(bool isComplete) {
    if (m_saved.isComplete == isComplete)
        return {};
    m_saved.isComplete = isComplete;
    return Write();
}

Failure SavedStates::RestoreRecord() {
    for (const auto& [isPrivate, name] : FilesOfRecord()) {
        const int directory = isPrivate ? m_record.Private() : m_record.Public();
        const bool existed = std::ranges::find(m_saved.record, name) != m_saved.record.end();
        // A killed undo may have moved it.
        const int moved =
            existed ? renameat(m_directory.Number(), name.c_str(), directory, name.c_str())
                    : unlinkat(directory, name.c_str(), 0);
        if (moved != 0 && errno != ENOENT)
            return CannotUse(PathOfStates() + '/' + m_name, std::strerror(errno));
    }
    fsync(m_record.Private());
    fsync(m_record.Public());
    RemoveState(m_name);
    m_directory = Descriptor();
    RemoveLeftovers();
    return {};
}

void SavedStates::RemoveLeftovers() {
    if (m_states) {
        for (const unsigned number : NumbersIn(m_states.Number())) {
            if (!HasState(m_states.Number(), number))
                RemoveState(std::to_string(number));
        }
        unlinkat(m_record.Private(), std::filesystem::path(PathOfStates()).filename().c_str(),
                 AT_REMOVEDIR);
    }
    m_record.RemoveIfEmpty();
}

Failure SavedStates::RemoveAll() {
    SavedStates all;
    if (Failure failure = all.Open(false))
        return failure;
    if (!all.m_states)
        return {};
    for (const unsigned number : NumbersIn(all.m_states.Number()))
        all.RemoveState(std::to_string(number));
    return {};
}

void SavedStates::RemoveState(const std::string& name) const {
    unlinkat(m_states.Number(), (name + '/' + stateFile).c_str(), 0);
    fsync(m_states.Number());
    RemovePrivateEntry(m_states.Number(), name);
}

void SavedStates::Prune() const {
    std::vector<unsigned> numbers = NumbersIn(m_states.Number());
    std::reverse(numbers.begin(), numbers.end());
    size_t count = 0;
    for (const unsigned number : numbers) {
        if (!HasState(m_states.Number(), number) || ++count > keptStates)
            RemoveState(std::to_string(number));
    }
}
