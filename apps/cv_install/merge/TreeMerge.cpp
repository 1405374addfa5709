#include "merge/TreeMerge.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <vector>

#include "installation/DatedName.h"
#include "installation/Installation.h"
#include "installation/Mounts.h"
#include "merge/Acl.h"
#include "merge/ChangedEntry.h"
#include "merge/LivePlaces.h"
#include "merge/OpenFilesLimit.h"
#include "merge/PlacedEntry.h"

namespace {

using PathDifferences = std::vector<PathDifference>;

bool IsQueueFile(const PathDifference& difference) {
    return difference.entry != nullptr && difference.entry->item == Item::QueueEntries;
}

// A directory that exists gets at most another owner or mode, unless it is another one. So does a
// web page in a setup, unless the product has another version of it.
bool IsChangedInPlace(const PathDifference& difference, const std::string& installDir,
                      MergePurpose purpose) {
    const State& before = difference.before;
    const State& after = difference.after;
    if (before.kind != after.kind)
        return false;
    if (after.kind == State::Kind::Directory)
        return !difference.keepsReplaced;
    return purpose == MergePurpose::Setup && difference.entry != nullptr &&
           difference.entry->ownsAllBelow && before.digest == after.digest &&
           before.target == after.target &&
           IsBelow(difference.path, PathOf(*difference.entry, installDir));
}

bool HasAccessOf(const State& found, const State& wanted) {
    return found.kind == wanted.kind && found.mode == wanted.mode && found.owner == wanted.owner &&
           found.group == wanted.group;
}

}  // namespace

class TreeMerge::Impl {
public:
    Impl(const StagedMachine& staged, const TreeOwners& owners, MergePurpose purpose)
        : m_staged(staged),
          m_purpose(purpose),
          m_installDir(staged.installDir.toStdString()),
          m_owners(owners),
          m_places(m_installDir, owners, purpose == MergePurpose::Repair) {}
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    Failure PlaceInTree(const PathDifferences& differences, Undo& undo);
    Failure PlaceOutside(const PathDifferences& differences, Undo& undo);
    Failure Verify() const;
    void Finish();

private:
    Failure FindStaged(const PathDifference& difference, StagedEntry& staged) const;
    std::vector<const PathDifference*> WithBelow(const PathDifferences& differences,
                                                 size_t first) const;
    Failure Place(const PathDifferences& differences, size_t next, Undo& undo);
    Failure PlaceNew(const std::vector<const PathDifference*>& differences, Undo& undo);
    Failure Create(const std::vector<const PathDifference*>& differences,
                   PlacedEntry& placed) const;
    Failure PlaceQueueFile(const PathDifference& difference, Undo& undo);
    Failure PlacePage(const PathDifference& difference, Undo& undo);
    bool IsPage(const PathDifference& difference) const;
    bool IsFormerPage(const PathDifference& difference, const PlacedEntry& placed) const;
    Failure ChangeInPlace(const PathDifference& difference, Undo& undo);
    Failure Delete(const PathDifference& difference, Undo& undo);
    Failure VerifyEntry(const NewEntry& expected, bool isCreated) const;

    bool IsExpected(const PathDifference& difference, const Descriptor& entry) const;
    Failure CheckTaken(const PathDifference& difference, const PlacedEntry& placed) const;
    Failure MoveAway(const PathDifference& difference, Undo& undo);
    static Failure KeepReplaced(const PathDifference& difference, PlacedEntry& placed);
    void RemoveDirectory(const std::string& path) const;

    const StagedMachine& m_staged;
    const MergePurpose m_purpose;
    const std::string m_installDir;
    const TreeOwners m_owners;
    LivePlaces m_places;
    std::vector<std::shared_ptr<PlacedEntry>> m_placed;
    std::set<std::string> m_created;  // paths
    std::vector<NewEntry> m_changed;  // in place
    std::vector<std::string> m_deletedDirectories;
};

