#include "merge/ServiceAccount.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "answers/ValueGuard.h"
#include "installation/Installation.h"
#include "installation/State.h"
#include "merge/AccountNumber.h"

namespace {

struct RecordPath {
    std::string directory;  // without its leading slash
    std::string name;
};

RecordPath PathOfRecord() {
    const std::string path = Find(Item::AccountRecord).path;
    const size_t slash = path.rfind('/');
    return {path.substr(1, slash - 1), path.substr(slash + 1)};
}

Problem RecordProblem(const char* verb, const QString& reason, Changes changes) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot %1 the service account in \"%2\": %3")
                .arg(QLatin1String(verb), QLatin1String(Find(Item::AccountRecord).path), reason),
            QStringLiteral("Inspect this file and its directory, remove them, then run the setup "
                           "again."),
            changes};
}

Problem Unreadable(const QString& reason) {
    return RecordProblem("read", reason, Changes::None);
}

Problem Unwritable(const QString& reason) {
    return RecordProblem("write", reason, Changes::Unknown);
}

QString Reason(int error) {
    return QString::fromUtf8(std::strerror(error));
}

bool OnlyRootCanWriteTo(const Descriptor& opened) {
    struct stat found = {};
    return fstatat(opened.Number(), "", &found, AT_EMPTY_PATH) == 0 && found.st_uid == 0 &&
           found.st_gid == 0 && (found.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string TextOf(const ServiceAccount& account) {
    return "user=" + account.user + "\nuid=" + std::to_string(account.uid) +
           "\ngroup=" + account.group + "\ngid=" + std::to_string(account.gid) + "\n";
}

// Accepts only what TextOf returns.
std::optional<ServiceAccount> Parse(const std::string& text) {
    ServiceAccount account;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        const std::string key = line.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : line.substr(equals + 1);
        if (key == "user")
            account.user = value;
        else if (key == "group")
            account.group = value;
        else if (!ParseNumber(value, key == "uid" ? account.uid : account.gid))
            return {};
    }
    if (TextOf(account) != text || !IsAccountName(QString::fromStdString(account.user)) ||
        !IsAccountName(QString::fromStdString(account.group)))
        return {};
    return account;
}

std::optional<ServiceAccount> FindDefaultAccount() {
    const passwd* user = getpwnam(accountName);
    if (user == nullptr)
        return {};
    ServiceAccount account{
        .user = accountName, .group = {}, .uid = user->pw_uid, .gid = user->pw_gid};
    if (const group* found = getgrgid(account.gid))
        account.group = found->gr_name;
    return account;
}

// Empty, with errno set, on failure.
std::optional<std::string> ReadText(const Descriptor& file) {
    std::array<char, 4096> text = {};
    const ssize_t length = read(file.Number(), text.data(), text.size());
    if (length < 0)
        return {};
    return std::string(text.data(), static_cast<size_t>(length));
}

// Opens the directory, which it creates if it does not exist.
Descriptor OpenRecordDirectory(const Descriptor& root, const std::string& path) {
    Descriptor directory = OpenDirectory(root.Number(), path);
    if (directory || errno != ENOENT)
        return directory;
    constexpr mode_t mode = 0755;
    if (mkdirat(root.Number(), path.c_str(), mode) != 0)
        return {};
    directory = OpenDirectory(root.Number(), path);
    // The umask may be strict.
    if (directory && fchmodat(root.Number(), path.c_str(), mode, 0) != 0)
        return {};
    return directory;
}

// False, with errno set, on failure.
bool WriteNewFile(const Descriptor& directory, const std::string& name, const std::string& text) {
    // A killed setup may have left it.
    if (unlinkat(directory.Number(), name.c_str(), 0) != 0 && errno != ENOENT)
        return false;
    const mode_t mode = Find(Item::AccountRecord).rootMode;
    const Descriptor file(openat(directory.Number(), name.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file)
        return false;
    errno = ENOSPC;
    return write(file.Number(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
           fchmod(file.Number(), mode) == 0 && fsync(file.Number()) == 0;
}

bool IsWritten(const Descriptor& directory, const std::string& name, const std::string& text) {
    const Descriptor file = OpenRegularFile(directory.Number(), name);
    struct stat found = {};
    return file && OnlyRootCanWriteTo(file) && fstat(file.Number(), &found) == 0 &&
           (found.st_mode & 07777) == Find(Item::AccountRecord).rootMode && ReadText(file) == text;
}

}  // namespace

Failure ReadServiceAccount(std::optional<ServiceAccount>& account) {
    const RecordPath path = PathOfRecord();
    const Descriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const Descriptor directory = OpenDirectory(root.Number(), path.directory);
    const Descriptor file =
        directory ? OpenRegularFile(directory.Number(), path.name) : Descriptor();
    if (!file) {
        if (errno != ENOENT)
            return Unreadable(Reason(errno));
        account = FindDefaultAccount();
        return {};
    }
    if (!OnlyRootCanWriteTo(directory) || !OnlyRootCanWriteTo(file))
        return Unreadable(QStringLiteral("other users can write to it"));
    const std::optional<std::string> text = ReadText(file);
    if (!text)
        return Unreadable(Reason(errno));
    account = Parse(*text);
    if (!account)
        return Unreadable(QStringLiteral("no setup wrote this text"));
    return {};
}

Failure WriteServiceAccount(const ServiceAccount& account) {
    const RecordPath path = PathOfRecord();
    const std::string newName = '.' + path.name + ".new";
    const std::string text = TextOf(account);
    const Descriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const Descriptor directory = OpenRecordDirectory(root, path.directory);
    if (!directory)
        return Unwritable(Reason(errno));
    if (!OnlyRootCanWriteTo(directory))
        return Unwritable(QStringLiteral("other users can write to it"));
    if (IsWritten(directory, path.name, text))
        return {};
    if (!WriteNewFile(directory, newName, text) ||
        renameat(directory.Number(), newName.c_str(), directory.Number(), path.name.c_str()) != 0) {
        const int error = errno;
        unlinkat(directory.Number(), newName.c_str(), 0);
        return Unwritable(Reason(error));
    }
    return {};
}

Failure RecordServiceAccount(const QString& user, const QString& group) {
    const passwd* foundUser = getpwnam(user.toUtf8().constData());
    const ::group* foundGroup = getgrnam(group.toUtf8().constData());
    if (foundUser == nullptr || foundGroup == nullptr)
        return Unwritable(QStringLiteral("%1:%2 does not exist").arg(user, group));
    return WriteServiceAccount({.user = user.toStdString(),
                                .group = group.toStdString(),
                                .uid = foundUser->pw_uid,
                                .gid = foundGroup->gr_gid});
}
