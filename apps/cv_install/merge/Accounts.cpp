#include "merge/Accounts.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <sstream>

#include "installation/Tool.h"
#include "merge/AccountNumber.h"

namespace {

using Words = std::vector<std::string>;
using Records = std::vector<Words>;  // the fields of each line

enum PasswdField { userUid = 2, userGid, userComment, userHome, userShell, userFields };
enum GroupField { groupGid = 2, groupMembers, groupFields };

struct Database {
    const char* name;  // in /etc
    const char* kind;  // of its records, for messages
};

constexpr Database users = {"passwd", "user"};
constexpr Database groups = {"group", "group"};

// Unlike std::getline, keeps an empty part at the end.
Words Split(const std::string& text, char separator) {
    Words parts;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(separator, begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

std::string Join(const Words& parts) {
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : ",") + part;
    return text;
}

Words MembersOf(const Words& record) {
    Words members;
    if (record.size() == groupFields && !record[groupMembers].empty())
        members = Split(record[groupMembers], ',');
    return members;
}

Problem UnreadableDatabase(const Database& database) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot read \"/etc/%1\": %2")
                .arg(QLatin1String(database.name), QString::fromUtf8(std::strerror(errno))),
            QStringLiteral("Fix the cause, then run the setup again.")};
}

// True if the last look into the name service failed, not if it found nothing.
bool IsUnknown(int error) {
    return error == EINTR || error == EIO || error == EMFILE || error == ENFILE ||
           error == ENOMEM || error == ERANGE;
}

// False, with errno set, on failure.
bool Parse(const Descriptor& file, Records& records) {
    std::string text;
    std::array<char, 65536> block = {};
    ssize_t length = 0;
    do {
        length = read(file.Number(), block.data(), block.size());
        text.append(block.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
    } while (length > 0);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        records.push_back(Split(line, ':'));
    return length == 0;
}

Failure LoadLive(const Database& database, Records& records) {
    const Descriptor file(
        open((std::string("/etc/") + database.name).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file || !Parse(file, records))
        return UnreadableDatabase(database);
    return {};
}

Records RecordsOf(const Database& database, const LiveRows& rows) {
    const std::string prefix = std::string(database.kind) + ' ';
    Records records;
    for (auto row = rows.accounts.lower_bound(prefix);
         row != rows.accounts.end() && row->first.starts_with(prefix); ++row)
        records.push_back(Split(row->second, ':'));
    return records;
}

// A file that the script did not change is not in the upper layer.
Failure LoadStaged(const Database& database, int stagedEtc, const Records& former,
                   Records& staged) {
    const Descriptor file = OpenRegularFile(stagedEtc, database.name);
    if (!file && errno == ENOENT)
        staged = former;
    else if (!file || !Parse(file, staged))
        return UnreadableDatabase(database);
    return {};
}

Problem UnknownChange(const Database& database, const std::string& name) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot repeat a change of %1 \"%2\"")
                .arg(QLatin1String(database.kind), QString::fromStdString(name)),
            QStringLiteral("Run the setup again when no other process changes accounts.")};
}

bool ParseUser(const Words& record, AccountDifference& user) {
    if (record.size() != userFields || !ParseNumber(record[userUid], user.uid) ||
        !ParseNumber(record[userGid], user.gid))
        return false;
    user.comment = record[userComment];
    user.home = record[userHome];
    user.shell = record[userShell];
    return true;
}

bool ParseGroup(const Words& record, AccountDifference& group) {
    group.isGroup = true;
    return record.size() == groupFields && ParseNumber(record[groupGid], group.gid);
}

