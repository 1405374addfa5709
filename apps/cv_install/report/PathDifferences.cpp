// Compares the staged machine with the live one. Other users may change the install tree meanwhile:
// every path in it is read through descriptors, and never waited for.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "installation/DirectoryNames.h"
#include "installation/Limits.h"
#include "installation/PathParts.h"
#include "installation/TimeLimit.h"
#include "installation/TreeOwners.h"
#include "record/ReplacedPages.h"
#include "report/Report.h"

namespace {

constexpr size_t mostPages = 100000;
constexpr int deepestPages = 64;

Problem RefusedPath(const QString& text, const std::string& path) {
    return {ExitStatus::TreeRefused, text.arg(QString::fromStdString(path)),
            QStringLiteral("Inspect it, move it away, then run the setup again.")};
}

std::string PathBelow(const std::string& path, const std::string& name) {
    return path + '/' + name;
}

// Opens a directory so that its names can be read.
Descriptor OpenForNames(int base, const std::string& name) {
    return Descriptor(openat(base, name.empty() ? "." : name.c_str(),
                             O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

bool HasSameOwner(const State& one, const State& other) {
    return one.owner == other.owner && one.group == other.group;
}

State WithOwnerOf(State state, const State& owner) {
    state.owner = owner.owner;
    state.group = owner.group;
    return state;
}

// At most as much of the value as an ordinary one needs, because other users may have written it.
QString ShownLimit(const Limits& limits, const QString& key) {
    constexpr qsizetype longestValue = 80;
    const auto found = limits.find(key.toLower());
    return found == limits.end() ? QStringLiteral("none") : found->second.left(longestValue);
}

std::vector<std::string> FindChangedLines(int liveTree, int stagedTree) {
    const std::optional<Limits> before = ReadLimits(liveTree);
    const std::optional<Limits> after = ReadLimits(stagedTree);
    std::vector<std::string> lines;
    if (!before || !after)
        return lines;
    for (const hx::QueueLimitsLine& line : hx::queueLimitsLines) {
        const QString key = QLatin1String(line.key);
        const QString old = ShownLimit(*before, key);
        const QString now = ShownLimit(*after, key);
        if (old != now)
            lines.push_back(QStringLiteral("%1: %2 -> %3").arg(key, old, now).toStdString());
    }
    return lines;
}

class Comparison {
public:
    Comparison(const StagedMachine& staged, int liveTree, uid_t recordedAccount,
               Differences& differences)
        : m_staged(staged),
          m_installDir(staged.installDir.toStdString()),
          m_isRoot((staged.conditions & AsRoot) != 0),
          m_liveTree(liveTree),
          m_recordedAccount(recordedAccount),
          m_paths(differences.paths),
          m_kept(differences.kept) {}

    Failure CompareTree();
    Failure CompareLayer(const Descriptor& layer, const std::string& path);
    Failure FindKept();

private:
    struct Place {
        int directory;
        std::string name;
        std::string path;  // on the live machine
        const Entry* entry;
    };

    void Add(Change change, const Place& place, const State& before, const State& after) {
        m_paths.push_back({change, place.path, before, after, place.entry});
    }

    TreeOwners OwnersAfter(const State& after) const {
        return {after.owner, after.group, m_recordedAccount};
    }

    bool IsCopy(const State& staged) const {
        return m_staged.copies.contains(static_cast<quint64>(staged.inode));
    }

    gid_t GroupBelow(const std::string& directory, gid_t group) const;
    State OnMachine(const std::string& path, State staged, const State& live) const;

    static Failure Read(const Place& place, Reading reading, State& state);
    static Failure List(const Place& place, Descriptor& directory, Names& names);

    Failure CompareEntry(const Entry& entry);
    Failure CompareDirectory(const Place& live, const State& before, const State& after);
    void CompareKeptFile(const Place& live, const State& before, const State& after);
    Failure AddCreatedBelow(const Place& staged, gid_t group);
    Failure ComparePages(const Place& live, const Place& staged, State owner);
    Failure ComparePage(const Place& live, const Place& staged, const State& owner);
    Failure CompareFormerPage(const Place& live, const State& owner);
    Failure AddOwnersBelow(const Place& live, const State& owner, int depth);
    Failure AddOwner(const Place& live, const State& owner, int depth);

    Failure CompareBelow(const Descriptor& layer, const Descriptor& live, const std::string& path);
    Failure CompareLayerEntry(const Place& layer, const Place& live);
    Failure CompareLayerDirectory(const Place& layer, const Place& live, const State& before,
                                  const State& after);
    Failure AddDeleted(const Place& live, const State& before);
    Failure AddDeletedBelow(const Place& live, const Names& kept);

    const StagedMachine& m_staged;
    const std::string m_installDir;
    const bool m_isRoot;
    const int m_liveTree;
    const uid_t m_recordedAccount;
    size_t m_pageCount = 0;
    std::vector<PathDifference>& m_paths;
    std::vector<const Entry*>& m_kept;
};

Failure Comparison::Read(const Place& place, Reading reading, State& state) {
    if (place.directory == -1)
        return {};
    const std::optional<State> found = ReadState(place.directory, place.name, reading);
    if (!found)
        return UnreadablePath(place.path, errno);
    state = *found;
    return {};
}

Failure Comparison::List(const Place& place, Descriptor& directory, Names& names) {
    directory = OpenForNames(place.directory, place.name);
    if (directory && ReadNames(directory.Number(), names))
        return {};
    return UnreadablePath(place.path, errno);
}

// The group of what a user creates in a directory of the tree: that of the directory if it has the
// setgid bit, otherwise `group`. Staged directories have the bit, but not always that group.
gid_t Comparison::GroupBelow(const std::string& directory, gid_t group) const {
    const auto staged = ReadStateAt(m_staged.tree.Number(), directory, Reading::Nothing);
    if (!staged || (staged->mode & S_ISGID) == 0)
        return group;
    if (!IsCopy(*staged) && !directory.empty())
        return GroupBelow(ParentOf(directory), group);
    const auto live = ReadStateAt(m_liveTree, directory, Reading::Nothing);
    return live ? live->group : group;
}

// What a staged entry is on the machine. What a user's setup rewrites keeps its owner.
State Comparison::OnMachine(const std::string& path, State staged, const State& live) const {
    if (m_isRoot || staged.kind == State::Kind::Missing)
        return staged;
    if (IsCopy(staged))
        return WithOwnerOf(staged, live);
    staged.group = GroupBelow(ParentOf(path), staged.group);
    return staged;
}

Failure Comparison::CompareTree() {
    // The staged link, not the condition, shows whether the earlier repository exists.
    const unsigned conditions = m_staged.conditions | WithEarlierRepository;
    for (const Entry& entry : Entries()) {
        if (!IsInTree(entry) || !Applies(entry, conditions))
            continue;
        if (Failure failure = CompareEntry(entry))
            return failure;
    }
    return {};
}

Failure Comparison::CompareEntry(const Entry& entry) {
    const std::string path = PathOf(entry, m_installDir);
    const bool isContentKept = entry.later == Later::KeepsContent;
    const std::optional<State> staged = ReadStateAt(
        m_staged.tree.Number(), entry.path, isContentKept ? Reading::Nothing : Reading::AllFiles);
    std::optional<State> found = State();
    if (staged && m_liveTree != -1)
        found = ReadStateAt(m_liveTree, entry.path,
                            isContentKept ? Reading::Nothing
                            : m_isRoot    ? Reading::PublicFiles
                                          : Reading::AllFiles);
    if (!staged || !found)
        return UnreadablePath(path, errno);
    if (staged->kind == State::Kind::Missing)
        return {};
    const State after = OnMachine(entry.path, *staged, *found);
    if (found->kind == State::Kind::Missing) {
        Add(Change::Create, {-1, "", path, &entry}, *found, after);
        return entry.ownsAllBelow
                   ? AddCreatedBelow({m_staged.tree.Number(), entry.path, path, &entry},
                                     after.group)
                   : Failure();
    }
    const Place live = {m_liveTree, entry.path, path, &entry};
    if (entry.kind == Kind::Directory)
        return CompareDirectory(live, *found, after);
    if (isContentKept) {
        CompareKeptFile(live, *found, after);
    } else if (entry.later != Later::Keeps && *found != after) {
        Add(Change::Modify, live, *found, after);
        if (entry.item == Item::QueueLimits)
            m_paths.back().changedLines = FindChangedLines(m_liveTree, m_staged.tree.Number());
    }
    return {};
}

// Another user's private directory may have been moved here.
Problem RefusePrivate(const std::string& path) {
    return RefusedPath(QStringLiteral("other users cannot read directory \"%1\""), path);
}

// Of a directory that exists, a setup as root sets only the owner, and a user's setup nothing. Both
// replace web pages of which the product has another version.
Failure Comparison::CompareDirectory(const Place& live, const State& before, const State& after) {
    if (before.kind != State::Kind::Directory)
        return RefusedPath(QStringLiteral("\"%1\" is not a directory"), live.path);
    const Place staged = {m_staged.tree.Number(), live.name, live.path, live.entry};
    const bool isReplaced = IsReplaced(*live.entry, m_staged.formerPages);
    if (!m_isRoot)
        return isReplaced ? ComparePages(live, staged, after) : Failure();
    const Takeover takeover = CheckTakeover(live.entry, before, false, OwnersAfter(after));
    if (takeover == Takeover::NotRoots || takeover == Takeover::OtherOwner)
        return RefusedPath(QStringLiteral("directory \"%1\" is owned by another user"), live.path);
    if (live.entry->owner == Owner::Root)
        return {};
    if (!HasSameOwner(before, after)) {
        if (takeover == Takeover::Private)
            return RefusePrivate(live.path);
        Add(Change::Modify, live, before, WithOwnerOf(before, after));
    }
    if (!live.entry->ownsAllBelow)
        return {};
    if (isReplaced)
        return ComparePages(live, staged, after);
    const Descriptor directory = OpenDirectory(m_liveTree, live.name);
    if (!directory)
        return UnreadablePath(live.path, errno);
    return AddOwnersBelow({directory.Number(), "", live.path, live.entry}, after, 1);
}

// The merge changes at most the mode of a file that is certainly that of an earlier setup, and
// replaces any other. An owner of an earlier setup stays.
void Comparison::CompareKeptFile(const Place& live, const State& before, const State& after) {
    if (!m_isRoot) {
        if (before != after)
            Add(Change::Modify, live, before, after);
    } else if (!IsQueueFileOfSetup(before, OwnersAfter(after))) {
        Add(Change::Modify, live, before, after);
    } else if (before.mode != after.mode) {
        State changed = before;
        changed.mode = after.mode;
        Add(Change::Modify, live, before, changed);
    }
}

// Everything below a new directory of web pages. In staging, no other user can reach it. All of a
// user's pages get the group of their directory: they are unpacked before its mode is set.
Failure Comparison::AddCreatedBelow(const Place& staged, gid_t group) {
    Names names;
    const Descriptor directory = OpenDirectory(staged.directory, staged.name);
    if (!directory || !ReadNames(directory.Number(), names))
        return UnreadablePath(staged.path, errno);
    for (const std::string& name : names) {
        const Place below = {directory.Number(), name, PathBelow(staged.path, name), staged.entry};
        State state;
        Failure failure = Read(below, Reading::AllFiles, state);
        if (failure)
            return failure;
        if (!m_isRoot)
            state.group = group;
        Add(Change::Create, below, State(), state);
        if (state.kind == State::Kind::Directory)
            failure = AddCreatedBelow(below, group);
        if (failure)
            return failure;
    }
    return {};
}

// True for what is mounted there, without asking the mounted file system, which may be a user's.
bool IsMountPoint(int directory, const std::string& name) {
    struct statx found = {};
    return statx(directory, name.c_str(),
                 AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, 0, &found) == 0 &&
           (found.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

Problem RefusedMountPoint(const std::string& path) {
    return RefusedPath(QStringLiteral("\"%1\" is a mount point"), path);
}

Problem TooManyPages(const std::string& path) {
    return RefusedPath(
        QStringLiteral("too many files or levels of directories in directory \"%1\""), path);
}

// The pages of a directory that exists, and those that the script unpacked again in staging.
Failure Comparison::ComparePages(const Place& live, const Place& staged, State owner) {
    const Descriptor from = OpenDirectory(live.directory, live.name);
    const Descriptor to = OpenDirectory(staged.directory, staged.name);
    Names before;
    Names after;
    const std::optional<State> directory = from ? ReadAttributes(from) : std::nullopt;
    if (!directory || !to || !ReadNames(from.Number(), before, mostPages + 1) ||
        !ReadNames(to.Number(), after))
        return UnreadablePath(live.path, errno);
    // As for anything that a user creates in a directory.
    if (!m_isRoot)
        owner.group = (directory->mode & S_ISGID) != 0 ? directory->group : getegid();
    m_pageCount += before.size();
    if (m_pageCount > mostPages)
        return TooManyPages(live.path);
    for (const std::string& name : after) {
        const std::string path = PathBelow(live.path, name);
        if (Failure failure = ComparePage({from.Number(), name, path, live.entry},
                                          {to.Number(), name, path, live.entry}, owner))
            return failure;
    }
    for (const std::string& name : before) {
        if (std::ranges::binary_search(after, name))
            continue;
        if (Failure failure = CompareFormerPage(
                {from.Number(), name, PathBelow(live.path, name), live.entry}, owner))
            return failure;
    }
    return {};
}

Failure Comparison::ComparePage(const Place& live, const Place& staged, const State& owner) {
    if (IsMountPoint(live.directory, live.name))
        return RefusedMountPoint(live.path);
    State before;
    State after;
    Failure failure = Read(live, m_isRoot ? Reading::PublicFiles : Reading::AllFiles, before);
    if (!failure)
        failure = Read(staged, Reading::AllFiles, after);
    if (failure)
        return failure;
    if (!m_isRoot)
        after.group = owner.group;
    if (before.kind == State::Kind::Missing) {
        Add(Change::Create, live, before, after);
        return after.kind == State::Kind::Directory ? AddCreatedBelow(staged, owner.group)
                                                    : Failure();
    }
    const bool isDirectory = after.kind == State::Kind::Directory;
    if (isDirectory != (before.kind == State::Kind::Directory)) {
        return RefusedPath(isDirectory ? QStringLiteral("\"%1\" is not a directory")
                                       : QStringLiteral("\"%1\" is a directory"),
                           live.path);
    }
    if (isDirectory) {
        if (m_isRoot && !HasSameOwner(before, after))
            Add(Change::Modify, live, before, WithOwnerOf(before, after));
        return ComparePages(live, staged, owner);
    }
    const bool isSame = before.kind == after.kind && before.digest == after.digest;
    if (!isSame)
        Add(Change::Modify, live, before, after);
    else if (m_isRoot && !HasSameOwner(before, after))
        Add(Change::Modify, live, before, WithOwnerOf(before, after));
    return {};
}

// What the product does not have: a page of the previous version, or something of another origin.
Failure Comparison::CompareFormerPage(const Place& live, const State& owner) {
    State before;
    if (Failure failure = Read(live, m_isRoot ? Reading::PublicFiles : Reading::AllFiles, before))
        return failure;
    const QString path = QString::fromStdString(live.path.substr(m_installDir.size() + 1));
    if (before.kind == State::Kind::File && !before.digest.empty() &&
        before.digest == m_staged.formerPages.value(path).toStdString()) {
        Add(Change::Delete, live, before, State());
        return {};
    }
    return m_isRoot ? AddOwner(live, owner, 1) : Failure();
}

// The owners below a directory of web pages that exists.
Failure Comparison::AddOwnersBelow(const Place& live, const State& owner, int depth) {
    Names names;
    const Descriptor directory = OpenForNames(live.directory, live.name);
    struct stat found = {};
    if (!directory || fstat(directory.Number(), &found) != 0)
        return UnreadablePath(live.path, errno);
    constexpr mode_t forAll = S_IROTH | S_IXOTH;
    if ((found.st_mode & forAll) != forAll)
        return RefusePrivate(live.path);
    if (!ReadNames(directory.Number(), names, mostPages + 1))
        return UnreadablePath(live.path, errno);
    m_pageCount += names.size();
    if (m_pageCount > mostPages || depth > deepestPages)
        return TooManyPages(live.path);
    for (const std::string& name : names) {
        const Place below = {directory.Number(), name, PathBelow(live.path, name), live.entry};
        if (Failure failure = AddOwner(below, owner, depth))
            return failure;
    }
    return {};
}

Failure Comparison::AddOwner(const Place& live, const State& owner, int depth) {
    if (IsMountPoint(live.directory, live.name))
        return RefusedMountPoint(live.path);
    State found;
    if (Failure failure = Read(live, Reading::Nothing, found))
        return failure;
    // Special files are not from a setup, and stay as they are.
    if (found.kind == State::Kind::Missing || found.kind == State::Kind::Special)
        return {};
    if (!HasSameOwner(found, owner))
        Add(Change::Modify, live, found, WithOwnerOf(found, owner));
    if (found.kind == State::Kind::Directory)
        return AddOwnersBelow(live, owner, depth + 1);
    return {};
}

// Outside the install tree, only root can write.

const Entry* EntryAt(const std::string& path) {
    const auto rows = Entries();
    const auto found = std::find_if(rows.begin(), rows.end(), [&path](const Entry& entry) {
        return !IsInTree(entry) && path == entry.path;
    });
    return found == rows.end() ? nullptr : &*found;
}

// The merge repeats these changes by the account tools.
bool IsOfAccountTools(const std::string& path) {
    const auto files = AccountFiles();
    return std::find(files.begin(), files.end(), path) != files.end();
}

bool IsDeletion(const State& state, const struct stat& found) {
    return state.kind == State::Kind::Special && S_ISCHR(found.st_mode) &&
           found.st_rdev == makedev(0, 0);
}

// True for a directory that hides all of the live one.
bool IsOpaque(const Descriptor& directory) {
    char value = '\0';
    return fgetxattr(directory.Number(), "trusted.overlay.opaque", &value, 1) == 1 && value == 'y';
}

Failure Comparison::CompareLayer(const Descriptor& layer, const std::string& path) {
    if (!layer)
        return {};
    const Descriptor live(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const Descriptor names = OpenForNames(layer.Number(), "");
    if (!live || !names)
        return UnreadablePath(path, errno);
    return CompareBelow(names, live, path);
}

Failure Comparison::CompareBelow(const Descriptor& layer, const Descriptor& live,
                                 const std::string& path) {
    Names names;
    if (!ReadNames(layer.Number(), names))
        return UnreadablePath(path, errno);
    for (const std::string& name : names) {
        const std::string below = PathBelow(path, name);
        if (IsOfAccountTools(below))
            continue;
        const Entry* entry = EntryAt(below);
        if (Failure failure = CompareLayerEntry({layer.Number(), name, below, entry},
                                                {live.Number(), name, below, entry}))
            return failure;
    }
    return {};
}

Failure Comparison::CompareLayerEntry(const Place& layer, const Place& live) {
    State before;
    State after;
    Failure failure = Read(live, Reading::AllFiles, before);
    if (!failure)
        failure = Read(layer, Reading::AllFiles, after);
    struct stat found = {};
    if (!failure && fstatat(layer.directory, layer.name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0)
        failure = UnreadablePath(layer.path, errno);
    if (failure)
        return failure;
    if (IsDeletion(after, found))
        return AddDeleted(live, before);
    if (after.kind == State::Kind::Directory)
        return CompareLayerDirectory(layer, live, before, after);
    if (before.kind == State::Kind::Directory)
        failure = AddDeletedBelow(live, {});
    if (before.kind == State::Kind::Missing)
        Add(Change::Create, live, before, after);
    else if (before != after)
        Add(Change::Modify, live, before, after);
    return failure;
}

Failure Comparison::CompareLayerDirectory(const Place& layer, const Place& live,
                                          const State& before, const State& after) {
    const bool exists = before.kind == State::Kind::Directory;
    if (before.kind == State::Kind::Missing)
        Add(Change::Create, live, before, after);
    else if (before != after)
        Add(Change::Modify, live, before, after);
    Descriptor layerBelow;
    Descriptor liveBelow;
    Names names;
    if (Failure failure = List(layer, layerBelow, names))
        return failure;
    if (exists && IsOpaque(layerBelow)) {
        if (Failure failure = AddDeletedBelow(live, names))
            return failure;
    }
    if (exists) {
        liveBelow = OpenDirectory(live.directory, live.name);
        if (!liveBelow)
            return UnreadablePath(live.path, errno);
    }
    return CompareBelow(layerBelow, liveBelow, layer.path);
}

// A directory after what is below it.
Failure Comparison::AddDeleted(const Place& live, const State& before) {
    if (before.kind == State::Kind::Missing)
        return {};
    Failure failure;
    if (before.kind == State::Kind::Directory)
        failure = AddDeletedBelow(live, {});
    Add(Change::Delete, live, before, State());
    return failure;
}

Failure Comparison::AddDeletedBelow(const Place& live, const Names& kept) {
    Names names;
    Descriptor directory;
    if (Failure failure = List(live, directory, names))
        return failure;
    for (const std::string& name : names) {
        if (std::binary_search(kept.begin(), kept.end(), name))
            continue;
        const std::string path = PathBelow(live.path, name);
        const Place below = {directory.Number(), name, path, EntryAt(path)};
        State before;
        Failure failure = Read(below, Reading::AllFiles, before);
        if (!failure)
            failure = AddDeleted(below, before);
        if (failure)
            return failure;
    }
    return {};
}

// The rows that exist and do not change.
Failure Comparison::FindKept() {
    std::set<std::string> changed;
    for (const PathDifference& difference : m_paths)
        changed.insert(difference.path);
    const Descriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const Entry& entry : Entries()) {
        const std::string path = PathOf(entry, m_installDir);
        const int base = IsInTree(entry) ? m_liveTree : root.Number();
        if (!IsStaged(entry) || !Applies(entry, m_staged.conditions) || base == -1 ||
            changed.contains(path))
            continue;
        const std::optional<State> found =
            ReadStateAt(base, IsInTree(entry) ? entry.path : entry.path + 1, Reading::Nothing);
        if (!found)
            return UnreadablePath(path, errno);
        if (found->kind != State::Kind::Missing)
            m_kept.push_back(&entry);
    }
    return {};
}

}  // namespace

Failure FindPathDifferences(const StagedMachine& staged, int liveTree, uid_t recordedAccount,
                            Differences& differences) {
    Comparison comparison(staged, liveTree, recordedAccount, differences);
    Failure failure = comparison.CompareTree();
    if (!failure)
        failure = comparison.CompareLayer(staged.etc, etcDirectory);
    if (!failure)
        failure = comparison.CompareLayer(staged.bin, binDirectory);
    if (!failure)
        failure = comparison.FindKept();
    return failure;
}
