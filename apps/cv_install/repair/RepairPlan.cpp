#include "repair/RepairPlan.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>

#include "installation/DirectoryNames.h"
#include "installation/Mounts.h"
#include "installation/PathParts.h"
#include "installation/ServiceState.h"
#include "merge/Accounts.h"
#include "record/PreviousSetup.h"
#include "undo/AccountUse.h"
#include "verify/InstalledMachine.h"

namespace {

using Attributes = std::map<std::string, FoundDifference>;  // by attribute

bool IsUserRecordRow(const Entry& entry) {
    return std::string(entry.path).starts_with(userRecords);
}

bool IsRecordRow(const Entry& entry) {
    const std::string record = Find(Item::Record).path;
    return entry.path == record || IsBelow(entry.path, record) || IsUserRecordRow(entry);
}

std::string PathFrom(const std::string& top, const std::string& path) {
    return path.empty() ? top : (top == "/" ? "" : top) + '/' + path;
}

bool IsContentOfSetup(const ManifestEntry& entry) {
    return !entry.state.digest.empty();
}

class RepairPlanning {
public:
    RepairPlanning(const RecordedInstallation& installation, const VerifyResult& result,
                   RepairPlan& plan);

    void AddPaths();
    Failure AddAccounts();
    void AddService(bool alwaysRestart);

private:
    std::string RowPath(const Entry& entry) const;
    const Entry* FindRow(const std::string& path) const;
    void AddPathsOf(const std::vector<ManifestEntry>& entries, const std::string& top);
    std::string PathOf(const ManifestEntry& entry) const { return PathFrom(m_base, entry.path); }
    std::string ShownPath(const ManifestEntry& entry) const;
    bool IsOfOther(const ManifestEntry& entry, const State& live) const;
    void AddPath(const ManifestEntry& entry, const std::string& shown,
                 const Attributes& attributes);
    std::optional<State> ReadLive(const ManifestEntry& entry) const;
    void AddMissingParent(const std::string& path);
    void AddLimits(PathDifference& difference, const Attributes& attributes) const;
    QString WhyDirectoryStays(const ManifestEntry& entry, State& live, bool& isOther) const;
    bool HasRecordedChild(const ManifestEntry& directory, const Descriptor& opened) const;
    void Leave(const Attributes& attributes, const QString& reason);
    Failure TakeUser(const FoundDifference& difference);
    Failure TakeMember(const FoundDifference& difference);
    Failure TakeMissingAccount(const FoundDifference& difference, bool& isTaken);

