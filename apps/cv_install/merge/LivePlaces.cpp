#include "merge/LivePlaces.h"

#include <fcntl.h>

#include <cerrno>
#include <set>

#include "installation/Installation.h"
#include "installation/Mounts.h"

LivePlaces::LivePlaces(std::string installDir, const TreeOwners& owners, bool isExact)
    : m_installDir(std::move(installDir)), m_owners(owners), m_isExact(isExact) {}

// Opens the directory that contains the install directory or a path outside of it.
Failure LivePlaces::OpenAbove(const std::string& path, bool followsLast, RootPath& opened) const {
    return m_owners.isPrivateCopy ? OpenUserParent(path, opened)
                                  : OpenRootParent(path, followsLast, opened);
}

Failure LivePlaces::OpenTree(bool refusesFuse) {
    RootPath opened;
    if (Failure failure = OpenAbove(m_installDir, !m_isExact, opened))
        return failure;
    const auto parent = std::make_shared<LiveDirectory>(
        LiveDirectory{std::move(opened.parent), ParentOf(m_installDir)});
    PrivateDirectory::CleanUp(parent);
    auto tree = std::make_shared<LiveDirectory>();
    tree->path = m_installDir;
    tree->descriptor = OpenEntry(parent->descriptor.Number(), opened.name, O_DIRECTORY);
    const bool isOther = !tree->descriptor && (errno == ENOTDIR || errno == ELOOP);
    if (!tree->descriptor && (errno == ENOENT || (isOther && m_isExact)))
        return {};
    if (!tree->descriptor && errno == EREMOTE)
        return RefusedInMerge(m_installDir, "is on a FUSE file system");
    if (!tree->descriptor)
        return RefusedInMerge(m_installDir, "is not a directory");
    m_tree = tree;
    Failure failure = refusesFuse ? FindFuseBelow(m_tree->descriptor) : Failure();
    if (failure)
        return failure;
    PrivateDirectory::CleanUp(m_tree);
    return {};
}

void LivePlaces::OpenNewTree(const LivePlace& place) {
    auto tree = std::make_shared<LiveDirectory>();
    tree->path = m_installDir;
    tree->descriptor = OpenEntry(place.Parent(), place.name, O_DIRECTORY);
    m_tree = tree;
}

bool LivePlaces::IsInTree(const std::string& path) const {
    return path == m_installDir || IsBelow(path, m_installDir);
}

Failure LivePlaces::OpenParent(const std::string& path, LiveDirectory& parent,
                               std::string& name) const {
    parent.path = ParentOf(path);
    name = BaseNameOf(path);
    if (!IsBelow(path, m_installDir)) {
        RootPath opened;
        Failure failure = OpenAbove(path, path == m_installDir && !m_isExact, opened);
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

Failure LivePlaces::FindPlace(const std::string& path, LivePlace& place) {
    auto parent = std::make_shared<LiveDirectory>();
    if (Failure failure = OpenParent(path, *parent, place.name))
        return failure;
    place.parent = parent;
    // Entries cannot be exchanged between mounts. Outside of the tree, each directory has its own
    // security label.
    if (IsBelow(path, m_installDir) &&
        MountOf(parent->descriptor.Number()) == MountOf(m_tree->descriptor.Number()))
        return FindHolder(m_tree, place.holder);
    return FindHolder(parent, place.holder);
}

Failure LivePlaces::FindHolder(const DirectoryPointer& parent, PrivateDirectory*& holder) {
    std::unique_ptr<PrivateDirectory>& found = m_holders[parent->path];
    if (found == nullptr) {
        PrivateDirectory::CleanUp(parent);
        if (Failure failure = PrivateDirectory::Create(parent, found))
            return failure;
    }
    holder = found.get();
    return {};
}

void LivePlaces::CleanUpOutside() const {
    std::set<std::string> directories;
    for (const Entry& entry : Entries()) {
        if (!IsStaged(entry) || ::IsInTree(entry) ||
            !directories.insert(ParentOf(entry.path)).second)
            continue;
        auto parent = std::make_shared<LiveDirectory>();
        std::string name;
        if (!OpenParent(entry.path, *parent, name))
            PrivateDirectory::CleanUp(parent);
    }
}

Failure LivePlaces::VerifyTree() const {
    if (m_tree == nullptr)
        return {};
    const std::optional<State> expected = ReadAttributes(m_tree->descriptor);
    LiveDirectory parent;
    std::string name;
    if (Failure failure = OpenParent(m_installDir, parent, name))
        return failure;
    const Descriptor entry = OpenEntry(parent.descriptor.Number(), name);
    const std::optional<State> found = entry ? ReadAttributes(entry) : std::nullopt;
    if (expected && found && found->IsSameInode(*expected))
        return {};
    return RefusedInMerge(m_installDir, "was changed during the setup");
}