bool Contains(const Words& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

using RecordsByName = std::map<std::string, const Words*>;

RecordsByName ByName(const Records& records) {
    RecordsByName names;
    for (const Words& record : records)
        names.emplace(record[0], &record);
    return names;
}

Words RecordOf(const RecordsByName& records, const std::string& name) {
    const auto found = records.find(name);
    return found == records.end() ? Words() : *found->second;
}

Failure Compare(const Database& database, const LiveRows& atStaging, int stagedEtc,
                Differences& differences) {
    const bool areGroups = &database == &groups;
    const Records former = RecordsOf(database, atStaging);
    Records staged;
    if (Failure failure = LoadStaged(database, stagedEtc, former, staged))
        return failure;
    const RecordsByName known = ByName(former);
    RecordsByName missing = known;
    for (const Words& record : staged) {
        missing.erase(record[0]);
        const Words before = RecordOf(known, record[0]);
        AccountDifference account;
        account.name = record[0];
        if (before.empty()) {
            if (!(areGroups ? ParseGroup(record, account) : ParseUser(record, account)))
                return UnknownChange(database, record[0]);
            differences.accounts.push_back(account);
        } else if (before != record) {
            return UnknownChange(database, record[0]);
        }
    }
    if (!missing.empty())
        return UnknownChange(database, missing.begin()->first);
    return {};
}

// Fails only if the file is unreadable. Without the group, `found` stays empty.
Failure FindLocalMembers(const std::string& group, std::optional<Words>& found) {
    Records live;
    Failure failure = LoadLive(groups, live);
    for (const Words& record : live) {
        if (record[0] == group)
            found = MembersOf(record);
    }
    return failure;
}

// The members that /etc/group lists; empty if it has no such group.
std::optional<Words> ListedMembers(const std::string& group) {
    std::optional<Words> members;
    FindLocalMembers(group, members);
    return members;
}

QString Text(const std::string& text) {
    return QString::fromStdString(text);
}

QStringList TextsOf(const Words& words) {
    QStringList texts;
    for (const std::string& word : words)
        texts.append(Text(word));
    return texts;
}

Problem AccountProblem(const QString& action, const QString& reason) {
    return {ExitStatus::SystemCallFailed, action + QStringLiteral(": ") + reason,
            QStringLiteral("Fix the cause, then run the setup again.")};
}

// The administrator repeats what failed.
void WarnNotTakenBack(const Words& command, const QString& reason) {
    ReportWarning({ExitStatus::Complete,
                   QStringLiteral("cannot undo a change of the accounts: %1").arg(reason),
                   QStringLiteral("Run: %1.").arg(Text(Join(command)).replace(u',', u' '))});
}

// A step of the undo.
bool TakeBack(const Words& command) {
    const auto reason = RunTool(command, Messages::Shown);
    if (reason)
        WarnNotTakenBack(command, *reason);
    return !reason;
}

Failure CreateGroup(const AccountDifference& group, Undo& undo) {
    const std::string number = std::to_string(group.gid);
    const QString action = QStringLiteral("cannot create group \"%1\" with ID %2")
                               .arg(Text(group.name))
                               .arg(group.gid);
    if (getgrnam(group.name.c_str()) != nullptr || getgrgid(group.gid) != nullptr)
        return AccountProblem(action, QStringLiteral("another process used this name or ID"));
    if (const auto reason =
            RunTool({"groupadd", "--system", "--gid", number, group.name}, Messages::Shown))
        return AccountProblem(action, *reason);
    undo.Add([name = group.name] {
        // userdel also deletes the user's own group.
        return getgrnam(name.c_str()) == nullptr || TakeBack({"groupdel", name});
    });
    return {};
}

// userdel also deletes an empty group of the user's name. A member keeps one that existed before.
std::optional<QString> DeleteUser(const AccountDifference& user, bool keepsGroup) {
    const struct group* own = getgrnam(user.name.c_str());
    const bool needsMember = keepsGroup && own != nullptr && own->gr_mem[0] == nullptr;
    if (needsMember)
        TakeBack({"gpasswd", "--add", "root", user.name});
    auto reason = RunTool({"userdel", user.name}, Messages::Shown);
    if (needsMember)
        TakeBack({"gpasswd", "--delete", "root", user.name});
    return reason;
}

Failure CreateUser(const AccountDifference& user, bool keepsGroup, Undo& undo) {
    const QString action =
        QStringLiteral("cannot create user \"%1\" with ID %2").arg(Text(user.name)).arg(user.uid);
    if (getpwnam(user.name.c_str()) != nullptr || getpwuid(user.uid) != nullptr)
        return AccountProblem(action, QStringLiteral("another process used this name or ID"));
    if (const auto reason = RunTool({"useradd", "--system", "--uid", std::to_string(user.uid),
                                     "--gid", std::to_string(user.gid), "--comment", user.comment,
                                     "-M", "--home", user.home, "--shell", user.shell, user.name},
                                    Messages::Shown))
        return AccountProblem(action, *reason);
    undo.Add([user, keepsGroup] {
        const auto reason = DeleteUser(user, keepsGroup);
        if (reason)
            WarnNotTakenBack({"userdel", user.name}, *reason);
        return !reason;
    });
    return {};
}

Words UserCommand(const UserChange& change, const std::string& value) {
    return {"usermod", "--" + change.attribute, value, change.user};
}

Words MemberCommand(Change change, const MemberDifference& member) {
    return {"gpasswd", change == Change::Create ? "--add" : "--delete", member.user, member.group};
}

// Restores the order of the members too, if no other process changed them meanwhile.
bool AddAgain(const MemberDifference& member, const Words& before, const Words& after) {
    return TakeBack(ListedMembers(member.group) == after
                        ? Words{"gpasswd", "--members", Join(before), member.group}
                        : MemberCommand(Change::Create, member));
}

Failure ChangeMember(const MemberDifference& member, Undo& undo) {
    const bool joins = member.change == Change::Create;
    const QString action = (joins ? QStringLiteral("cannot add user \"%1\" to group \"%2\"")
                                  : QStringLiteral("cannot remove user \"%1\" from group \"%2\""))
                               .arg(Text(member.user), Text(member.group));
    const std::optional<Words> before = ListedMembers(member.group);
    if (!before || Contains(*before, member.user) == joins)
        return AccountProblem(action, QStringLiteral("another process changed this group"));
    if (const auto reason = RunTool(MemberCommand(member.change, member), Messages::Shown))
        return AccountProblem(action, *reason);
    if (joins)
        undo.Add([member] { return TakeBack(MemberCommand(Change::Delete, member)); });
    else
        undo.Add([member, before = *before, after = ListedMembers(member.group)] {
            return AddAgain(member, before, after.value_or(Words()));
        });
    return {};
}

CreatedAccount CompareCreated(const AccountDifference& account, const Records& records,
                              const std::vector<MemberDifference>& joined) {
    const auto record = std::find_if(records.begin(), records.end(),
                                     [&](const Words& each) { return each[0] == account.name; });
    if (record == records.end())
        return CreatedAccount::Missing;
    AccountDifference found;
    found.name = account.name;
    found.change = account.change;
    const bool isParsed = account.isGroup ? ParseGroup(*record, found) : ParseUser(*record, found);
    if (!isParsed || (account.isGroup ? found.gid != account.gid : found.uid != account.uid))
        return CreatedAccount::Other;
    if (found != account)
        return CreatedAccount::Changed;
    for (const std::string& member : account.isGroup ? MembersOf(*record) : Words()) {
        if (std::find(joined.begin(), joined.end(),
                      MemberDifference{Change::Create, member, account.name}) == joined.end())
            return CreatedAccount::Changed;
    }
    return CreatedAccount::Unchanged;
}

}  // namespace