    const RecordedInstallation& m_installation;
    const Manifest& m_manifest;
    const VerifyResult& m_result;
    const std::string m_tree;
    std::string m_base;  // what the paths of the entries are relative to
    Descriptor m_top;    // opened
    RepairPlan& m_plan;
    std::map<std::string, Attributes> m_damaged;  // by shown path, that are not planned yet
    std::set<std::string> m_created;              // shown paths, with everything below
    std::vector<std::string> m_leftPaths;         // shown
};

RepairPlanning::RepairPlanning(const RecordedInstallation& installation, const VerifyResult& result,
                               RepairPlan& plan)
    : m_installation(installation),
      m_manifest(installation.manifest),
      m_result(result),
      m_tree(TreeOf(installation.manifest)),
      m_plan(plan) {
    for (const FoundDifference& difference : m_result.differences) {
        if (!difference.path.isEmpty())
            m_damaged[difference.path.toStdString()].emplace(difference.attribute, difference);
    }
}

// The directory above a user's record has a row of its own. The record has those of root's.
std::string RepairPlanning::RowPath(const Entry& entry) const {
    if (IsUserRecordRow(entry))
        return PathFrom(UserRecords().toStdString(),
                        PathInUserRecords(entry, m_installation.installDir).toStdString());
    return IsRecordRow(entry) ? m_installation.record->PathOf(entry.item).toStdString()
                              : ::PathOf(entry, m_tree);
}

// The row of a path, or of the directory of web pages that contains it.
const Entry* RepairPlanning::FindRow(const std::string& path) const {
    const auto rows = Entries();
    const auto found = std::ranges::find_if(rows, [&](const Entry& entry) {
        if ((!IsStaged(entry) && !IsRecordRow(entry)) || entry.kind == Kind::EarlierService)
            return false;
        const std::string row = RowPath(entry);
        return path == row || (entry.ownsAllBelow && IsBelow(path, row));
    });
    return found == rows.end() ? nullptr : &*found;
}

std::string RepairPlanning::ShownPath(const ManifestEntry& entry) const {
    const std::string path = PathOf(entry);
    const std::string installDir = m_installation.installDir.toStdString();
    return path == m_tree || IsBelow(path, m_tree) ? installDir + path.substr(m_tree.size()) : path;
}

void RepairPlanning::Leave(const Attributes& attributes, const QString& reason) {
    for (const auto& [attribute, difference] : attributes)
        m_plan.left.push_back({difference, reason});
}

bool IsBelowOneOf(const std::string& path, const auto& directories) {
    return std::ranges::any_of(
        directories, [&](const std::string& directory) { return IsBelow(path, directory); });
}

void RepairPlanning::AddPaths() {
    AddPathsOf(m_manifest.entries, m_manifest.top);
    if (!m_installation.IsRoots())
        AddPathsOf(EntriesOfUserRecord(m_installation), UserRecords().toStdString());
    // Commands of the scheduler, and the product.
    for (const auto& [path, attributes] : m_damaged)
        Leave(attributes, QStringLiteral("it is not part of the installation"));
}

void RepairPlanning::AddPathsOf(const std::vector<ManifestEntry>& entries, const std::string& top) {
    m_base = top;
    m_top = Descriptor(open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const ManifestEntry& entry : entries) {
        const std::string shown = ShownPath(entry);
        const auto found = m_damaged.find(shown);
        const Attributes attributes = found == m_damaged.end() ? Attributes() : found->second;
        if (found != m_damaged.end())
            m_damaged.erase(found);
        if (IsBelowOneOf(shown, m_leftPaths)) {
            Leave(attributes, QStringLiteral("its directory is not restored"));
            continue;
        }
        const bool isBelowCreated = IsBelowOneOf(shown, m_created);
        const bool isOtherTree =
            attributes.contains("target") && entry.state.kind != State::Kind::Link;
        if (attributes.empty() && !isBelowCreated)
            continue;
        if (!entry.isInstalled || isOtherTree) {
            Leave(attributes, QStringLiteral("it is not part of the installation"));
            m_leftPaths.push_back(shown);
        } else {
            AddPath(entry, shown, attributes);
        }
    }
}

// systemctl disable removes the directory of the link.
void RepairPlanning::AddMissingParent(const std::string& path) {
    const std::string parent = ParentOf(path);
    const auto listed = std::ranges::find_if(m_manifest.entries, [&](const ManifestEntry& entry) {
        return PathOf(entry) == parent && !entry.isInstalled;
    });
    const std::optional<State> live = ReadStateAt(m_top.Number(), parent.substr(1));
    if (listed == m_manifest.entries.end() || !live || live->kind != State::Kind::Missing)
        return;
    State state;
    state.kind = State::Kind::Directory;
    state.mode = 0755;
    m_plan.differences.paths.push_back({Change::Create, parent, {}, state, nullptr});
}

// What other users cannot read in the install tree may be another user's.
std::optional<State> RepairPlanning::ReadLive(const ManifestEntry& entry) const {
    const bool isShared = m_installation.IsRoots() && IsBelow(PathOf(entry), m_tree);
    const Reading reading = !IsContentOfSetup(entry) ? Reading::Nothing
                            : isShared               ? Reading::PublicFiles
                                                     : Reading::AllFiles;
    const std::optional<State> live = ReadStateAt(m_top.Number(), entry.path, reading);
    return live ? live : ReadStateAt(m_top.Number(), entry.path, Reading::Nothing);
}

void RepairPlanning::AddPath(const ManifestEntry& entry, const std::string& shown,
                             const Attributes& attributes) {
    const std::string path = PathOf(entry);
    const Entry* row = FindRow(path);
    std::optional<State> live = State();
    if (!IsBelowOneOf(shown, m_created))
        live = ReadLive(entry);
    QString reason;
    bool isOther = false;
    if (!live)
        reason = QStringLiteral("it cannot be read");
    else if (row == nullptr)
        reason = QStringLiteral("it is not in a directory of the setup");
    else if (IsOfOther(entry, *live))
        reason = QStringLiteral("it belongs to another user");
    else if (live->kind == State::Kind::Directory && live->kind == entry.state.kind)
        reason = WhyDirectoryStays(entry, *live, isOther);
    if (!reason.isEmpty()) {
        Leave(attributes, reason);
        m_leftPaths.push_back(shown);
        return;
    }
    const bool isMissing = live->kind == State::Kind::Missing;
    PathDifference difference = {isMissing ? Change::Create : Change::Modify, path, *live,
                                 entry.state, row};
    const bool isFile = entry.state.kind == State::Kind::File && live->kind == State::Kind::File;
    // The plan shows whether the content differs by the digests alone.
    if (isFile && IsContentOfSetup(entry) && !attributes.contains("content"))
        difference.before.digest = entry.state.digest;
    // Pages may have been edited.
    difference.keepsReplaced =
        isOther || (isFile && row->ownsAllBelow && attributes.contains("content"));
    if (row->item == Item::QueueLimits)
        AddLimits(difference, attributes);
    if (entry.state.kind == State::Kind::Directory &&
        (live->kind != State::Kind::Directory || isOther))
        m_created.insert(shown);
    if (isMissing && !IsBelow(path, m_tree))
        AddMissingParent(path);
    for (const auto& [attribute, each] : attributes)
        m_plan.found[path].push_back(each);
    // Nothing is reported below a directory that is missing.
    if (attributes.empty()) {
        const QString kind = QLatin1String(WordOf(entry.state.kind));
        m_plan.found[path].push_back({QString::fromStdString(shown),
                                      {},
                                      WordOf(entry.state.kind),
                                      "kind",
                                      kind,
                                      QLatin1String(WordOf(live->kind))});
    }
    m_plan.differences.paths.push_back(std::move(difference));
}

void RepairPlanning::AddLimits(PathDifference& difference, const Attributes& attributes) const {
    for (const auto& [key, value] : LimitsOf(m_manifest.answers)) {
        const auto found = attributes.find(key);
        if (found != attributes.end()) {
            difference.changedLines.push_back(
                QStringLiteral("%1: %2 -> %3")
                    .arg(QLatin1String(key), found->second.found, value)
                    .toStdString());
        }
    }
}

// A user cannot give entries to others, and cannot change directories of others. A file or link is
// replaced.
bool RepairPlanning::IsOfOther(const ManifestEntry& entry, const State& live) const {
    const bool stays = live.kind == State::Kind::Directory && live.kind == entry.state.kind;
    return !m_installation.IsRoots() &&
           (entry.state.owner != getuid() || (stays && live.owner != getuid()));
}

bool RepairPlanning::HasRecordedChild(const ManifestEntry& directory,
                                      const Descriptor& opened) const {
    return std::ranges::any_of(m_manifest.entries, [&](const ManifestEntry& entry) {
        if (ParentOf(entry.path) != directory.path || !entry.isInstalled)
            return false;
        const std::optional<State> live =
            ReadState(opened.Number(), BaseNameOf(entry.path), Reading::Nothing);
        return live && live->kind == entry.state.kind && live->owner == entry.state.owner;
    });
}

bool IsEmptyDirectory(const Descriptor& opened) {
    Names names;
    return ReadNames(opened.Number(), names, 1) && names.empty();
}

// Members of the service group can put another user's directory in the place of one in the install
// tree, and the restored owner and mode would give them access to what is in it. So one of another
// owner is replaced by a new directory (`isOther`), unless it contains what a setup put there, and
// either only its owner can write to it, or the group can already. A private one is taken only if
// such an entry is in it or if it is empty, and only its owner can write to it. Sets `live` to the
// state of the directory that was checked.
QString RepairPlanning::WhyDirectoryStays(const ManifestEntry& entry, State& live,
                                          bool& isOther) const {
    if (!m_installation.IsRoots() || !IsBelow(PathOf(entry), m_tree))
        return {};
    const Descriptor opened = OpenDirectory(m_top.Number(), entry.path);
    const Descriptor parent = OpenDirectory(m_top.Number(), ParentOf(entry.path));
    const std::optional<State> checked = opened ? ReadAttributes(opened) : std::nullopt;
    if (!checked || !parent)
        return QStringLiteral("it cannot be read");
    if (MountOf(opened.Number()) != MountOf(parent.Number()))
        return QStringLiteral("it is a mount point");
    live = *checked;
    constexpr mode_t forAll = S_IROTH | S_IXOTH;
    const bool isOwners = live.owner == entry.state.owner;
    const bool onlyOwnerWrites = (live.mode & (S_IWGRP | S_IWOTH)) == 0;
    const bool isSetups = HasRecordedChild(entry, opened);
    if ((live.mode & forAll) == forAll) {
        const bool isShared =
            live.group == entry.state.group && (live.mode & (S_IWGRP | S_ISVTX)) == mode_t{S_IWGRP};
        isOther = !isOwners && !(isSetups && (onlyOwnerWrites || isShared));
        return {};
    }
    if (isOwners && onlyOwnerWrites && (isSetups || IsEmptyDirectory(opened)))
        return {};
    return QStringLiteral("it may be another user's private directory");
}

Failure RepairPlanning::AddAccounts() {
    for (const FoundDifference& difference : m_result.differences) {
        if (!difference.path.isEmpty())
            continue;
        const std::string kind = difference.kind;
        Failure failure;
        if (kind == VerifyResult::member)
            failure = TakeMember(difference);
        else if (kind == VerifyResult::user || kind == VerifyResult::group)
            failure = TakeUser(difference);
        if (failure)
            return failure;
    }
    return {};
}

// `exists` is also true if the group is created again. Looking for its name shows whether the
// groups can be read.
Failure FindPrimaryGroup(const AccountFacts& facts, bool& exists) {
    exists = getgrgid(facts.primaryGid) != nullptr;
    if (exists)
        return {};
    const group* named = nullptr;
    Failure failure = FindGroup(facts.group, named);
    exists = facts.primaryGid == facts.gid && named == nullptr;
    return failure;
}

// Whether another account has the number of one that is missing. Looking for the name shows whether
// the accounts can be read.
Failure FindNumber(const AccountFacts& facts, bool isGroup, bool& isUsed) {
    const group* namedGroup = nullptr;
    const passwd* namedUser = nullptr;
    isUsed = isGroup ? getgrgid(facts.gid) != nullptr : getpwuid(facts.uid) != nullptr;
    return isGroup ? FindGroup(facts.group, namedGroup) : FindUser(facts.user, namedUser);
}

// Such as the service. usermod then refuses to change the home directory.
bool HasUserProcesses(const AccountFacts& facts) {
    const AccountDifference user = {false, facts.user, facts.uid, facts.primaryGid, {}, {}, {}};
    return FindAccountUse(user, {}, std::chrono::seconds(0)).use.startsWith(u"process");
}

Failure RepairPlanning::TakeMissingAccount(const FoundDifference& difference, bool& isTaken) {
    const AccountFacts& facts = *m_manifest.account;
    const bool isGroup = std::string(difference.kind) == VerifyResult::group;
    bool isNumberUsed = false;
    bool hasPrimaryGroup = isGroup;
    Failure failure = FindNumber(facts, isGroup, isNumberUsed);
    if (!failure && !isGroup)
        failure = FindPrimaryGroup(facts, hasPrimaryGroup);
    isTaken = !isNumberUsed && hasPrimaryGroup;
    if (failure || !isTaken)
        return failure;
    std::vector<AccountDifference>& accounts = m_plan.differences.accounts;
    if (!isGroup) {
        accounts.push_back({false, facts.user, facts.uid, facts.primaryGid, accountComment,
                            facts.home, facts.shell});
        return {};
    }
    // Groups before users.
    accounts.insert(accounts.begin(), {true, facts.group, 0, facts.gid, {}, {}, {}});
    for (const std::string& member : facts.members) {
        const passwd* user = nullptr;
        failure = FindUser(member, user);
        if (failure)
            return failure;
        if (member == facts.user || user != nullptr)
            m_plan.differences.members.push_back({Change::Create, member, facts.group});
    }
    return {};
}

Failure RepairPlanning::TakeUser(const FoundDifference& difference) {
    const std::string attribute = difference.attribute;
    const AccountFacts& facts = *m_manifest.account;
    if (attribute == "kind") {
        bool isTaken = false;
        Failure failure = TakeMissingAccount(difference, isTaken);
        if (!isTaken)
            m_plan.left.push_back(
                {difference, QStringLiteral("its number or primary group is not as recorded")});
        return failure;
    }
    bool hasPrimaryGroup = true;
    if (attribute == "gid") {
        if (Failure failure = FindPrimaryGroup(facts, hasPrimaryGroup))
            return failure;
    }
    const bool isUser = std::string(difference.kind) == VerifyResult::user;
    if (!isUser || attribute == "uid") {
        m_plan.left.push_back({difference, QStringLiteral("numbers are never changed")});
    } else if (!hasPrimaryGroup) {
        m_plan.left.push_back({difference, QStringLiteral("the group does not exist")});
    } else if (attribute == "home" && HasUserProcesses(facts)) {
        m_plan.left.push_back({difference, QStringLiteral("the user has processes")});
    } else {
        m_plan.differences.userChanges.push_back({facts.user, attribute,
                                                  difference.found.toStdString(),
                                                  difference.expected.toStdString()});
    }
    return {};
}

Failure RepairPlanning::TakeMember(const FoundDifference& difference) {
    const AccountFacts& facts = *m_manifest.account;
    const std::string name = difference.name.toStdString();
    const bool joins = std::ranges::find(facts.members, name) != facts.members.end();
    const passwd* user = nullptr;
    if (Failure failure = FindUser(name, user))
        return failure;
    if (joins && name != facts.user && user == nullptr) {
        m_plan.left.push_back({difference, QStringLiteral("the user does not exist")});
        return {};
    }
    m_plan.differences.members.push_back(
        {joins ? Change::Create : Change::Delete, name, facts.group});
    return {};
}

// Content, kind or target of something that the service uses changes, or its groups do.
bool ConcernsService(const Differences& differences, const AccountFacts& facts) {
    const auto isUsed = [](const PathDifference& path) {
        return path.entry != nullptr && path.entry->serviceUses &&
               (path.before.kind != path.after.kind || path.before.digest != path.after.digest ||
                path.before.target != path.after.target);
    };
    const auto isUsers = [&](const MemberDifference& member) { return member.user == facts.user; };
    const auto isGroup = [](const UserChange& change) { return change.attribute == "gid"; };
    return std::ranges::any_of(differences.paths, isUsed) ||
           std::ranges::any_of(differences.members, isUsers) ||
           std::ranges::any_of(differences.userChanges, isGroup);
}

void RepairPlanning::AddService(bool alwaysRestart) {
    constexpr const char* active = "active";
    const auto found =
        std::ranges::find_if(m_result.differences, [](const FoundDifference& difference) {
            return std::string(difference.kind) == VerifyResult::service;
        });
    std::vector<ServiceDifference>& services = m_plan.differences.services;
    if (found != m_result.differences.end()) {
        services.push_back({Change::Create, serviceUnit, found->found.toStdString(), active});
        return;
    }
    if (!HasService(m_manifest))
        return;
    const bool concerns = ConcernsService(m_plan.differences, *m_manifest.account);
    if ((concerns || alwaysRestart) &&
        PropertyOf(ServiceProperties(), "ActiveState") == QLatin1String(active))
        services.push_back({Change::Modify, serviceUnit, active, active});
}

}  // namespace

