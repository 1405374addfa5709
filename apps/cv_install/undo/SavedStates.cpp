#include "undo/SavedStates.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "WriteAll.h"
#include "installation/DirectoryNames.h"
#include "installation/TreeCheck.h"
#include "merge/AccountNumber.h"
#include "merge/Accounts.h"
#include "merge/MergePaths.h"
#include "merge/PrivateDirectory.h"

namespace {

constexpr size_t keptStates = 3;
constexpr const char* stateFile = "state";
constexpr const char* newStateFile = "state.new";
constexpr const char* firstState = "first";
constexpr off_t largestState = off_t{64} << 20;

Problem CannotSave(const std::string& path, int error) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot save \"%1\" for --undo: %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(error))),
            QStringLiteral("Fix the cause, then run the setup again.")};
}

// Unlike a damaged state, one that cannot be read now may be useful.
Problem CannotList(const std::string& path, int error) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot list saved states \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(error))),
            QStringLiteral("Fix the cause, then run the command again.")};
}

bool IsAboutDamage(const Failure& failure) {
    return failure && failure->status == ExitStatus::RecordUnusable;
}

Problem CannotUse(const std::string& path, const char* reason) {
    return {ExitStatus::RecordUnusable,
            QStringLiteral("cannot use saved state \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(reason)),
            QStringLiteral("To go back, run the setup with the former answers.")};
}

// What cannot be read now may be read later.
Problem CannotOpen(const std::string& path, int error) {
    if (error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENXIO || error == EIO)
        return CannotUse(path, std::strerror(error));
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot read \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(error))),
            QStringLiteral("Fix the cause, then run the command again.")};
}

// The undo was complete up to here.
Problem CannotPutBack(const std::string& name, int error) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot restore file \"%1\" of the record: %2")
                .arg(QString::fromStdString(name), QString::fromUtf8(std::strerror(error))),
            QStringLiteral("Fix the cause, then run the undo again.")};
}

Problem CannotForget(const std::string& name, int error) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot remove file \"%1\" of the record: %2")
                .arg(QString::fromStdString(name), QString::fromUtf8(std::strerror(error))),
            QStringLiteral("Fix the cause, then run the removal again.")};
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

bool OpenLayers(int directory, const QString& installDir, StagedMachine& layers) {
    layers.installDir = installDir;
    layers.tree = OpenOwnDirectory(directory, "tree", modeOfLayers);
    layers.etc = OpenOwnDirectory(directory, "etc", modeOfLayers);
    layers.bin = OpenOwnDirectory(directory, "bin", modeOfLayers);
    return layers.tree && layers.etc && layers.bin;
}

// The numbers of the states, in order. Returns the error if it cannot list them all.
int ListNumbers(int states, std::vector<unsigned>& numbers) {
    Names names;
    const int error = ReadNames(states, names) ? 0 : errno;
    for (const std::string& name : names) {
        id_t number = 0;
        if (ParseNumber(name, number))
            numbers.push_back(number);
    }
    std::sort(numbers.begin(), numbers.end());
    return error;
}

// Those that can be listed.
std::vector<unsigned> NumbersIn(int states) {
    std::vector<unsigned> numbers;
    ListNumbers(states, numbers);
    return numbers;
}

