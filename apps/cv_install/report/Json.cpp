// The changes of a setup as JSON. The administrator's guide describes the fields.
#include <sys/stat.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "report/OutputFile.h"
#include "report/OwnerNames.h"
#include "report/Report.h"

namespace {

QString JsonText(const std::string& text) {
    return QString::fromStdString(text);
}

const char* ChangeWord(Change change) {
    return change == Change::Create ? "create" : change == Change::Modify ? "modify" : "delete";
}

const char* KindWord(State::Kind kind) {
    switch (kind) {
        case State::Kind::Directory:
            return "directory";
        case State::Kind::Link:
            return "link";
        case State::Kind::Special:
            return "special";
        default:
            return "file";
    }
}

// Other users may read the JSON: it has no digest of a file that they cannot read.
bool HasPublicDigest(const State& state) {
    return !state.digest.empty() && (state.mode & S_IROTH) != 0;
}

QJsonValue StateObject(const State& state, State::Kind kind, const OwnerNames& names) {
    if (state.kind == State::Kind::Missing)
        return QJsonValue::Null;
    QJsonObject object;
    if (state.kind != kind)
        object["kind"] = KindWord(state.kind);
    object["owner"] = names.User(state.owner);
    object["group"] = names.Group(state.group);
    object["uid"] = static_cast<qint64>(state.owner);
    object["gid"] = static_cast<qint64>(state.group);
    if (state.kind == State::Kind::Link)
        object["target"] = JsonText(state.target);
    else
        object["mode"] = QStringLiteral("%1").arg(state.mode, 4, 8, QLatin1Char('0'));
    if (HasPublicDigest(state))
        object["sha256"] = JsonText(state.digest);
    return object;
}

// An object of one change. One of `before` and `after` is null when it does not exist.
QJsonObject ChangeObject(const char* kind, Change change, const QJsonValue& before,
                         const QJsonValue& after) {
    return {{"kind", kind}, {"change", ChangeWord(change)}, {"before", before}, {"after", after}};
}

QJsonObject PathObject(const PathDifference& difference, const OwnerNames& names) {
    const State& described =
        difference.change == Change::Delete ? difference.before : difference.after;
    QJsonObject object = ChangeObject(KindWord(described.kind), difference.change,
                                      StateObject(difference.before, described.kind, names),
                                      StateObject(difference.after, described.kind, names));
    object["path"] = JsonText(difference.path);
    return object;
}

QJsonObject AccountObject(const AccountDifference& account) {
    QJsonObject created = {{"gid", static_cast<qint64>(account.gid)}};
    if (!account.isGroup) {
        created["uid"] = static_cast<qint64>(account.uid);
        created["comment"] = JsonText(account.comment);
        created["home"] = JsonText(account.home);
        created["shell"] = JsonText(account.shell);
    }
    QJsonObject object =
        ChangeObject(account.isGroup ? "group" : "user", Change::Create, QJsonValue::Null, created);
    object["name"] = JsonText(account.name);
    return object;
}

QJsonObject MemberObject(const MemberDifference& member) {
    const QJsonObject membership = {{"user", JsonText(member.user)},
                                    {"group", JsonText(member.group)}};
    const bool leaves = member.change == Change::Delete;
    QJsonObject object =
        ChangeObject("member", member.change, leaves ? QJsonValue(membership) : QJsonValue::Null,
                     leaves ? QJsonValue::Null : QJsonValue(membership));
    object["name"] = JsonText(member.user);
    return object;
}

QJsonValue ServiceState(const std::string& state) {
    return state.empty() ? QJsonValue(QJsonValue::Null) : QJsonObject{{"state", JsonText(state)}};
}

QJsonObject ServiceObject(const ServiceDifference& service) {
    QJsonObject object = ChangeObject("service", service.change, ServiceState(service.before),
                                      ServiceState(service.after));
    object["name"] = JsonText(service.name);
    return object;
}

QByteArray JsonText(const Differences& differences) {
    const OwnerNames names(differences.accounts);
    QJsonArray changes;
    for (const AccountDifference& account : differences.accounts)
        changes.append(AccountObject(account));
    for (const MemberDifference& member : differences.members)
        changes.append(MemberObject(member));
    for (const PathDifference& path : differences.paths)
        changes.append(PathObject(path, names));
    for (const ServiceDifference& service : differences.services)
        changes.append(ServiceObject(service));
    return QJsonDocument(QJsonObject{{"changes", changes}}).toJson();
}

}  // namespace

Failure WriteJson(const std::string& path, const Differences& differences) {
    return WriteOutputFile(path, JsonText(differences), 0644);
}