Failure FindMemberDifferences(const std::string& group, const MemberChanges& changes,
                              std::vector<MemberDifference>& members) {
    std::optional<Words> listed;
    if (Failure failure = FindLocalMembers(group, listed))
        return failure;
    const Words present = listed.value_or(Words());
    for (const QString& name : changes.joining) {
        if (!Contains(present, name.toStdString()))
            members.push_back({Change::Create, name.toStdString(), group});
    }
    for (const QString& name : changes.leaving) {
        if (Contains(present, name.toStdString()))
            members.push_back({Change::Delete, name.toStdString(), group});
    }
    return {};
}

Failure FindAccountDifferences(const LiveRows& atStaging, const StagedMachine& staged,
                               Differences& differences) {
    const int etc = staged.etc.Number();
    Failure failure = Compare(groups, atStaging, etc, differences);
    if (!failure)
        failure = Compare(users, atStaging, etc, differences);
    if (!failure)
        failure = FindMemberDifferences(staged.serviceGroup.toStdString(), staged.members,
                                        differences.members);
    return failure;
}

Failure ApplyMembers(const std::vector<MemberDifference>& members, Undo& undo) {
    for (const MemberDifference& member : members) {
        if (Failure failure = ChangeMember(member, undo))
            return failure;
    }
    return {};
}

