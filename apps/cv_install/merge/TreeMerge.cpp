#include "merge/TreeMerge.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "installation/Installation.h"
#include "installation/Mounts.h"
#include "merge/Acl.h"
#include "merge/ChangedEntry.h"
#include "merge/MergePaths.h"
#include "merge/PlacedEntry.h"

namespace {

using PathDifferences = std::vector<PathDifference>;

bool IsBelow(const std::string& path, const std::string& directory) {
    return path.starts_with(directory + '/');
}

std::string DirectoryPart(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

std::string NamePart(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

bool IsQueueFile(const PathDifference& difference) {
    return difference.entry != nullptr && difference.entry->item == Item::QueueEntries;
}

// A directory that exists gets at most another owner or mode. So does a web page, because its
// content is not staged.
bool IsChangedInPlace(const PathDifference& difference, const std::string& installDir) {
    const State& before = difference.before;
    const State& after = difference.after;
    if (before.kind != after.kind)
        return false;
    if (after.kind == State::Kind::Directory)
        return true;
    return difference.entry != nullptr && difference.entry->ownsAllBelow &&
           before.digest == after.digest && before.target == after.target &&
           IsBelow(difference.path, PathOf(*difference.entry, installDir));
}

bool HasAccessOf(const State& found, const State& wanted) {
    return found.kind == wanted.kind && found.mode == wanted.mode && found.owner == wanted.owner &&
           found.group == wanted.group;
}

}  // namespace

class TreeMerge::Impl {
public:
    Impl(const StagedMachine& staged, const TreeOwners& owners)
        : m_staged(staged), m_installDir(staged.installDir.toStdString()), m_owners(owners) {}
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    Failure PlaceInTree(const PathDifferences& differences, Undo& undo);
    Failure PlaceOutside(const PathDifferences& differences, Undo& undo);
    Failure Verify() const;
    void Finish();

private:
    struct Location {
        DirectoryPointer parent;
        std::string name;
        PrivateDirectory* holder = nullptr;
    };

    bool IsTreePath(const std::string& path) const {
        return path == m_installDir || IsBelow(path, m_installDir);
    }

    Failure OpenTree();
    Failure OpenParent(const std::string& path, LiveDirectory& parent, std::string& name) const;
    Failure Locate(const std::string& path, Location& location);
    Failure FindHolder(const DirectoryPointer& parent, PrivateDirectory*& holder);
    Failure FindStaged(const PathDifference& difference, StagedEntry& staged) const;
    std::vector<const PathDifference*> WithBelow(const PathDifferences& differences,
                                                 size_t first) const;
    Failure Place(const PathDifferences& differences, size_t next, Undo& undo);
    Failure PlaceNew(const std::vector<const PathDifference*>& differences, Undo& undo);
    Failure Create(const std::vector<const PathDifference*>& differences,
                   PlacedEntry& placed) const;
    Failure PlaceQueueFile(const PathDifference& difference, Undo& undo);
    Failure ChangeInPlace(const PathDifference& difference, Undo& undo);
    Failure Delete(const PathDifference& difference, Undo& undo);

    void CleanUpOutside() const;
    Failure VerifyEntry(const NewEntry& expected, bool isCreated) const;

    const StagedMachine& m_staged;
    const std::string m_installDir;
    const TreeOwners m_owners;
    DirectoryPointer m_treeParent;
    std::string m_treeName;   // in m_treeParent
    DirectoryPointer m_tree;  // null while it does not exist
    std::map<std::string, std::unique_ptr<PrivateDirectory>> m_holders;  // by directory
    std::vector<std::shared_ptr<PlacedEntry>> m_placed;
    std::set<std::string> m_created;  // paths
    std::vector<NewEntry> m_changed;  // in place
};

// What was neither discarded nor restored goes back, whatever it is.
TreeMerge::Impl::~Impl() {
    for (const auto& placed : m_placed) {
        if (placed->isReplacing)
            placed->holder->MoveBack(placed->slot);
    }
}

Failure TreeMerge::Impl::OpenTree() {
    RootPath opened;
    if (Failure failure = OpenRootParent(m_installDir, true, opened))
        return failure;
    m_treeName = opened.name;
    m_treeParent = std::make_shared<LiveDirectory>(
        LiveDirectory{std::move(opened.parent), DirectoryPart(m_installDir)});
    PrivateDirectory::CleanUp(m_treeParent);
    auto tree = std::make_shared<LiveDirectory>();
    tree->path = m_installDir;
    tree->descriptor = OpenEntry(m_treeParent->descriptor.Number(), m_treeName, O_DIRECTORY);
    if (!tree->descriptor && errno == ENOENT)
        return {};
    if (!tree->descriptor && errno == EREMOTE)
        return RefusedInMerge(m_installDir, "is on a FUSE file system");
    if (!tree->descriptor)
        return RefusedInMerge(m_installDir, "is not a directory");
    m_tree = tree;
    if (Failure failure = FindFuseBelow(m_tree->descriptor))
        return failure;
    PrivateDirectory::CleanUp(m_tree);
    return {};
}

// Opened again each time: an entry goes where its path leads now.
Failure TreeMerge::Impl::OpenParent(const std::string& path, LiveDirectory& parent,
                                    std::string& name) const {
    parent.path = DirectoryPart(path);
    name = NamePart(path);
    if (!IsBelow(path, m_installDir)) {
        RootPath opened;
        Failure failure = OpenRootParent(path, path == m_installDir, opened);
        parent.descriptor = std::move(opened.parent);
        name = opened.name;
        return failure;
    }
    if (m_tree == nullptr)
        return RefusedInMerge(m_installDir, "is not a directory");
    const std::string below =
        parent.path == m_installDir ? "" : parent.path.substr(m_installDir.size() + 1);
    return OpenTreeDirectory(m_tree->descriptor.Number(), m_installDir, below, m_owners,
                             parent.descriptor);
}

Failure TreeMerge::Impl::Locate(const std::string& path, Location& location) {
    auto parent = std::make_shared<LiveDirectory>();
    if (Failure failure = OpenParent(path, *parent, location.name))
        return failure;
    location.parent = parent;
    // Entries cannot be exchanged between mounts. Outside of the tree, each directory has its own
    // security label.
    if (IsBelow(path, m_installDir) &&
        MountOf(parent->descriptor.Number()) == MountOf(m_tree->descriptor.Number()))
        return FindHolder(m_tree, location.holder);
    return FindHolder(parent, location.holder);
}

Failure TreeMerge::Impl::FindHolder(const DirectoryPointer& parent, PrivateDirectory*& holder) {
    std::unique_ptr<PrivateDirectory>& found = m_holders[parent->path];
    if (found == nullptr) {
        PrivateDirectory::CleanUp(parent);
        if (Failure failure = PrivateDirectory::Create(parent, found))
            return failure;
    }
    holder = found.get();
    return {};
}

Failure TreeMerge::Impl::FindStaged(const PathDifference& difference, StagedEntry& staged) const {
    const std::string& path = difference.path;
    staged.difference = &difference;
    for (const auto& [directory, base] :
         {std::pair<std::string, const Descriptor*>(m_installDir, &m_staged.tree),
          {etcDirectory, &m_staged.etc},
          {binDirectory, &m_staged.bin}}) {
        if (path == directory || IsBelow(path, directory)) {
            staged.base = base->Number();
            staged.path = path == directory ? "" : path.substr(directory.size() + 1);
            return {};
        }
    }
    return FailedInMerge(path, ENOTSUP);
}

// A difference and those below it.
std::vector<const PathDifference*> TreeMerge::Impl::WithBelow(const PathDifferences& differences,
                                                              size_t first) const {
    std::vector<const PathDifference*> found = {&differences[first]};
    for (size_t i = first + 1;
         i < differences.size() && differences[first].after.kind == State::Kind::Directory; ++i) {
        if (IsBelow(differences[i].path, differences[first].path))
            found.push_back(&differences[i]);
    }
    return found;
}

Failure TreeMerge::Impl::Create(const std::vector<const PathDifference*>& differences,
                                PlacedEntry& placed) const {
    std::vector<StagedEntry> entries(differences.size());
    for (size_t i = 0; i < differences.size(); ++i) {
        if (Failure failure = FindStaged(*differences[i], entries[i]))
            return failure;
    }
    placed.slot = placed.holder->NewSlot(placed.name);
    return CreateEntries(entries, placed.holder->New(), placed.slot, placed.created);
}

Failure TreeMerge::Impl::PlaceNew(const std::vector<const PathDifference*>& differences,
                                  Undo& undo) {
    const std::string& path = differences.front()->path;
    Location location;
    if (Failure failure = Locate(path, location))
        return failure;
    const auto placed = std::make_shared<PlacedEntry>();
    placed->parent = location.parent;
    placed->name = location.name;
    placed->holder = location.holder;
    if (Failure failure = Create(differences, *placed))
        return failure;
    for (const PathDifference* difference : differences)
        m_created.insert(difference->path);
    const Placed result = placed->holder->Place(placed->slot, differences.front()->after.kind,
                                                placed->Parent(), placed->name);
    if (result == Placed::Failed) {
        if (errno == EEXIST || errno == EISDIR)
            return RefusedInMerge(path, "cannot be replaced");
        return FailedInMerge(path, errno);
    }
    placed->isReplacing = result == Placed::Exchanged;
    m_placed.push_back(placed);
    undo.Add([placed] { TakeBack(*placed); });
    if (path == m_installDir) {
        auto tree = std::make_shared<LiveDirectory>();
        tree->path = m_installDir;
        tree->descriptor = OpenEntry(placed->Parent(), placed->name, O_DIRECTORY);
        m_tree = tree;
    }
    return {};
}

// Users append to it at any moment.
Failure TreeMerge::Impl::PlaceQueueFile(const PathDifference& difference, Undo& undo) {
    Location location;
    if (Failure failure = Locate(difference.path, location))
        return failure;
    LiveEntry entry{OpenEntry(location.parent->descriptor.Number(), location.name),
                    difference.path};
    const std::optional<State> now =
        entry.descriptor ? ReadAttributes(entry.descriptor) : std::nullopt;
    if (now && IsQueueFileOfSetup(*now, m_owners)) {
        m_changed.push_back({difference.path, *now});
        return ChangeMode(std::move(entry), difference.after.mode, m_changed.back().state, undo);
    }
    const size_t count = m_placed.size();
    if (Failure failure = PlaceNew({&difference}, undo))
        return failure;
    // Not at the end: nothing removes the former file when the setup is killed.
    PlacedEntry& placed = *m_placed[count];
    if (placed.isReplacing) {
        placed.aside = placed.holder->MoveBack(placed.slot);
        placed.isReplacing = placed.aside.empty();
    }
    return {};
}

Failure TreeMerge::Impl::ChangeInPlace(const PathDifference& difference, Undo& undo) {
    LiveDirectory parent;
    std::string name;
    if (Failure failure = OpenParent(difference.path, parent, name))
        return failure;
    LiveEntry entry{OpenEntry(parent.descriptor.Number(), name), difference.path};
    if (!entry.descriptor && errno == ENOENT)
        return RefusedInMerge(difference.path, "was removed during the setup");
    if (!entry.descriptor && errno == EREMOTE)
        return RefusedInMerge(difference.path, "is on a FUSE file system");
    if (!entry.descriptor)
        return FailedInMerge(difference.path, errno);
    entry.isMountPoint = MountOf(entry.descriptor.Number()) != MountOf(parent.descriptor.Number());
    m_changed.push_back({difference.path, {}});
    return ChangeEntry(difference, std::move(entry), m_installDir, m_owners, m_changed.back().state,
                       undo);
}

Failure TreeMerge::Impl::Delete(const PathDifference& difference, Undo& undo) {
    Location location;
    if (Failure failure = Locate(difference.path, location))
        return failure;
    const auto placed = std::make_shared<PlacedEntry>();
    placed->parent = location.parent;
    placed->name = location.name;
    placed->holder = location.holder;
    placed->slot = location.holder->NewSlot(location.name);
    const int error =
        MoveToFreeName(placed->Parent(), placed->name, placed->holder->Slots(), placed->slot);
    if (error == ENOENT)
        return {};
    if (error != 0)
        return FailedInMerge(difference.path, error);
    placed->isReplacing = true;
    m_placed.push_back(placed);
    undo.Add([placed] { TakeBack(*placed); });
    return {};
}

// Places the difference `next` and, if it is a new directory, those below it.
Failure TreeMerge::Impl::Place(const PathDifferences& differences, size_t next, Undo& undo) {
    const PathDifference& difference = differences[next];
    if (m_created.contains(difference.path))
        return {};
    if (IsQueueFile(difference))
        return PlaceQueueFile(difference, undo);
    if (IsChangedInPlace(difference, m_installDir))
        return ChangeInPlace(difference, undo);
    return PlaceNew(WithBelow(differences, next), undo);
}

Failure TreeMerge::Impl::PlaceInTree(const PathDifferences& differences, Undo& undo) {
    if (Failure failure = OpenTree())
        return failure;
    PathDifferences inTree;
    for (const PathDifference& difference : differences) {
        if (IsTreePath(difference.path))
            inTree.push_back(difference);
    }
    for (size_t next = 0; next < inTree.size(); ++next) {
        if (inTree[next].change == Change::Delete)
            return FailedInMerge(inTree[next].path, ENOTSUP);
        if (Failure failure = Place(inTree, next, undo))
            return failure;
    }
    return {};
}

// Removes what a killed setup left in the directories of the installation table.
void TreeMerge::Impl::CleanUpOutside() const {
    std::set<std::string> directories;
    for (const Entry& entry : Entries()) {
        if (!IsStaged(entry) || IsInTree(entry) ||
            !directories.insert(DirectoryPart(entry.path)).second)
            continue;
        auto parent = std::make_shared<LiveDirectory>();
        std::string name;
        if (!OpenParent(entry.path, *parent, name))
            PrivateDirectory::CleanUp(parent);
    }
}

Failure TreeMerge::Impl::PlaceOutside(const PathDifferences& differences, Undo& undo) {
    PathDifferences outside;
    std::vector<const PathDifference*> deleted;
    for (const PathDifference& difference : differences) {
        if (IsTreePath(difference.path))
            continue;
        if (difference.change == Change::Delete)
            deleted.push_back(&difference);
        else
            outside.push_back(difference);
    }
    // The commit script takes a unit that exists as enabled, also after a setup that was killed.
    std::stable_partition(outside.begin(), outside.end(), [](const PathDifference& difference) {
        return difference.entry == nullptr || difference.entry->item != Item::Unit;
    });
    CleanUpOutside();
    for (size_t next = 0; next < outside.size(); ++next) {
        if (Failure failure = Place(outside, next, undo))
            return failure;
    }
    // What is below a directory goes before it.
    std::reverse(deleted.begin(), deleted.end());
    for (const PathDifference* difference : deleted) {
        if (Failure failure = Delete(*difference, undo))
            return failure;
    }
    return {};
}

Failure TreeMerge::Impl::VerifyEntry(const NewEntry& expected, bool isCreated) const {
    LiveDirectory parent;
    std::string name;
    if (Failure failure = OpenParent(expected.path, parent, name))
        return failure;
    const Descriptor entry = OpenEntry(parent.descriptor.Number(), name);
    const std::optional<State> found = entry ? ReadAttributes(entry) : std::nullopt;
    const bool hasAcl = expected.state.kind != State::Kind::Link && isCreated;
    if (found && found->IsSameInode(expected.state) && HasAccessOf(*found, expected.state) &&
        (!hasAcl || HasLimitedAcl(entry.Number(), expected.state.owner)))
        return {};
    return RefusedInMerge(expected.path, "was changed during the setup");
}

Failure TreeMerge::Impl::Verify() const {
    if (m_tree != nullptr) {
        const std::optional<State> expected = ReadAttributes(m_tree->descriptor);
        LiveDirectory parent;
        std::string name;
        if (Failure failure = OpenParent(m_installDir, parent, name))
            return failure;
        const Descriptor entry = OpenEntry(parent.descriptor.Number(), name);
        const std::optional<State> found = entry ? ReadAttributes(entry) : std::nullopt;
        if (!expected || !found || !found->IsSameInode(*expected))
            return RefusedInMerge(m_installDir, "was changed during the setup");
    }
    for (const auto& placed : m_placed) {
        for (const NewEntry& entry : placed->created) {
            if (Failure failure = VerifyEntry(entry, true))
                return failure;
        }
    }
    for (const NewEntry& entry : m_changed) {
        if (Failure failure = VerifyEntry(entry, false))
            return failure;
    }
    return {};
}

void TreeMerge::Impl::Finish() {
    for (const auto& placed : m_placed) {
        if (placed->isReplacing)
            placed->holder->Discard(placed->slot);
        placed->isReplacing = false;
    }
    m_holders.clear();
}

TreeMerge::TreeMerge(const StagedMachine& staged, uid_t account, gid_t group, uid_t recordedAccount)
    : m_impl(std::make_unique<Impl>(staged, TreeOwners{account, group, recordedAccount})) {}

TreeMerge::~TreeMerge() = default;

Failure TreeMerge::PlaceInTree(const std::vector<PathDifference>& differences, Undo& undo) {
    return m_impl->PlaceInTree(differences, undo);
}

Failure TreeMerge::PlaceOutside(const std::vector<PathDifference>& differences, Undo& undo) {
    return m_impl->PlaceOutside(differences, undo);
}

Failure TreeMerge::Verify() const {
    return m_impl->Verify();
}

void TreeMerge::Finish() {
    m_impl->Finish();
}
