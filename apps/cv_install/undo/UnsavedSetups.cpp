#include "undo/UnsavedSetups.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "merge/Accounts.h"
#include "merge/ServiceAccount.h"
#include "record/RecordDirectory.h"
#include "record/SetupRecord.h"
#include "undo/Snapshot.h"

#include "installation/TimeLimit.h"

namespace {

constexpr id_t firstOfUsers = 1000;

class UnsavedSetups {
public:
    UnsavedSetups(const QString& installDir, int liveTree, Differences& found)
        : m_installDir(installDir.toStdString()),
          m_root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)),
          m_liveTree(liveTree),
          m_found(found) {}

    Failure AddListed(const Manifest& manifest);
    Failure AddTable();

private:
    Failure ReadLive(const Entry& entry, const std::string& path, State& state) const;
    void Add(const std::string& path, const State& after, const Entry& entry);
    Failure AddRow(const Entry& entry);
    Failure AddBelow(const Entry& entry);

    const std::string m_installDir;
    const Descriptor m_root;
    const int m_liveTree;
    Differences& m_found;
};

// What the removal keeps: a user's file system in the tree, and too many levels of directories.
bool StaysInTree(int error) {
    return error == EREMOTE || error == ELOOP;
}

Failure UnsavedSetups::ReadLive(const Entry& entry, const std::string& path, State& state) const {
    state = {};
    const bool isInTree = IsInTree(entry);
    const size_t top = m_installDir.size() + 1;
    const std::string below = !isInTree           ? path.substr(1)
                              : path.size() < top ? ""
                                                  : path.substr(top);
    if (isInTree && m_liveTree == -1)
        return {};
    const std::optional<State> found = ReadStateAt(isInTree ? m_liveTree : m_root.Number(), below,
                                                   ReadingOfSaved(&entry, isInTree));
    if (!found && !(isInTree && StaysInTree(errno)))
        return UnreadablePath(path, errno);
    state = found.value_or(State());
    return {};
}

void UnsavedSetups::Add(const std::string& path, const State& after, const Entry& entry) {
    m_found.paths.push_back({Change::Create, path, {}, after, &entry});
}

Failure UnsavedSetups::AddListed(const Manifest& manifest) {
    // That of a user lists only what is in the private copy, which is the product's.
    const bool isUsers = manifest.tree.empty();
    const std::string tree = isUsers ? "" : '/' + manifest.tree;
    for (const ManifestEntry& listed : manifest.entries) {
        std::string path = '/' + listed.path;
        if (path == tree || path.starts_with(tree + '/'))
            path.replace(0, tree.size(), m_installDir);
        const Entry* entry = RowOfPath(path, m_installDir);
        if (!listed.isInstalled || entry == nullptr || (isUsers && listed.path.empty()))
            continue;
        State after = listed.state;
        // Of what users edit, the manifest has no content.
        if (after.kind == State::Kind::File && after.digest.empty()) {
            State live;
            if (Failure failure = ReadLive(*entry, path, live))
                return failure;
            after.digest = live.digest;
        }
        Add(path, after, *entry);
    }
    return {};
}

Failure UnsavedSetups::AddBelow(const Entry& entry) {
    const std::optional<RelativePaths> paths = PathsBelow(m_liveTree, entry.path);
    if (!paths && !StaysInTree(errno))
        return UnreadablePath(m_installDir + '/' + entry.path, errno);
    for (const std::string& below : paths.value_or(RelativePaths())) {
        const std::string path = m_installDir + '/' + below;
        State state;
        if (Failure failure = ReadLive(entry, path, state))
            return failure;
        if (state.kind != State::Kind::Missing && state.kind != State::Kind::Special)
            Add(path, state, entry);
    }
    return {};
}

// A link must be the one that a setup makes: other versions have some at the same paths.
Failure UnsavedSetups::AddRow(const Entry& entry) {
    const std::string path = PathOf(entry, sharedDirectory);
    State live;
    if (Failure failure = ReadLive(entry, path, live))
        return failure;
    const State::Kind kind = entry.kind == Kind::File        ? State::Kind::File
                             : entry.kind == Kind::Directory ? State::Kind::Directory
                                                             : State::Kind::Link;
    if (live.kind != kind)
        return {};
    const std::string reference = entry.reference == nullptr ? "" : entry.reference;
    if (kind == State::Kind::Link &&
        live.target !=
            (reference.starts_with('/') ? reference : sharedDirectory + ('/' + reference)))
        return {};
    Add(path, live, entry);
    return entry.ownsAllBelow ? AddBelow(entry) : Failure();
}

// What other versions use as well may be theirs.
Failure UnsavedSetups::AddTable() {
    constexpr unsigned passing = DuringMerge | WithFileLocksOnly | AsUser | WithEarlierRepository;
    for (const Entry& entry : Entries()) {
        if (!IsStaged(entry) || (entry.conditions & passing) != 0 ||
            (entry.allVersions && entry.removal != Removal::RemoveIfEmpty) ||
            (entry.kind != Kind::File && entry.kind != Kind::Directory && entry.kind != Kind::Link))
            continue;
        if (Failure failure = AddRow(entry))
            return failure;
    }
    return {};
}

// An account as setups create it.
Failure AddUnsavedAccount(Differences& found) {
    std::optional<ServiceAccount> recorded;
    const passwd* user = nullptr;
    Failure failure = ReadServiceAccount(recorded);
    if (!failure && recorded)
        failure = FindUser(recorded->user, user);
    if (failure)
        return failure;
    if (user == nullptr || user->pw_uid != recorded->uid || user->pw_uid == 0 ||
        user->pw_uid >= firstOfUsers || user->pw_dir != std::string(sharedDirectory) ||
        user->pw_gecos != std::string(accountComment))
        return {};
    const AccountDifference account = {false,          user->pw_name, user->pw_uid,  user->pw_gid,
                                       user->pw_gecos, user->pw_dir,  user->pw_shell};
    const group* own = getgrgid(account.gid);
    // Looking for the name shows whether the groups can be read.
    const group* named = nullptr;
    if (own == nullptr)
        failure = FindGroup(account.name, named);
    if (own != nullptr && own->gr_gid != 0 && own->gr_gid < firstOfUsers &&
        (own->gr_name == account.name || own->gr_mem[0] == nullptr))
        found.accounts.push_back({true, own->gr_name, 0, own->gr_gid, "", "", ""});
    found.accounts.push_back(account);
    return failure;
}

}  // namespace

Failure FindUnsavedSetups(const QString& installDir, int liveTree, SavedSetup& saved) {
    saved = {};
    RecordDirectory record(installDir);
    std::optional<Manifest> manifest;
    Failure failure = record.Open();
    if (!failure)
        failure = ReadManifest(record, manifest);
    if (failure)
        return failure;
    saved.isComplete = true;
    Differences found;
    UnsavedSetups unsaved(installDir, liveTree, found);
    if (manifest && !manifest->entries.empty())
        failure = unsaved.AddListed(*manifest);
    else if (getuid() == 0)
        failure = unsaved.AddTable();
    if (failure)
        return failure;
    // Other users can write to the tree.
    const bool isRoots = std::ranges::any_of(found.paths, [&](const PathDifference& each) {
        return manifest || (!IsInTree(*each.entry) && each.after.kind != State::Kind::Directory);
    });
    if (!isRoots)
        return {};
    if (getuid() == 0) {
        failure = AddUnsavedAccount(found);
        if (failure)
            return failure;
        found.services.push_back({Change::Create, serviceUnit, "", "active"});
    }
    saved.attempts.push_back(std::move(found));
    return {};
}
