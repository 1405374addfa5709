#include "undo/UndoPlan.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "installation/DirectoryNames.h"
#include "installation/Mounts.h"
#include "installation/TimeLimit.h"
#include "merge/Accounts.h"
#include "merge/MergePaths.h"
#include "merge/Services.h"
#include "undo/Snapshot.h"

namespace {

const char* ChangedSince(UndoPurpose purpose) {
    return IsRemoval(purpose) ? "changed after the setup"
                              : "changed after the setup; --force restores it";
}

Problem DamagedContent(const std::string& path) {
    return {
        ExitStatus::RecordUnusable,
        QStringLiteral("the saved content of \"%1\" is damaged").arg(QString::fromStdString(path)),
        QStringLiteral("To go back, run the setup with the former answers.")};
}

bool IsItem(const SavedPath& path, Item item) {
    return path.entry != nullptr && path.entry->item == item;
}

class PathUndo {
public:
    PathUndo(const StagedMachine& content, int liveTree, const TreeOwners& owners,
             UndoPurpose purpose, UndoPlan& plan)
        : m_content(content),
          m_root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)),
          m_liveTree(liveTree),
          m_owners(owners),
          m_purpose(purpose),
          m_plan(plan) {
        if (m_plan.isTreeKept)
            Keep(sharedDirectory, "other machines may use it");
    }

    // Plans to restore each path of the setup.
    Failure AddAll(const SavedSetup& saved);

    // Members of the service group can put other directories in the place of those in the install
    // tree. What the merge would refuse to reach is kept.
    Failure KeepUnreachable();

    // Children before their parents, so that a directory can be empty by then.
    void AddDeletedDirectories();

private:
    struct LivePath {
        int directory;
        std::string path;
        bool isInTree;
    };

    LivePath PlaceOf(const std::string& path) const;
    Failure Add(const SavedPath& path);
    Failure ReadLive(const SavedPath& path, State& live) const;
    const char* WhyKept(const SavedPath& path, const State& live) const;
    bool StaysInRemoval(const SavedPath& path) const;
    bool IsOnOtherMount(const LivePath& place) const;
    bool IsRemovedAsChanged(const SavedPath& path, const State& live) const;
    Failure CheckContent(const SavedPath& path) const;
    bool IsUnpacked(const std::string& directory) const;
    Failure FindRefused(const PathDifference& difference, std::string& refused) const;
    bool HasOtherEntries(const std::string& path);
    void Keep(const std::string& path, const char* reason);

    const StagedMachine& m_content;
    const Descriptor m_root;
    const int m_liveTree;
    const TreeOwners& m_owners;
    const UndoPurpose m_purpose;
    UndoPlan& m_plan;
    std::vector<PathDifference> m_directories;  // to delete, parents first
    std::set<std::string> m_deleted;
    std::set<std::string> m_created;  // directories
};

PathUndo::LivePath PathUndo::PlaceOf(const std::string& path) const {
    const LayerPath staged = PathIn(m_content, path);
    if (staged.base == m_content.tree.Number())
        return {m_liveTree, staged.path, true};
    return {m_root.Number(), path.substr(1), false};
}

// As the setup read it.
Failure PathUndo::ReadLive(const SavedPath& path, State& live) const {
    const LivePath place = PlaceOf(path.path);
    if (place.directory == -1)
        return {};
    const std::optional<State> found =
        ReadStateAt(place.directory, place.path, ReadingOfSaved(path.entry, place.isInTree));
    if (!found)
        return UnreadablePath(path.path, errno);
    live = *found;
    return {};
}

// True at and below a mount point in the install tree. A user's file system may never answer.
bool PathUndo::IsOnOtherMount(const LivePath& place) const {
    if (place.directory == -1)
        return false;
    const Descriptor parent = OpenDirectory(place.directory, ParentOf(place.path));
    if (!parent)
        return errno == EREMOTE;
    const Descriptor entry = OpenEntry(parent.Number(), BaseNameOf(place.path));
    if (!entry && errno == EREMOTE)
        return true;
    return MountOf((entry ? entry : parent).Number()) != MountOf(place.directory);
}

bool HasContent(int top, const std::string& path) {
    const Descriptor directory = OpenDirectory(top, ParentOf(path));
    struct stat found = {};
    return directory &&
           fstatat(directory.Number(), BaseNameOf(path).c_str(), &found, AT_SYMLINK_NOFOLLOW) ==
               0 &&
           S_ISREG(found.st_mode) && found.st_size > 0;
}

