#include "undo/Snapshot.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "commit/EarlierServices.h"
#include "installation/DirectoryNames.h"
#include "installation/PathParts.h"
#include "installation/TimeLimit.h"
#include "merge/Accounts.h"
#include "merge/Services.h"
#include "undo/SavedSetup.h"

namespace {

constexpr int mostLevelsOfPages = 64;
constexpr const char* unitDirectory = "/etc/systemd/system";

// The names in a directory; empty if it cannot be listed. Sets errno then.
std::optional<Names> NamesBelow(int base, const std::string& path) {
    const Descriptor directory = OpenDirectory(base, path);
    Names names;
    if (!directory || !ReadNames(directory.Number(), names))
        return {};
    return names;
}

// No names for a directory that does not exist.
Failure ListDirectory(int root, const std::string& path, Names& names) {
    const auto found = NamesBelow(root, path);
    if (!found && errno != ENOENT && errno != ENOTDIR && errno != ELOOP)
        return UnreadablePath('/' + path, errno);
    names = found.value_or(Names());
    return {};
}

// False if what is there cannot be read.
bool IsDirectoryAt(int directory, const std::string& path, bool& isDirectory) {
    const auto found = ReadStateAt(directory, path, Reading::Nothing);
    isDirectory = found && found->kind == State::Kind::Directory;
    return found.has_value();
}

std::string Joined(std::string directory, const std::string& name) {
    if (!directory.empty())
        directory += '/';
    return directory += name;
}

bool AddPathsBelow(int tree, const std::string& directory, int level, RelativePaths& paths) {
    errno = ELOOP;
    const auto names = level < mostLevelsOfPages ? NamesBelow(tree, directory) : std::nullopt;
    if (!names)
        return false;
    for (const std::string& name : *names) {
        const std::string path = Joined(directory, name);
        paths.push_back(path);
        bool isDirectory = false;
        if (!IsDirectoryAt(tree, path, isDirectory) ||
            (isDirectory && !AddPathsBelow(tree, path, level + 1, paths)))
            return false;
    }
    return true;
}

// Reads paths of the install tree and of the machine.
class PlaceReader {
public:
    PlaceReader(std::string installDir, int liveTree)
        : m_installDir(std::move(installDir)),
          m_liveTree(liveTree),
          m_root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

    std::string Whole(const std::string& pathInTree) const {
        return pathInTree.empty() ? m_installDir : m_installDir + '/' + pathInTree;
    }

    const Entry* Row(const std::string& path) const { return RowOfPath(path, m_installDir); }

    // A file whose content was not read before is compared without it.
    Failure Read(const std::string& path, bool readsContent, State& state) const {
        const bool isInTree = path == m_installDir || IsBelow(path, m_installDir);
        state = {};
        if (isInTree && m_liveTree == -1)
            return {};
        const std::string below = !isInTree              ? path.substr(1)
                                  : path == m_installDir ? ""
                                                         : path.substr(m_installDir.size() + 1);
        const auto found =
            ReadStateAt(isInTree ? m_liveTree : m_root.Number(), below,
                        readsContent ? ReadingOfSaved(Row(path), isInTree) : Reading::Nothing);
        if (!found)
            return UnreadablePath(path, errno);
        state = *found;
        return {};
    }

    // The whole paths of what is below a directory of web pages, if it exists.
    Failure ListPages(const Entry& entry, std::vector<std::string>& paths) const {
        bool isDirectory = false;
        if (m_liveTree == -1)
            return {};
        if (!IsDirectoryAt(m_liveTree, entry.path, isDirectory))
            return UnreadablePath(Whole(entry.path), errno);
        if (!isDirectory)
            return {};
        const std::optional<RelativePaths> found = PathsBelow(m_liveTree, entry.path);
        if (!found)
            return UnreadablePath(Whole(entry.path), errno);
        for (const std::string& path : *found)
            paths.push_back(Whole(path));
        return {};
    }

    int Root() const { return m_root.Number(); }

private:
    const std::string m_installDir;
    const int m_liveTree;
    const Descriptor m_root;
};

class Snapshot {
public:
    Snapshot(const SetupInPlace& setup, int liveTree, Differences& snapshot)
        : m_setup(setup),
          m_reader(setup.installDir.toStdString(), liveTree),
          m_snapshot(snapshot) {}