bool RepairPlan::NeedsContent() const {
    return std::ranges::any_of(differences.paths, [](const PathDifference& path) {
        return path.after.kind == State::Kind::File && path.entry != nullptr &&
               path.entry->item != Item::QueueEntries &&
               (!IsInRecord(path) || path.entry->item == Item::RecordedScript);
    });
}

void RepairPlan::Leave(const std::string& path, const QString& reason) {
    std::erase_if(differences.paths, [&](const PathDifference& each) { return each.path == path; });
    for (const FoundDifference& each : found[path])
        left.push_back({each, reason});
}

std::string TreeOf(const Manifest& manifest) {
    return PathFrom(manifest.top, manifest.tree);
}

bool IsInRecord(const PathDifference& difference) {
    return difference.entry != nullptr && IsRecordRow(*difference.entry);
}

Failure FindRepair(const RecordedInstallation& installation, const VerifyResult& result,
                   bool alwaysRestart, RepairPlan& plan) {
    plan = {};
    RepairPlanning planning(installation, result, plan);
    planning.AddPaths();
    if (Failure failure = planning.AddAccounts())
        return failure;
    planning.AddService(alwaysRestart);
    return {};
}

QByteArray WithLimits(const QByteArray& text,
                      const std::vector<std::pair<const char*, QString>>& limits) {
    QByteArrayList lines = text.split('\n');
    if (lines.last().isEmpty())
        lines.removeLast();
    for (const auto& [key, value] : limits) {
        const QByteArray line = key + QByteArray(": ") + value.toUtf8();
        bool isFound = false;
        for (QByteArray& each : lines) {
            const qsizetype colon = each.indexOf(':');
            if (colon == -1 || each.left(colon).toLower() != QByteArray(key).toLower())
                continue;
            if (each.mid(colon + 1).trimmed() != value.trimmed().toUtf8())
                each = line;
            isFound = true;
        }
        if (!isFound)
            lines.append(line);
    }
    return lines.join('\n') + '\n';
}
