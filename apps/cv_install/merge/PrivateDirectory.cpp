#include "merge/PrivateDirectory.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "installation/DatedName.h"
#include "installation/DirectoryNames.h"
#include "installation/Installation.h"
#include "merge/Acl.h"
#include "merge/MergePaths.h"

namespace {

constexpr int mostTries = 100;
constexpr int mostPrivateNames = 1000;  // a user who is faster can take many

std::string_view NamePrefix() {
    const std::string_view path = Find(Item::PrivateDirectory).path;
    return path.substr(0, path.size() - randomPart.size());
}

bool HasPrivateName(const std::string& name) {
    return name.size() == NamePrefix().size() + randomPart.size() && name.starts_with(NamePrefix());
}

std::string RandomPrivateName() {
    static constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::array<unsigned char, randomPart.size()> bytes = {};
    std::string name(NamePrefix());
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return {};
    for (const unsigned char byte : bytes)
        name += letters[byte % letters.size()];
    return name;
}

Descriptor OpenForListing(int directory, const std::string& name) {
    return Descriptor(openat(directory, name.c_str(),
                             O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

// Those that can be read.
Names ListNames(int directory) {
    Names names;
    ReadNames(directory, names);
    return names;
}

// A directory can inherit the set-group-ID bit.
bool IsPrivate(const Descriptor& directory) {
    const std::optional<State> state = ReadAttributes(directory);
    return state && state->kind == State::Kind::Directory && state->owner == getuid() &&
           (state->mode & ~mode_t{S_ISGID}) == Find(Item::PrivateDirectory).rootMode;
}

// Removes an empty directory of `parent`, which another user may have renamed.
void RemoveEmptyDirectory(int parent, const Descriptor& directory) {
    const std::optional<State> wanted = ReadAttributes(directory);
    for (const std::string& name : ListNames(parent)) {
        const Descriptor entry = OpenEntry(parent, name, O_DIRECTORY);
        const std::optional<State> found = entry ? ReadAttributes(entry) : std::nullopt;
        if (wanted && found && found->IsSameInode(*wanted) &&
            unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0)
            return;
    }
}

// "corvane26_slot.3.resources" is of an entry "resources".
std::string NameOfSlot(const std::string& slot) {
    return slot.substr(slot.find('.', slotPrefix.size()) + 1);
}

std::string MoveBackTo(const LiveDirectory& parent, int slotDirectory, const std::string& slot) {
    const std::string name = NameOfSlot(slot);
    std::string dated = MoveToDatedName(slotDirectory, slot, parent.descriptor.Number(), name);
    if (!dated.empty()) {
        WarnOfDatedName(name, parent.path + '/' + dated);
        return dated;
    }
    ReportWarning({ExitStatus::Complete,
                   QStringLiteral("cannot restore \"%1\": %2")
                       .arg(QString::fromStdString(parent.path + '/' + name),
                            QString::fromUtf8(std::strerror(errno))),
                   QStringLiteral("Inspect the directories \"%1\".")
                       .arg(QLatin1String(Find(Item::PrivateDirectory).path))});
    return {};
}

void DiscardSlot(const LiveDirectory& parent, int slotDirectory, const std::string& slot) {
    if (unlinkat(slotDirectory, slot.c_str(), 0) == 0 || errno == ENOENT ||
        unlinkat(slotDirectory, slot.c_str(), AT_REMOVEDIR) == 0)
        return;
    MoveBackTo(parent, slotDirectory, slot);
}

void CleanUpPrivate(const LiveDirectory& parent, const std::string& name) {
    const Descriptor directory = OpenEntry(parent.descriptor.Number(), name, O_DIRECTORY);
    if (!directory || !IsPrivate(directory))
        return;
    Names names;
    if (!ReadNames(directory.Number(), names))
        return;
    // Another directory of this user's that someone renamed like a private one.
    const bool isOurs = std::all_of(names.begin(), names.end(), [](const std::string& each) {
        return each == newEntriesName || each.starts_with(slotPrefix);
    });
    if (!isOurs)
        return;
    for (const std::string& each : names) {
        // Jobs of users are never removed.
        if (each == newEntriesName)
            RemovePrivateEntry(directory.Number(), each);
        else if (HasJobs(directory.Number(), each))
            MoveBackTo(parent, directory.Number(), each);
        else
            DiscardSlot(parent, directory.Number(), each);
    }
    RemoveEmptyDirectory(parent.descriptor.Number(), directory);
}

// Without RENAME_EXCHANGE: what is there gets another hard link there, before the entry of
// the slot replaces it. Directories cannot have one.
bool ReplaceByRename(int slotDirectory, const std::string& slot, int directory,
                     const std::string& name) {
    const std::string former = std::string(slotPrefix) + "former." + NameOfSlot(slot);
    if (linkat(directory, name.c_str(), slotDirectory, former.c_str(), 0) != 0) {
        if (errno == EPERM)
            errno = EISDIR;
        return false;
    }
    if (renameat(slotDirectory, slot.c_str(), directory, name.c_str()) == 0)
        return renameat(slotDirectory, former.c_str(), slotDirectory, slot.c_str()) == 0;
    const int error = errno;
    unlinkat(slotDirectory, former.c_str(), 0);
    errno = error;
    return false;
}

}  // namespace

Placed ExchangeOrMove(int slotDirectory, const std::string& slot, int directory,
                      const std::string& name) {
    for (int tries = 0; tries < mostTries; ++tries) {
        if (renameat2(slotDirectory, slot.c_str(), directory, name.c_str(), RENAME_EXCHANGE) == 0 ||
            (CannotRenameWithFlags() && ReplaceByRename(slotDirectory, slot, directory, name)))
            return Placed::Exchanged;
        if (errno != ENOENT)
            return Placed::Failed;
        const int error = MoveToFreeName(slotDirectory, slot, directory, name);
        if (error == 0)
            return Placed::Free;
        errno = error;
        if (error != EEXIST)
            return Placed::Failed;
    }
    return Placed::Failed;
}

bool HasJobs(int slotDirectory, const std::string& slot) {
    struct stat file = {};
    return NameOfSlot(slot) == Find(Item::QueueEntries).path &&
           fstatat(slotDirectory, slot.c_str(), &file, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(file.st_mode) && file.st_size > 0;
}

void RemovePrivateEntry(int directory, const std::string& name) {
    if (unlinkat(directory, name.c_str(), 0) == 0)
        return;
    const Descriptor opened = OpenForListing(directory, name);
    if (!opened)
        return;
    for (const std::string& each : ListNames(opened.Number()))
        RemovePrivateEntry(opened.Number(), each);
    unlinkat(directory, name.c_str(), AT_REMOVEDIR);
}

PrivateDirectory::PrivateDirectory(DirectoryPointer parent, Descriptor directory)
    : m_parent(std::move(parent)), m_directory(std::move(directory)) {}

Failure PrivateDirectory::Create(const DirectoryPointer& parent,
                                 std::unique_ptr<PrivateDirectory>& created) {
    const mode_t mode = Find(Item::PrivateDirectory).rootMode;
    const int where = parent->descriptor.Number();
    errno = EEXIST;
    for (int tries = 0; tries < mostPrivateNames; ++tries) {
        const std::string name = RandomPrivateName();
        if (name.empty() || (mkdirat(where, name.c_str(), mode) != 0 && errno != EEXIST))
            return FailedInMerge(parent->path, errno);
        // By now another user may have replaced it.
        Descriptor directory = OpenEntry(where, name, O_DIRECTORY);
        Names names;
        if (!directory || !IsPrivate(directory) || !ReadNames(directory.Number(), names) ||
            !names.empty())
            continue;
        created.reset(new PrivateDirectory(parent, std::move(directory)));
        if (mkdirat(created->Slots(), newEntriesName, mode) != 0)
            return FailedInMerge(parent->path, errno);
        created->m_new = OpenForListing(created->Slots(), newEntriesName);
        if (created->m_new)
            return {};
        return FailedInMerge(parent->path, errno);
    }
    return RefusedInMerge(parent->path, "changes all the time");
}

PrivateDirectory::~PrivateDirectory() {
    RemovePrivateEntry(m_directory.Number(), newEntriesName);
    RemoveEmptyDirectory(m_parent->descriptor.Number(), m_directory);
}

std::string PrivateDirectory::NewSlot(const std::string& name) {
    constexpr size_t longestName = 200;  // leaves space for the prefix and the date
    return std::string(slotPrefix) + std::to_string(++m_slots) + '.' + name.substr(0, longestName);
}

Placed PrivateDirectory::Place(const std::string& slot, State::Kind kind, int directory,
                               const std::string& name) {
    if (kind == State::Kind::Directory) {
        errno = MoveToFreeName(New(), slot, directory, name);
        return errno == 0 ? Placed::Free : Placed::Failed;
    }
    if (renameat(New(), slot.c_str(), Slots(), slot.c_str()) != 0)
        return Placed::Failed;
    const Placed result = ExchangeOrMove(Slots(), slot, directory, name);
    if (result == Placed::Failed) {
        const int error = errno;
        unlinkat(Slots(), slot.c_str(), 0);
        errno = error;
    }
    return result;
}

void PrivateDirectory::Discard(const std::string& slot) {
    DiscardSlot(*m_parent, m_directory.Number(), slot);
}

std::string PrivateDirectory::MoveBack(const std::string& slot) {
    return MoveBackTo(*m_parent, m_directory.Number(), slot);
}

void PrivateDirectory::CleanUp(const DirectoryPointer& parent) {
    for (const std::string& name : ListNames(parent->descriptor.Number())) {
        if (HasPrivateName(name))
            CleanUpPrivate(*parent, name);
    }
}