// What was neither discarded nor restored goes back, whatever it is.
TreeMerge::Impl::~Impl() {
    for (const auto& placed : m_placed) {
        if (placed->isReplacing)
            placed->holder->MoveBack(placed->slot);
    }
}

Failure TreeMerge::Impl::FindStaged(const PathDifference& difference, StagedEntry& staged) const {
    const LayerPath place = PathIn(m_staged, difference.path);
    if (place.base == -1)
        return FailedInMerge(difference.path, ENOTSUP);
    staged = {&difference, place.base, place.path};
    return {};
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
    const auto placed = std::make_shared<PlacedEntry>();
    if (Failure failure = m_places.FindPlace(path, *placed))
        return failure;
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
    undo.Add([placed] { return TakeBack(*placed); });
    if (path == m_installDir)
        m_places.OpenNewTree(*placed);
    if (Failure failure = CheckTaken(*differences.front(), *placed))
        return failure;
    return differences.front()->keepsReplaced ? KeepReplaced(*differences.front(), *placed)
                                              : Failure();
}

// Next to what replaced it. Not at the end: nothing removes the former file when the setup is
// killed.
Failure TreeMerge::Impl::KeepReplaced(const PathDifference& difference, PlacedEntry& placed) {
    if (!placed.isReplacing)
        return {};
    placed.aside =
        MoveToDatedName(placed.holder->Slots(), placed.slot, placed.Parent(), placed.name);
    if (placed.aside.empty())
        return FailedInMerge(difference.path, errno);
    placed.isReplacing = false;
    WarnOfDatedName(placed.name, ParentOf(difference.path) + '/' + placed.aside);
    return {};
}

// Another process may have replaced the entry after the comparison: an undo must not touch it.
bool TreeMerge::Impl::IsExpected(const PathDifference& difference, const Descriptor& entry) const {
    const std::optional<State> found = entry ? ReadAttributes(entry) : std::nullopt;
    return m_purpose == MergePurpose::Setup || (found && found->IsSameInode(difference.before));
}

Failure TreeMerge::Impl::CheckTaken(const PathDifference& difference,
                                    const PlacedEntry& placed) const {
    if (!placed.isReplacing || m_purpose == MergePurpose::Repair)
        return {};
    const Descriptor entry = OpenEntry(placed.holder->Slots(), placed.slot);
    const bool isDeletedPage = m_purpose == MergePurpose::Setup &&
                               difference.change == Change::Delete && IsPage(difference);
    if (!IsExpected(difference, entry) || (isDeletedPage && !IsFormerPage(difference, placed)) ||
        (m_purpose == MergePurpose::Undo && HasJobs(placed.holder->Slots(), placed.slot)))
        return RefusedInMerge(difference.path, "was changed during the setup");
    return {};
}

// Users append to it at any moment.
Failure TreeMerge::Impl::PlaceQueueFile(const PathDifference& difference, Undo& undo) {
    LivePlace place;
    if (Failure failure = m_places.FindPlace(difference.path, place))
        return failure;
    LiveEntry entry{OpenEntry(place.Parent(), place.name), difference.path};
    const std::optional<State> now =
        entry.descriptor ? ReadAttributes(entry.descriptor) : std::nullopt;
    if (now && IsQueueFileOfSetup(*now, m_owners)) {
        m_changed.push_back({difference.path, *now});
        if (m_purpose == MergePurpose::Repair)
            return RestoreAccess(difference, std::move(entry), m_changed.back().state, undo);
        return ChangeMode(std::move(entry), difference.after.mode, m_changed.back().state, undo);
    }
    // Jobs are never restored.
    if (m_purpose == MergePurpose::Undo)
        return RefusedInMerge(difference.path, "was changed during the setup");
    const size_t count = m_placed.size();
    if (Failure failure = PlaceNew({&difference}, undo))
        return failure;
    return KeepReplaced(difference, *m_placed[count]);
}