Failure ApplyUserChanges(const std::vector<UserChange>& changes, Undo& undo) {
    for (const UserChange& change : changes) {
        if (const auto reason = RunTool(UserCommand(change, change.after), Messages::Shown)) {
            return AccountProblem(
                QStringLiteral("cannot change %1 of user \"%2\" to \"%3\"")
                    .arg(Text(change.attribute), Text(change.user), Text(change.after)),
                *reason);
        }
        undo.Add([change] { return TakeBack(UserCommand(change, change.before)); });
    }
    return {};
}

Failure ApplyAccounts(const Differences& differences, Undo& undo) {
    std::set<std::string> createdGroups;
    Failure failure;
    for (const AccountDifference& account : differences.accounts) {
        if (account.isGroup) {
            createdGroups.insert(account.name);
            failure = CreateGroup(account, undo);
        } else {
            failure = CreateUser(account, !createdGroups.contains(account.name), undo);
        }
        if (failure)
            return failure;
    }
    return ApplyMembers(differences.members, undo);
}

Failure FindUser(const std::string& name, const passwd*& user) {
    errno = 0;
    user = getpwnam(name.c_str());
    return user == nullptr && IsUnknown(errno) ? UnreadableDatabase(users) : Failure();
}

Failure FindGroup(const std::string& name, const group*& found) {
    errno = 0;
    found = getgrnam(name.c_str());
    return found == nullptr && IsUnknown(errno) ? UnreadableDatabase(groups) : Failure();
}

Failure ReadLocalMembers(const std::string& group, std::optional<QStringList>& members) {
    std::optional<Words> listed;
    Failure failure = FindLocalMembers(group, listed);
    if (listed)
        members = TextsOf(*listed);
    return failure;
}

Failure FindCreatedAccount(const AccountDifference& account,
                           const std::vector<MemberDifference>& joined, CreatedAccount& found) {
    Records records;
    if (Failure failure = LoadLive(account.isGroup ? groups : users, records))
        return failure;
    found = CompareCreated(account, records, joined);
    return {};
}

std::optional<QString> DeleteAccount(const AccountDifference& account, bool keepsGroup) {
    if (!account.isGroup)
        return DeleteUser(account, keepsGroup);
    // userdel may have deleted it.
    if (getgrnam(account.name.c_str()) == nullptr)
        return {};
    return RunTool({"groupdel", account.name}, Messages::Shown);
}

void RestoreOrderOfMembers(const std::string& group, const QStringList& members) {
    Words wanted;
    for (const QString& name : members)
        wanted.push_back(name.toStdString());
    const std::optional<Words> listed = ListedMembers(group);
    if (listed && *listed != wanted &&
        std::is_permutation(listed->begin(), listed->end(), wanted.begin(), wanted.end()))
        TakeBack({"gpasswd", "--members", Join(wanted), group});
}