    Failure Read();

private:
    bool IsRoots() const { return (m_setup.conditions & AsRoot) != 0; }
    Failure Add(const std::string& path, bool readsContent);
    Failure AddWithParents(const std::string& path);
    Failure AddPages(const Entry& entry);
    Failure AddEnablement(const hx::EarlierService& service);
    Failure AddAccounts();

    const SetupInPlace& m_setup;
    const PlaceReader m_reader;
    Differences& m_snapshot;
    std::set<std::string> m_known;
    std::optional<uid_t> m_account;  // empty before the setup creates it
    std::optional<gid_t> m_group;    // likewise
};

Failure Snapshot::Add(const std::string& path, bool readsContent) {
    if (!m_known.insert(path).second)
        return {};
    State state;
    if (Failure failure = m_reader.Read(path, readsContent, state))
        return failure;
    m_snapshot.paths.push_back({Change::Modify, path, state, {}, m_reader.Row(path)});
    return {};
}

// Outside of the install tree, the setup also creates and removes directories above its files.
Failure Snapshot::AddWithParents(const std::string& path) {
    for (const std::string top : {etcDirectory, binDirectory}) {
        for (size_t slash = path.find('/', top.size() + 1);
             IsBelow(path, top) && slash != std::string::npos; slash = path.find('/', slash + 1)) {
            if (Failure failure = Add(path.substr(0, slash), false))
                return failure;
        }
    }
    return Add(path, true);
}

// A page that gets another owner comes back as a new file.
Failure Snapshot::AddPages(const Entry& entry) {
    std::vector<std::string> paths;
    if (Failure failure = m_reader.ListPages(entry, paths))
        return failure;
    const bool isReplaced = IsReplaced(entry, m_setup.formerPages);
    for (const PackedPages::Page& page : m_setup.packed->PagesOf(entry)) {
        for (size_t slash = page.path.find('/', std::strlen(entry.path) + 1);
             slash != std::string::npos; slash = page.path.find('/', slash + 1))
            paths.push_back(m_reader.Whole(page.path.substr(0, slash)));
        paths.push_back(m_reader.Whole(page.path));
        if (isReplaced)
            paths.push_back(m_reader.Whole(ParentOf(page.path)) + '/' + unfinishedPage);
    }
    for (const std::string& path : paths) {
        State state;
        if (Failure failure = m_reader.Read(path, false, state))
            return failure;
        const bool hasOwner = state.owner == m_account && state.group == m_group;
        if (Failure failure = Add(path, isReplaced || (IsRoots() && !hasOwner)))
            return failure;
    }
    return {};
}

// The links that `systemctl disable` and `chkconfig --del` remove.
Failure Snapshot::AddEnablement(const hx::EarlierService& service) {
    const std::string name = service.name;
    const std::string unit = name + ".service";
    const std::string units = std::string(unitDirectory).substr(1);
    std::vector<std::string> paths;
    Names names;
    if (Failure failure = ListDirectory(m_reader.Root(), units, names))
        return failure;
    for (const std::string& each : names) {
        const std::string path = Joined(units, each);
        State alias;
        if (Failure failure = m_reader.Read('/' + path, false, alias))
            return failure;
        if (alias.kind == State::Kind::Link && BaseNameOf(alias.target) == unit)
            paths.push_back(path);
        else if (alias.kind == State::Kind::Directory)
            paths.push_back(Joined(path, unit));
    }
    if (Failure failure = ListDirectory(m_reader.Root(), "etc", names))
        return failure;
    for (const std::string& each : names) {
        // Such as rc3.d/S99NAME.
        if (!service.hasInitScript || !each.starts_with("rc"))
            continue;
        Names links;
        if (Failure failure = ListDirectory(m_reader.Root(), "etc/" + each, links))
            return failure;
        for (const std::string& link : links) {
            if (link.size() == name.size() + 3 && link.ends_with(name))
                paths.push_back(Joined(Joined("etc", each), link));
        }
    }
    for (const std::string& path : paths) {
        State state;
        Failure failure = m_reader.Read('/' + path, false, state);
        if (!failure && state.kind != State::Kind::Missing)
            failure = AddWithParents('/' + path);
        if (failure)
            return failure;
    }
    return {};
}

Failure Snapshot::AddAccounts() {
    const std::string userName = m_setup.serviceUser.toStdString();
    const std::string groupName = m_setup.serviceGroup.toStdString();
    const passwd* user = nullptr;
    const group* itsGroup = nullptr;
    Failure failure = FindUser(userName, user);
    if (!failure)
        failure = FindGroup(groupName, itsGroup);
    if (failure)
        return failure;
    if (itsGroup == nullptr)
        m_snapshot.accounts.push_back({true, groupName, 0, 0, "", "", ""});
    else
        m_group = itsGroup->gr_gid;
    if (user == nullptr)
        m_snapshot.accounts.push_back({false, userName, 0, 0, "", "", ""});
    else
        m_account = user->pw_uid;
    m_snapshot.members.push_back({Change::Create, "", groupName});
    return {};
}

Failure Snapshot::Read() {
    const unsigned conditions = m_setup.conditions | WithEarlierRepository | WithEarlierServices;
    if (Failure failure = IsRoots() ? AddAccounts() : Failure())
        return failure;
    for (const Entry& entry : Entries()) {
        if (!IsStaged(entry) || !Applies(entry, conditions))
            continue;
        Failure failure =
            IsInTree(entry) ? Add(m_reader.Whole(entry.path), true) : AddWithParents(entry.path);
        if (!failure && entry.ownsAllBelow)
            failure = AddPages(entry);
        if (failure)
            return failure;
    }
    if (!IsRoots() || !Applies(Find(Item::Unit), conditions))
        return {};
    for (const hx::EarlierService& service : hx::earlierServices) {
        if (Failure failure = AddEnablement(service))
            return failure;
    }
    AddServicesBefore(m_snapshot);
    return {};
}

// Drops accounts that do not exist now.
Failure CompleteAccounts(std::vector<AccountDifference>& accounts) {
    Failure failure;
    std::erase_if(accounts, [&](AccountDifference& account) {
        const group* itsGroup = nullptr;
        const passwd* user = nullptr;
        Failure unknown =
            account.isGroup ? FindGroup(account.name, itsGroup) : FindUser(account.name, user);
        if (unknown)
            failure = unknown;
        if (itsGroup != nullptr)
            account.gid = itsGroup->gr_gid;
        else if (user != nullptr)
            account = {false,          account.name, user->pw_uid,  user->pw_gid,
                       user->pw_gecos, user->pw_dir, user->pw_shell};
        return itsGroup == nullptr && user == nullptr && !unknown;
    });
    return failure;
}

Failure AddChangedMembers(const std::map<std::string, QStringList>& members,
                          std::vector<MemberDifference>& changed) {
    for (const auto& [group, before] : members) {
        std::optional<QStringList> listed;
        if (Failure failure = ReadLocalMembers(group, listed))
            return failure;
        const QStringList now = listed.value_or(QStringList());
        for (const QString& name : now) {
            if (!before.contains(name))
                changed.push_back({Change::Create, name.toStdString(), group});
        }
        for (const QString& name : before) {
            if (!now.contains(name))
                changed.push_back({Change::Delete, name.toStdString(), group});
        }
    }
    return {};
}

}  // namespace