// Why it stays even with --force; null if it can be restored.
const char* PathUndo::WhyKept(const SavedPath& path, const State& live) const {
    const State& before = path.before;
    const LivePath place = PlaceOf(path.path);
    if (IsItem(path, Item::QueueEntries)) {
        if (before.kind == State::Kind::Missing)
            return HasContent(place.directory, place.path) ? "contains jobs" : nullptr;
        const bool isSameFile =
            live.kind == before.kind && live.owner == before.owner && live.group == before.group;
        // What the merge refuses. Each user can create a hard link.
        return isSameFile && IsQueueFileOfSetup(live, m_owners) ? nullptr
                                                                : "jobs are never restored";
    }
    switch (before.kind) {
        case State::Kind::File:
            return before.digest.empty() ? "its content was not saved" : nullptr;
        case State::Kind::Special:
            return "special files are not saved";
        case State::Kind::Directory:
            if (live.kind == State::Kind::Directory)
                // Members of the service group can put another directory there.
                return place.isInTree && live.inode != before.inode ? "is another directory"
                                                                    : nullptr;
            return live.kind == State::Kind::Missing ? nullptr : "is not a directory";
        default:
            return nullptr;
    }
}

Failure PathUndo::CheckContent(const SavedPath& path) const {
    if (path.before.kind != State::Kind::File || path.before.digest.empty())
        return {};
    const LayerPath place = PathIn(m_content, path.path);
    const auto saved = ReadStateAt(place.base, place.path, Reading::AllFiles);
    if (!saved && errno != EIO)
        return UnreadablePath(path.path, errno);
    return saved && saved->digest == path.before.digest ? Failure()
                                                        : Failure(DamagedContent(path.path));
}

// True for what stays without being listed.
bool PathUndo::StaysInRemoval(const SavedPath& path) const {
    return m_purpose == UndoPurpose::Remove && path.before.kind == State::Kind::Missing &&
           path.entry != nullptr && path.entry->removal == Removal::Purge;
}

// Settings are edited. The mode and the owner of a directory are not worth keeping.
bool PathUndo::IsRemovedAsChanged(const SavedPath& path, const State& live) const {
    if (!IsRemoval(m_purpose) || path.before.kind != State::Kind::Missing ||
        live.kind != path.after.back().kind)
        return false;
    return live.kind == State::Kind::Directory ||
           (path.entry != nullptr && path.entry->removal == Removal::Purge);
}

void PathUndo::Keep(const std::string& path, const char* reason) {
    const QString line =
        QString::fromStdString(path) + QStringLiteral(": ") + QLatin1String(reason);
    if (!m_plan.kept.contains(line))
        m_plan.kept.append(line);
}

Failure PathUndo::AddAll(const SavedSetup& saved) {
    if (!m_root)
        return UnreadablePath("/", errno);
    for (const SavedPath& path : PathsOf(saved)) {
        if (Failure failure = Add(path))
            return failure;
    }
    return {};
}

Failure PathUndo::Add(const SavedPath& path) {
    const State& before = path.before;
    const LivePath place = PlaceOf(path.path);
    if (place.isInTree && m_plan.isTreeKept) {
        m_plan.remaining.insert(path.path);
        return {};
    }
    if (place.isInTree && IsRemoval(m_purpose) && IsOnOtherMount(place)) {
        Keep(path.path, "is on another file system");
        m_plan.remaining.insert(path.path);
        return {};
    }
    State live;
    if (Failure failure = ReadLive(path, live))
        return failure;
    if (live == before)
        return {};
    if (StaysInRemoval(path)) {
        m_plan.remaining.insert(path.path);
        return {};
    }
    if (Failure failure = CheckContent(path))
        return failure;
    const bool isOurs = std::ranges::find(path.after, live) != path.after.end();
    const char* reason = WhyKept(path, live);
    if (reason == nullptr && !isOurs && m_purpose != UndoPurpose::ForcedUndo &&
        !IsRemovedAsChanged(path, live))
        reason = ChangedSince(m_purpose);
    if (reason != nullptr) {
        Keep(path.path, reason);
        m_plan.remaining.insert(path.path);
        return {};
    }
    const Change change = live.kind == State::Kind::Missing     ? Change::Create
                          : before.kind == State::Kind::Missing ? Change::Delete
                                                                : Change::Modify;
    PathDifference difference = {change, path.path, live, before, path.entry};
    if (change != Change::Delete) {
        m_plan.differences.paths.push_back(std::move(difference));
        return {};
    }
    m_deleted.insert(path.path);
    if (live.kind == State::Kind::Directory)
        m_directories.push_back(std::move(difference));
    else
        m_plan.differences.paths.push_back(std::move(difference));
    return {};
}

