// The changes of a setup as JSON. The administrator's guide describes the fields.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <cerrno>
#include <cstring>

#include "report/OwnerNames.h"
#include "report/Report.h"

namespace {

int reservedOutput = STDOUT_FILENO;

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

// Returns false with errno set.
bool WriteText(int descriptor, QByteArrayView text) {
    while (!text.isEmpty()) {
        const ssize_t length =
            write(descriptor, text.constData(), static_cast<size_t>(text.size()));
        if (length < 0)
            return false;
        text = text.sliced(length);
    }
    return true;
}

// Renames a new file over `name`, so that a link or hard link that another user put there leads
// nowhere else.
bool Replace(const std::string& directory, const std::string& name, const QByteArray& text) {
    const Descriptor parent(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!parent)
        return false;
    const std::string created =
        '.' + name.substr(0, 200) + '.' +
        QByteArray::number(QRandomGenerator::system()->generate64(), 16).toStdString();
    const Descriptor file(openat(parent.Number(), created.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file)
        return false;
    if (WriteText(file.Number(), text) && fsync(file.Number()) == 0 &&
        renameat(parent.Number(), created.c_str(), parent.Number(), name.c_str()) == 0)
        return true;
    const int error = errno;
    unlinkat(parent.Number(), created.c_str(), 0);
    errno = error;
    return false;
}

// Without a reader, a FIFO fails to open.
bool WriteToExisting(const std::string& path, const QByteArray& text) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    const int flags = file ? fcntl(file.Number(), F_GETFL) : -1;
    return flags != -1 && fcntl(file.Number(), F_SETFL, flags & ~O_NONBLOCK) == 0 &&
           WriteText(file.Number(), text);
}

// A device, pipe or socket, or a link to one, which other users did not make.
bool IsOwnSpecialFile(const std::string& path, const struct stat& found) {
    struct stat target = {};
    return (found.st_uid == 0 || found.st_uid == geteuid()) && stat(path.c_str(), &target) == 0 &&
           !S_ISREG(target.st_mode) && !S_ISDIR(target.st_mode);
}

Problem UnwritablePath(const std::string& path, const QString& reason) {
    return {
        ExitStatus::SystemCallFailed,
        QStringLiteral("cannot write \"%1\": %2").arg(JsonText(path), reason),
        QStringLiteral("Use another file, or - for standard output, then run the setup again.")};
}

}  // namespace

void ReserveStandardOutputForJson() {
    std::fflush(stdout);
    const int copy = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (copy != -1 && dup2(STDERR_FILENO, STDOUT_FILENO) != -1)
        reservedOutput = copy;
}

Failure WriteJson(const std::string& path, const Differences& differences) {
    const QByteArray text = JsonText(differences);
    bool isWritten = false;
    struct stat found = {};
    if (path == "-") {
        std::fflush(stdout);
        isWritten = WriteText(reservedOutput, text);
    } else if (lstat(path.c_str(), &found) != 0 || S_ISREG(found.st_mode)) {
        const size_t slash = path.rfind('/');
        const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        isWritten = Replace(directory, path.substr(slash + 1), text);
    } else if (IsOwnSpecialFile(path, found)) {
        isWritten = WriteToExisting(path, text);
    } else {
        return UnwritablePath(path, QStringLiteral("not a regular file"));
    }
    if (isWritten)
        return {};
    return UnwritablePath(path, QString::fromUtf8(std::strerror(errno)));
}