std::optional<RelativePaths> PathsBelow(int tree, const std::string& directory) {
    RelativePaths paths;
    if (!AddPathsBelow(tree, directory, 0, paths))
        return {};
    return paths;
}

Failure ReadSnapshot(const SetupInPlace& setup, int liveTree, Differences& snapshot) {
    snapshot = {};
    return Snapshot(setup, liveTree, snapshot).Read();
}

Failure CompleteSnapshot(const std::map<std::string, QStringList>& members,
                         const std::string& installDir, int liveTree, Differences& snapshot) {
    const PlaceReader reader(installDir, liveTree);
    for (PathDifference& path : snapshot.paths) {
        const State& before = path.before;
        const bool readsContent = before.kind != State::Kind::File || !before.digest.empty();
        if (Failure failure = reader.Read(path.path, readsContent, path.after))
            return failure;
        path.change = path.after.kind == State::Kind::Missing ? Change::Delete
                      : before.kind == State::Kind::Missing   ? Change::Create
                                                              : Change::Modify;
    }
    std::erase_if(snapshot.paths,
                  [](const PathDifference& path) { return path.before == path.after; });
    if (Failure failure = CompleteAccounts(snapshot.accounts))
        return failure;
    snapshot.members.clear();
    return AddChangedMembers(members, snapshot.members);
}