// True for what an interrupted setup in place unpacked. The undo opens it before the merge.
bool PathUndo::IsUnpacked(const std::string& directory) const {
    return std::ranges::any_of(m_directories, [&](const PathDifference& each) {
        const bool isClosed = each.before.owner == 0 && (each.before.mode & S_IXOTH) == 0;
        return isClosed && each.entry != nullptr && each.entry->ownsAllBelow &&
               (directory == each.path || IsBelow(directory, each.path));
    });
}

// Finds the first directory above an entry of the tree that the merge refuses. It refuses the
// install directory itself on its own.
Failure PathUndo::FindRefused(const PathDifference& difference, std::string& refused) const {
    const LivePath place = PlaceOf(difference.path);
    const std::string tree = m_content.installDir.toStdString();
    Descriptor opened;
    if (!place.isInTree || m_liveTree == -1)
        return {};
    if (Failure failure = OpenTreeDirectory(m_liveTree, tree, "", m_owners, opened))
        return failure->status == ExitStatus::TreeRefused ? Failure() : failure;
    for (size_t end = place.path.find('/'); end != std::string::npos;
         end = place.path.find('/', end + 1)) {
        const std::string below = place.path.substr(0, end);
        std::string path =
            difference.path.substr(0, difference.path.size() - place.path.size() + end);
        if (m_created.contains(path))
            return {};
        Failure failure = OpenTreeDirectory(m_liveTree, tree, below, m_owners, opened);
        if (failure && failure->status != ExitStatus::TreeRefused)
            return failure;
        if (failure && !IsUnpacked(path)) {
            refused = path;
            return {};
        }
    }
    return {};
}

Failure PathUndo::KeepUnreachable() {
    std::set<std::string> refused;
    for (const PathDifference& each : m_plan.differences.paths) {
        if (each.change == Change::Create && each.after.kind == State::Kind::Directory)
            m_created.insert(each.path);
    }
    for (std::vector<PathDifference>* list : {&m_plan.differences.paths, &m_directories}) {
        std::set<std::string> kept;
        for (const PathDifference& each : *list) {
            std::string directory;
            if (Failure failure = FindRefused(each, directory))
                return failure;
            if (directory.empty())
                continue;
            refused.insert(directory);
            kept.insert(each.path);
            m_created.erase(each.path);
            m_deleted.erase(each.path);
            m_plan.remaining.insert(each.path);
        }
        std::erase_if(*list, [&](const PathDifference& each) { return kept.contains(each.path); });
    }
    for (const std::string& directory : refused)
        Keep(directory, "is another directory");
    return {};
}

// Ignores what a killed setup left: the merge removes it first. A removal lists what is not from a
// setup.
bool PathUndo::HasOtherEntries(const std::string& path) {
    const std::string_view pattern = Find(Item::PrivateDirectory).path;
    const std::string_view prefix = pattern.substr(0, pattern.size() - randomPart.size());
    const LivePath place = PlaceOf(path);
    const Descriptor directory = OpenDirectory(place.directory, place.path);
    Names names;
    if (!directory || !ReadNames(directory.Number(), names))
        return true;
    std::set<std::string> others;
    const std::string inside = path + '/';
    for (const std::string& name : names) {
        const std::string whole = inside + name;
        if (!name.starts_with(prefix) && !m_deleted.contains(whole))
            others.insert(whole);
    }
    for (const std::string& other : IsRemoval(m_purpose) ? others : std::set<std::string>()) {
        if (!m_plan.remaining.contains(other))
            Keep(other, "is not from a setup");
    }
    return !others.empty();
}

void PathUndo::AddDeletedDirectories() {
    std::reverse(m_directories.begin(), m_directories.end());
    for (PathDifference& directory : m_directories) {
        if (HasOtherEntries(directory.path)) {
            m_deleted.erase(directory.path);
            m_plan.remaining.insert(directory.path);
            if (!IsRemoval(m_purpose))
                Keep(directory.path, "has other entries");
        } else {
            m_plan.differences.paths.push_back(std::move(directory));
        }
    }
}

// Directories that are created come first, parents before children. Owners of directories come
// last, so that those that the setup gave them lead to what is below.
void SortByDirectories(std::vector<PathDifference>& paths) {
    const auto rank = [](const PathDifference& difference) {
        const bool isDirectory = difference.after.kind == State::Kind::Directory;
        const int ofDirectory = difference.change == Change::Create ? 0 : 2;
        return std::pair(isDirectory ? ofDirectory : 1,
                         isDirectory ? difference.path : std::string());
    };
    std::ranges::stable_sort(paths, {}, rank);
}