bool HasState(int states, const std::string& name) {
    const std::string path = name + '/' + stateFile;
    // Reading one on a damaged disk reports that.
    return faccessat(states, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

Descriptor OpenDirectoryOfState(int states, const std::string& name) {
    return Descriptor(
        openat(states, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
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
    const std::optional<FileContent> content = ReadContent(
        isInTree ? liveTree : root.Number(), isInTree ? place.path : difference.path.substr(1),
        ReadingOfSaved(difference.entry, isInTree));
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

// Writes a file to the disk.
bool WriteNew(int directory, const std::string& name, const QByteArray& bytes, mode_t mode) {
    // A killed setup may have left it.
    unlinkat(directory, name.c_str(), 0);
    const Descriptor file(openat(directory, name.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    return file &&
           WriteAll(file.Number(), {bytes.constData(), static_cast<size_t>(bytes.size())}) == 0 &&
           fchmod(file.Number(), mode) == 0 && fsync(file.Number()) == 0;
}

// Some file systems have no hard links.
bool LinkOrCopy(int from, const std::string& file, int to, const std::string& copy) {
    if (linkat(from, file.c_str(), to, copy.c_str(), 0) == 0)
        return true;
    if (errno != EPERM && errno != EOPNOTSUPP)
        return false;
    const std::optional<FileContent> content = ReadContent(from, file, Reading::AllFiles);
    const std::optional<State> found = ReadStateAt(from, file, Reading::Nothing);
    return content && found && content->refusal == nullptr &&
           WriteNew(to, copy, content->bytes, found->mode);
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
        directory = OpenOwnDirectory(directory.Number(), part, modeOfLayers);
        if (!directory)
            return CannotSave(difference.path, errno);
    }
    // --diff shows only what other users can read.
    const mode_t mode = difference.before.mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    if (!WriteNew(directory.Number(), name, bytes, mode) || fsync(directory.Number()) != 0)
        return CannotSave(difference.path, errno);
    return {};
}

// Of a web page, a setup changes only the owner, and does not read it. It comes back as a new file.
Failure ReadPages(std::vector<PathDifference>& paths, int liveTree) {
    const std::string top = std::string(sharedDirectory) + '/';
    for (PathDifference& difference : paths) {
        if (difference.change != Change::Modify || !difference.before.digest.empty() ||
            difference.before.kind != State::Kind::File || difference.entry == nullptr ||
            !difference.entry->ownsAllBelow)
            continue;
        const auto found = ReadStateAt(liveTree, difference.path.substr(top.size()));
        if (!found)
            return CannotSave(difference.path, errno);
        difference.before.digest = found->digest;
        difference.after.digest = found->digest;
    }
    return {};
}

// Copies a file of the record. It stays where it is, as a killed undo is repeated.
bool PutBack(int from, const std::string& name, int directory, const std::string& target) {
    const std::string newName = target + newSuffix;
    // A killed undo may have left it. A rename to another link of the same file leaves it, too.
    unlinkat(directory, newName.c_str(), 0);
    if (!LinkOrCopy(from, name, directory, newName) ||
        renameat(directory, newName.c_str(), directory, target.c_str()) != 0)
        return false;
    unlinkat(directory, newName.c_str(), 0);
    return true;
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

// The file, and its name in a saved state.
struct RecordFile {
    int directory;
    std::string path;
    std::string name;
};

// A verification leaves a file without a setup, too.
bool HasRecordOfSetup(const SavedSetup& saved) {
    return std::ranges::any_of(saved.record, [](const std::string& name) {
        return name == std::filesystem::path(Find(Item::Manifest).path).filename() ||
               name == std::filesystem::path(Find(Item::RecordedAnswers).path).filename();
    });
}

Failure SaveContents(const Differences& differences, const OpenState& state,
                     const StagedMachine& layers, int liveTree) {
    const std::vector<SavedPath> known = PathsOf(state.saved);
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

Failure SaveMembers(const std::vector<MemberDifference>& changes,
                    std::map<std::string, QStringList>& saved) {
    for (const MemberDifference& change : changes) {
        std::optional<QStringList> members;
        if (saved.contains(change.group))
            continue;
        if (Failure failure = ReadLocalMembers(change.group, members))
            return failure;
        saved[change.group] = members.value_or(QStringList());
    }
    return {};
}

bool ChangesNothing(const Differences& attempt) {
    return attempt.accounts.empty() && attempt.members.empty() && attempt.paths.empty();
}

}  // namespace

SavedStates::SavedStates(const QString& installDir)
    : m_installDir(installDir), m_record(installDir) {}

std::string SavedStates::PathOfStates() const {
    return Path().toStdString();
}

Failure SavedStates::CompleteAttempt(SavedSetup& saved) const {
    if (saved.isResultKnown || saved.attempts.empty())
        return {};
    Descriptor tree;
    Failure failure = OpenInstallDirectory(m_installDir, tree);
    if (!failure)
        failure = CompleteSnapshot(saved.members, m_installDir.toStdString(), tree.Number(),
                                   saved.attempts.back());
    if (!failure)
        saved.isResultKnown = true;
    return failure;
}

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
        return creates ? CannotSave(PathOfStates(), errno) : CannotOpen(PathOfStates(), errno);
    return {};
}

Failure SavedStates::Load(const std::string& name, OpenState& state, bool& isFound) const {
    isFound = HasState(m_states.Number(), name);
    if (!isFound)
        return {};
    state.name = name;
    const std::string path = PathOfStates() + '/' + name;
    state.directory = OpenDirectoryOfState(m_states.Number(), name);
    if (!state.directory)
        return CannotOpen(path, errno);
    const Descriptor opened(openat(state.directory.Number(), stateFile,
                                   O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat found = {};
    if (!opened || fstat(opened.Number(), &found) != 0)
        return CannotOpen(path, errno);
    QFile file;
    const bool isReadable = S_ISREG(found.st_mode) && found.st_size <= largestState &&
                            file.open(opened.Number(), QIODevice::ReadOnly);
    const std::optional<ParsedRecord> text =
        isReadable ? ParseRecordText(file.readAll()) : std::nullopt;
    std::optional<SavedSetup> saved =
        text ? ParseSavedSetup(text->body, m_installDir.toStdString()) : std::nullopt;
    if (!saved)
        return CannotUse(path, "it is damaged");
    state.facts = text->facts;
    if (IsOfOtherMachine(state.facts))
        return CannotUse(path, "it is from another machine");
    state.saved = std::move(*saved);
    return CompleteAttempt(state.saved);
}

Failure SavedStates::FindLast(OpenState& last, bool& isFound) const {
    std::vector<unsigned> numbers;
    isFound = false;
    if (const int error = ListNumbers(m_states.Number(), numbers))
        return CannotList(PathOfStates(), error);
    std::erase_if(
        numbers, [&](unsigned each) { return !HasState(m_states.Number(), std::to_string(each)); });
    isFound = !numbers.empty();
    return isFound ? Load(std::to_string(numbers.back()), last, isFound) : Failure();
}

Failure SavedStates::Create(const std::string& name, OpenState& state) const {
    state = {};
    state.name = name;
    state.isNew = true;
    state.directory = OpenOwnDirectory(m_states.Number(), name);
    return state.directory ? Failure() : CannotSave(PathOfStates() + '/' + name, errno);
}

Failure SavedStates::Write(const OpenState& state) const {
    const QByteArray text = RecordText("# State before a setup", state.facts, TextOf(state.saved));
    const int directory = state.directory.Number();
    if (text.size() > largestState)
        return CannotSave(PathOfStates() + '/' + state.name + '/' + stateFile, EFBIG);
    if (!WriteNew(directory, newStateFile, text, S_IRUSR | S_IWUSR) ||
        renameat(directory, newStateFile, directory, stateFile) != 0 || fsync(directory) != 0) {
        const int error = errno;
        unlinkat(directory, newStateFile, 0);
        return CannotSave(PathOfStates() + '/' + state.name + '/' + stateFile, error);
    }
    return {};
}

// The state before the first setup is part of the record of that time.
Failure SavedStates::SaveRecord(OpenState& state) const {
    std::vector<RecordFile> files;
    for (const auto& [isPrivate, name] : FilesOfRecord())
        files.push_back({isPrivate ? m_record.Private() : m_record.Public(), name, name});
    files.push_back({m_states.Number(), std::string(firstState) + '/' + stateFile, firstState});
    for (const RecordFile& file : files) {
        if (LinkOrCopy(file.directory, file.path, state.directory.Number(), file.name))
            state.saved.record.push_back(file.name);
        else if (errno != ENOENT)
            return CannotSave(PathOfStates() + '/' + state.name + '/' + file.name, errno);
    }
    return {};
}

Failure SavedStates::AddAttempt(const SetupFacts& facts, const Differences& attempt,
                                bool isResultKnown, int liveTree, OpenState& state) const {
    state.formerFacts = std::exchange(state.facts, facts);
    StagedMachine layers;
    Failure failure = SaveMembers(attempt.members, state.saved.members);
    if (!failure && !OpenLayers(state.directory.Number(), m_installDir, layers))
        failure = CannotSave(PathOfStates(), errno);
    if (!failure)
        failure = SaveContents(attempt, state, layers, liveTree);
    state.saved.attempts.push_back(attempt);
    state.saved.isResultKnown = isResultKnown;
    state.saved.isInPlace = state.saved.isInPlace || !isResultKnown;
    state.wasComplete = state.saved.isComplete;
    state.saved.isComplete = false;
    return failure ? failure : Write(state);
}

// A record without this state is one of setups that did not save theirs. What is damaged is
// reported when it is used.
Failure SavedStates::BeginFirst(const SetupFacts& facts, const Differences& attempt,
                                bool isResultKnown, int liveTree) {
    bool isFound = false;
    Failure failure = Load(firstState, m_first, isFound);
    if (failure || (!isFound && HasRecordOfSetup(m_state.saved))) {
        m_first = {};
        return IsAboutDamage(failure) ? Failure() : failure;
    }
    failure = isFound ? Failure() : Create(firstState, m_first);
    return failure ? failure : AddAttempt(facts, attempt, isResultKnown, liveTree, m_first);
}

Failure SavedStates::Begin(const SetupFacts& facts, const Differences& differences, int liveTree) {
    if (Failure failure = Open(true))
        return failure;
    Differences attempt = differences;
    if (Failure failure = ReadPages(attempt.paths, liveTree))
        return failure;
    return BeginAttempt(facts, attempt, true, liveTree);
}

Failure SavedStates::BeginInPlace(const SetupFacts& facts, const SetupInPlace& setup) {
    Descriptor tree;
    Differences snapshot;
    Failure failure = Open(true);
    if (!failure && !m_states)
        return {};
    if (!failure)
        failure = OpenInstallDirectory(m_installDir, tree);
    if (!failure)
        failure = ReadSnapshot(setup, tree.Number(), snapshot);
    return failure ? failure : BeginAttempt(facts, snapshot, false, tree.Number());
}

// A cloned machine has those of the original, which is another machine.
void SavedStates::RemoveForeign(const std::vector<unsigned>& numbers) const {
    std::vector<std::string> names = {firstState};
    for (const unsigned number : numbers)
        names.push_back(std::to_string(number));
    for (const std::string& name : names) {
        OpenState state;
        bool isFound = false;
        if (Load(name, state, isFound) && IsOfOtherMachine(state.facts))
            RemoveState(name);
    }
}

Failure SavedStates::BeginAttempt(const SetupFacts& facts, const Differences& attempt,
                                  bool isResultKnown, int liveTree) {
    std::vector<unsigned> numbers;
    if (const int error = ListNumbers(m_states.Number(), numbers))
        return CannotList(PathOfStates(), error);
    RemoveForeign(numbers);
    bool isFound = false;
    Failure failure = FindLast(m_state, isFound);
    if (failure && !IsAboutDamage(failure))
        return failure;
    const bool continues = isFound && !failure && !m_state.saved.isComplete;
    // A further state would take the place of a useful one.
    if (ChangesNothing(attempt) && !continues) {
        m_state = {};
        return {};
    }
    failure = {};
    if (!continues) {
        failure = Create(std::to_string(numbers.empty() ? 1 : numbers.back() + 1), m_state);
        if (failure)
            return failure;
        failure = SaveRecord(m_state);
    }
    if (!failure)
        failure = AddAttempt(facts, attempt, isResultKnown, liveTree, m_state);
    else
        m_state.saved.attempts.push_back(attempt);
    if (!failure)
        failure = BeginFirst(facts, attempt, isResultKnown, liveTree);
    if (failure)
        Discard();
    return failure;
}

void SavedStates::Complete() {
    if (m_state.name.empty())
        return;
    Failure failure = CompleteAttempt(m_state.saved);
    if (!failure)
        failure = CompleteAttempt(m_first.saved);
    if (!failure && m_state.isNew && ChangesNothing(m_state.saved.attempts.back())) {
        Discard();
        return;
    }
    if (!failure && !m_first.name.empty()) {
        Collapse(m_first.saved);
        m_first.saved.isComplete = true;
        failure = Write(m_first);
    }
    if (!failure)
        failure = NoteComplete(true);
    if (failure) {
        ReportWarning({failure->status, failure->text,
                       QStringLiteral("The next setup is added to the same state: --undo then "
                                      "undoes both.")});
        return;
    }
    Prune();
}

// Otherwise whoever loads the states completes the attempt.
void SavedStates::NoteFailed() {
    const bool isCompleted = !CompleteAttempt(m_state.saved) && !CompleteAttempt(m_first.saved);
    if (isCompleted && m_state.isNew && ChangesNothing(m_state.saved.attempts.back())) {
        Discard();
        return;
    }
    for (const OpenState* state : {&m_state, &m_first}) {
        if (isCompleted && !state->name.empty())
            Write(*state);
    }
}

// If this write fails, the extra attempt is harmless: its states only widen what counts as ours.
void SavedStates::RemoveAttempt(OpenState& state) const {
    if (state.isNew) {
        RemoveState(state.name);
    } else if (!state.name.empty()) {
        state.saved.attempts.pop_back();
        state.saved.isComplete = state.wasComplete;
        state.saved.isResultKnown = true;
        state.facts = state.formerFacts;
        Write(state);
    }
    state = {};
}

void SavedStates::Discard() {
    if (m_state.name.empty())
        return;
    RemoveAttempt(m_first);
    RemoveAttempt(m_state);
    RemoveDirectory();
}

Failure SavedStates::LoadUnfinished(bool includesStaged, bool& isFound) {
    isFound = false;
    Failure failure = Open(false);
    if (!failure && m_states)
        failure = FindLast(m_state, isFound);
    isFound = isFound && !failure && !m_state.saved.isComplete &&
              (includesStaged || m_state.saved.isInPlace);
    return failure;
}

Failure SavedStates::LoadLast() {
    bool isFound = false;
    Failure failure = Open(false);
    if (!failure && m_states)
        failure = FindLast(m_state, isFound);
    if (!failure && isFound && m_state.saved.isComplete)
        failure = FindInterruptedRemoval();
    if (failure || isFound)
        return failure;
    return Problem{ExitStatus::RecordUnusable,
                   QStringLiteral("nothing can be undone: no state is saved"),
                   QStringLiteral("Only the last %1 setups that changed something can be undone.")
                       .arg(keptStates)};
}

// A setup completes the state before the first one earlier than its own, so only a removal leaves
// it incomplete.
Failure SavedStates::FindInterruptedRemoval() const {
    OpenState first;
    bool isFound = false;
    if (Load(firstState, first, isFound) || !isFound || first.saved.isComplete)
        return {};
    return Problem{ExitStatus::RecordUnusable,
                   QStringLiteral("nothing can be undone: a removal did not run to its end"),
                   QStringLiteral("Run the removal again, or run the setup.")};
}

Failure SavedStates::LoadFirst(bool& isFound) {
    isFound = false;
    Failure failure = Open(false);
    if (failure || !m_states)
        return failure;
    OpenState last;
    bool isLastFound = false;
    failure = FindLast(last, isLastFound);
    if (failure && !IsAboutDamage(failure))
        return failure;
    if (failure || (isLastFound && last.saved.isComplete))
        isLastFound = false;
    failure = Load(firstState, m_state, isFound);
    if (failure || !isLastFound)
        return failure;
    // A setup or its undo was interrupted.
    if (isFound) {
        m_state.saved.isComplete = false;
        m_state.saved.attempts.insert(m_state.saved.attempts.end(), last.saved.attempts.begin(),
                                      last.saved.attempts.end());
    } else if (!HasRecordOfSetup(last.saved)) {
        m_state = std::move(last);
        isFound = true;
    }
    return {};
}

Failure SavedStates::OpenContent(StagedMachine& content) const {
    if (OpenLayers(m_state.directory.Number(), m_installDir, content))
        return {};
    return CannotOpen(PathOfStates() + '/' + m_state.name, errno);
}

Failure SavedStates::NoteComplete(bool isComplete) {
    if (m_state.saved.isComplete == isComplete)
        return {};
    m_state.saved.isComplete = isComplete;
    return Write(m_state);
}

bool SavedStates::RestoreFirst() {
    const auto& record = m_state.saved.record;
    if (std::ranges::find(record, firstState) == record.end()) {
        RemoveState(firstState);
        return true;
    }
    const Descriptor first = OpenOwnDirectory(m_states.Number(), firstState);
    return PutBack(m_state.directory.Number(), firstState, first.Number(), stateFile) &&
           fsync(first.Number()) == 0;
}

Failure SavedStates::RestoreRecord() {
    for (const auto& [isPrivate, name] : FilesOfRecord()) {
        const int directory = isPrivate ? m_record.Private() : m_record.Public();
        const auto& record = m_state.saved.record;
        const bool existed = std::ranges::find(record, name) != record.end();
        const bool isRestored = existed
                                    ? PutBack(m_state.directory.Number(), name, directory, name)
                                    : unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT;
        if (!isRestored)
            return CannotPutBack(name, errno);
    }
    if (!RestoreFirst() || fsync(m_record.Private()) != 0 || fsync(m_record.Public()) != 0)
        return CannotPutBack(firstState, errno);
    RemoveState(m_state.name);
    m_state = {};
    RemoveLeftovers();
    return {};
}

void SavedStates::RemoveDirectory() const {
    unlinkat(m_record.Private(), std::filesystem::path(PathOfStates()).filename().c_str(),
             AT_REMOVEDIR);
}

void SavedStates::RemoveLeftovers() {
    if (m_states) {
        for (const unsigned number : NumbersIn(m_states.Number())) {
            if (!HasState(m_states.Number(), std::to_string(number)))
                RemoveState(std::to_string(number));
        }
        if (!HasState(m_states.Number(), firstState))
            RemoveState(firstState);
        RemoveDirectory();
    }
    m_record.RemoveIfEmpty();
}

void SavedStates::RemoveNumbered() const {
    for (const unsigned number : NumbersIn(m_states.Number()))
        RemoveState(std::to_string(number));
}

Failure SavedStates::KeepFirst(const SetupFacts& facts, const SavedSetup& remaining) {
    Failure failure = Open(true);
    const bool isNew = m_state.name != firstState;
    if (!failure && isNew)
        failure = Create(firstState, m_state);
    if (failure)
        return failure;
    // Killed from here on, the removal is repeated. With the manifest, a repair would undo it.
    for (const auto& [isPrivate, name] : FilesOfRecord()) {
        if (!isPrivate && unlinkat(m_record.Public(), name.c_str(), 0) != 0 && errno != ENOENT)
            return CannotForget(name, errno);
    }
    if (fsync(m_record.Public()) != 0)
        return CannotForget(stateFile, errno);
    RemoveNumbered();
    m_state.facts = facts;
    m_state.saved = remaining;
    // Their content is not in this state.
    for (Differences& attempt : m_state.saved.attempts) {
        std::erase_if(attempt.paths, [&](const PathDifference& each) {
            return isNew && each.before.kind == State::Kind::File;
        });
    }
    Collapse(m_state.saved);
    return Write(m_state);
}

Failure SavedStates::RemoveRecord() {
    if (Failure failure = Open(false))
        return failure;
    for (const auto& [isPrivate, name] : FilesOfRecord()) {
        const int directory = isPrivate ? m_record.Private() : m_record.Public();
        if (directory != -1 && unlinkat(directory, name.c_str(), 0) != 0 && errno != ENOENT)
            return CannotForget(name, errno);
    }
    if (m_states) {
        RemoveNumbered();
        RemoveState(firstState);
        RemoveDirectory();
    }
    m_record.RemoveIfEmpty();
    return {};
}

void SavedStates::RemoveState(const std::string& name) const {
    const Descriptor state = OpenDirectoryOfState(m_states.Number(), name);
    unlinkat(state.Number(), stateFile, 0);
    fsync(state.Number());
    RemovePrivateEntry(m_states.Number(), name);
}

void SavedStates::Prune() const {
    std::vector<unsigned> numbers = NumbersIn(m_states.Number());
    std::reverse(numbers.begin(), numbers.end());
    size_t count = 0;
    for (const unsigned number : numbers) {
        const std::string name = std::to_string(number);
        if (!HasState(m_states.Number(), name) || ++count > keptStates)
            RemoveState(name);
    }
}