// True for what is below a directory of web pages.
bool TreeMerge::Impl::IsPage(const PathDifference& difference) const {
    return difference.entry != nullptr && difference.entry->ownsAllBelow &&
           IsBelow(difference.path, PathOf(*difference.entry, m_installDir));
}

// True if an earlier setup wrote what was there.
bool TreeMerge::Impl::IsFormerPage(const PathDifference& difference,
                                   const PlacedEntry& placed) const {
    const QString path = QString::fromStdString(difference.path.substr(m_installDir.size() + 1));
    const std::optional<State> found =
        ReadState(placed.holder->Slots(), placed.slot, Reading::AllFiles);
    return found && found->kind == State::Kind::File && !found->digest.empty() &&
           found->digest == m_staged.formerPages.value(path).toStdString();
}

// An edited page stays next to the new one.
Failure TreeMerge::Impl::PlacePage(const PathDifference& difference, Undo& undo) {
    const size_t count = m_placed.size();
    if (Failure failure = PlaceNew({&difference}, undo))
        return failure;
    PlacedEntry& placed = *m_placed[count];
    const bool isDiscarded = placed.isReplacing && IsFormerPage(difference, placed);
    return isDiscarded ? Failure() : KeepReplaced(difference, placed);
}

Failure TreeMerge::Impl::ChangeInPlace(const PathDifference& difference, Undo& undo) {
    LiveDirectory parent;
    std::string name;
    if (Failure failure = m_places.OpenParent(difference.path, parent, name))
        return failure;
    LiveEntry entry{OpenEntry(parent.descriptor.Number(), name), difference.path};
    if (!entry.descriptor && errno == ENOENT)
        return RefusedInMerge(difference.path, "was removed during the setup");
    if (!entry.descriptor && errno == EREMOTE)
        return RefusedInMerge(difference.path, "is on a FUSE file system");
    if (!entry.descriptor)
        return FailedInMerge(difference.path, errno);
    if (!IsExpected(difference, entry.descriptor))
        return RefusedInMerge(difference.path, "was changed during the setup");
    entry.isMountPoint = MountOf(entry.descriptor.Number()) != MountOf(parent.descriptor.Number());
    m_changed.push_back({difference.path, {}});
    if (m_purpose == MergePurpose::Repair)
        return RestoreAccess(difference, std::move(entry), m_changed.back().state, undo);
    return ChangeEntry(difference, std::move(entry), m_installDir, m_owners, m_changed.back().state,
                       undo);
}

Failure TreeMerge::Impl::Delete(const PathDifference& difference, Undo& undo) {
    // At the end, when the private directories are gone.
    if (difference.before.kind == State::Kind::Directory) {
        m_deletedDirectories.push_back(difference.path);
        return {};
    }
    return MoveAway(difference, undo);
}

Failure TreeMerge::Impl::MoveAway(const PathDifference& difference, Undo& undo) {
    const auto placed = std::make_shared<PlacedEntry>();
    if (Failure failure = m_places.FindPlace(difference.path, *placed))
        return failure;
    placed->slot = placed->holder->NewSlot(placed->name);
    const int error =
        MoveToFreeName(placed->Parent(), placed->name, placed->holder->Slots(), placed->slot);
    if (error == ENOENT)
        return {};
    if (error != 0)
        return FailedInMerge(difference.path, error);
    placed->isReplacing = true;
    m_placed.push_back(placed);
    undo.Add([placed] { return TakeBack(*placed); });
    return CheckTaken(difference, *placed);
}