// The setup's members; for a purge, whoever is a member now.
Failure FindExpectedMembers(const SavedSetup& saved, UndoPurpose purpose,
                            std::vector<MemberDifference>& members) {
    members = MembersOf(saved);
    for (const AccountDifference& account : AccountsOf(saved)) {
        std::optional<QStringList> listed;
        if (purpose != UndoPurpose::Purge || !account.isGroup)
            continue;
        if (Failure failure = ReadLocalMembers(account.name, listed))
            return failure;
        for (const QString& name : listed.value_or(QStringList()))
            members.push_back({Change::Create, name.toStdString(), account.name});
    }
    return {};
}

void KeepAccount(const AccountDifference& account, const char* reason, UndoPlan& plan) {
    plan.kept.append((account.isGroup ? QStringLiteral("group %1: ") : QStringLiteral("user %1: "))
                         .arg(QString::fromStdString(account.name)) +
                     QLatin1String(reason));
}

Failure AddAccounts(const SavedSetup& saved, UndoPurpose purpose, UndoPlan& plan) {
    std::vector<MemberDifference> members;
    if (Failure failure = FindExpectedMembers(saved, purpose, members))
        return failure;
    std::vector<AccountDifference> accounts = AccountsOf(saved);
    // Users before their groups.
    std::reverse(accounts.begin(), accounts.end());
    for (AccountDifference& account : accounts) {
        CreatedAccount found = CreatedAccount::Missing;
        if (Failure failure = FindCreatedAccount(account, members, found))
            return failure;
        if (found == CreatedAccount::Missing)
            continue;
        if (found == CreatedAccount::Other) {
            KeepAccount(account, "has another number than the setup gave it", plan);
            continue;
        }
        if (found == CreatedAccount::Changed && purpose != UndoPurpose::ForcedUndo) {
            KeepAccount(account, ChangedSince(purpose), plan);
            continue;
        }
        if (plan.isTreeKept) {
            KeepAccount(account, "other machines may use it", plan);
            continue;
        }
        account.change = Change::Delete;
        plan.differences.accounts.push_back(std::move(account));
    }
    return {};
}

Failure AddMembers(const SavedSetup& saved, UndoPlan& plan) {
    for (MemberDifference member : MembersOf(saved)) {
        const bool isGroupDeleted =
            std::ranges::any_of(plan.differences.accounts, [&](const AccountDifference& account) {
                return account.isGroup && account.name == member.group;
            });
        std::optional<QStringList> listed;
        const passwd* user = nullptr;
        Failure failure = ReadLocalMembers(member.group, listed);
        if (!failure)
            failure = FindUser(member.user, user);
        if (failure)
            return failure;
        if (isGroupDeleted || !listed)
            continue;
        const bool isMember = listed->contains(QString::fromStdString(member.user));
        const bool wasMember = member.change == Change::Delete;
        if (isMember == wasMember || (wasMember && user == nullptr))
            continue;
        member.change = wasMember ? Change::Create : Change::Delete;
        plan.differences.members.push_back(std::move(member));
    }
    return {};
}

}  // namespace

Failure FindTreeElsewhere(bool& isElsewhere) {
    isElsewhere = false;
    if (getuid() != 0)
        return {};
    const std::string path = sharedDirectory;
    const Descriptor parent(open(ParentOf(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!parent)
        return UnreadablePath(ParentOf(path), errno);
    const Descriptor tree = OpenEntry(parent.Number(), BaseNameOf(path));
    isElsewhere = !tree && errno == EREMOTE;
    if (!tree)
        return isElsewhere || errno == ENOENT ? Failure() : UnreadablePath(path, errno);
    const std::optional<State> state = ReadAttributes(tree);
    const std::optional<int> above = MountOf(parent.Number());
    const std::optional<int> mount = MountOf(tree.Number());
    if (!state || !above || !mount)
        return UnreadablePath(path, errno);
    isElsewhere = above != mount || state->kind == State::Kind::Link;
    return {};
}

Failure FindUndo(const SavedSetup& saved, const StagedMachine& content, int liveTree,
                 const TreeOwners& owners, const ServiceStates& services, UndoPurpose purpose,
                 UndoPlan& plan) {
    PathUndo undo(content, liveTree, owners, purpose, plan);
    Failure failure = undo.AddAll(saved);
    if (failure)
        return failure;
    SortByDirectories(plan.differences.paths);
    failure = undo.KeepUnreachable();
    if (failure)
        return failure;
    undo.AddDeletedDirectories();
    if (purpose == UndoPurpose::FurtherSetup)
        return {};
    if (purpose != UndoPurpose::Remove) {
        failure = AddAccounts(saved, purpose, plan);
        if (!failure)
            failure = AddMembers(saved, plan);
        if (failure)
            return failure;
    }
    if (services.isManagerRunning)
        FindServicesToUndo(ServicesOf(saved), services.active, !saved.isComplete, plan.differences);
    return {};
}