// Places the difference `next` and, if it is a new directory, those below it.
Failure TreeMerge::Impl::Place(const PathDifferences& differences, size_t next, Undo& undo) {
    const PathDifference& difference = differences[next];
    if (m_created.contains(difference.path))
        return {};
    if (IsQueueFile(difference))
        return PlaceQueueFile(difference, undo);
    if (IsChangedInPlace(difference, m_installDir, m_purpose))
        return ChangeInPlace(difference, undo);
    const bool isForDirectory = difference.after.kind == State::Kind::Directory &&
                                difference.before.kind != State::Kind::Missing;
    if (isForDirectory && m_purpose == MergePurpose::Repair) {
        if (Failure failure = MoveAway(difference, undo))
            return failure;
    }
    if (m_purpose == MergePurpose::Setup && IsPage(difference) &&
        difference.change == Change::Modify)
        return PlacePage(difference, undo);
    return PlaceNew(WithBelow(differences, next), undo);
}

Failure TreeMerge::Impl::PlaceInTree(const PathDifferences& differences, Undo& undo) {
    // Programs that are started after the merge or its undo get the former limit.
    undo.Add([limit = std::make_shared<OpenFilesLimit>()] { return true; });
    // An undo is planned without what is on other file systems.
    if (Failure failure = m_places.OpenTree(m_purpose != MergePurpose::Undo))
        return failure;
    PathDifferences inTree;
    for (const PathDifference& difference : differences) {
        if (m_places.IsInTree(difference.path))
            inTree.push_back(difference);
    }
    for (size_t next = 0; next < inTree.size(); ++next) {
        const PathDifference& difference = inTree[next];
        const bool deletes = difference.change == Change::Delete;
        if (deletes && m_purpose == MergePurpose::Setup && !IsPage(difference))
            return FailedInMerge(difference.path, ENOTSUP);
        if (Failure failure = deletes ? Delete(difference, undo) : Place(inTree, next, undo))
            return failure;
    }
    return {};
}

Failure TreeMerge::Impl::PlaceOutside(const PathDifferences& differences, Undo& undo) {
    PathDifferences outside;
    std::vector<const PathDifference*> deleted;
    for (const PathDifference& difference : differences) {
        if (m_places.IsInTree(difference.path))
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
    m_places.CleanUpOutside();
    for (size_t next = 0; next < outside.size(); ++next) {
        if (Failure failure = Place(outside, next, undo))
            return failure;
    }
    // The commit script finds the enablement link of an earlier service by its unit, also after a
    // setup that was killed.
    if (m_purpose == MergePurpose::Setup)
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
    if (Failure failure = m_places.OpenParent(expected.path, parent, name))
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
    if (Failure failure = m_places.VerifyTree())
        return failure;
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

void TreeMerge::Impl::RemoveDirectory(const std::string& path) const {
    LiveDirectory parent;
    std::string name;
    QString cause;
    if (const Failure failure = m_places.OpenParent(path, parent, name))
        cause = failure->text;
    else if (unlinkat(parent.descriptor.Number(), name.c_str(), AT_REMOVEDIR) != 0 &&
             errno != ENOENT)
        cause = QString::fromUtf8(std::strerror(errno));
    if (cause.isEmpty())
        return;
    ReportWarning({ExitStatus::Complete,
                   QStringLiteral("cannot remove directory \"%1\": %2")
                       .arg(QString::fromStdString(path), cause),
                   QStringLiteral("Inspect what is in it, then remove it.")});
}

void TreeMerge::Impl::Finish() {
    for (const auto& placed : m_placed) {
        if (placed->isReplacing && HasJobs(placed->holder->Slots(), placed->slot))
            placed->holder->MoveBack(placed->slot);
        else if (placed->isReplacing)
            placed->holder->Discard(placed->slot);
        placed->isReplacing = false;
    }
    m_places.RemoveHolders();
    for (const std::string& path : m_deletedDirectories)
        RemoveDirectory(path);
}

TreeMerge::TreeMerge(const StagedMachine& staged, uid_t account, gid_t group, uid_t recordedAccount,
                     MergePurpose purpose)
    : m_impl(std::make_unique<Impl>(
          staged, TreeOwners{account, group, recordedAccount, getuid() != 0}, purpose)) {}

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
