#include "record/RecordDirectory.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "WriteAll.h"
#include "installation/Owners.h"
#include "installation/RootPath.h"

namespace {

constexpr mode_t modeBits = 07777;
constexpr mode_t modeOfPrivate = 0700;

QString CauseOf(int error) {
    return QString::fromUtf8(std::strerror(error));
}

std::string LastComponent(Item item) {
    return std::filesystem::path(Find(item).path).filename();
}

QString UserRecordPath(const QString& installDir) {
    const QString records = UserRecords();
    return records.isEmpty()
               ? QString()
               : records + u'/' + PathInUserRecords(Find(Item::UserRecord), installDir);
}

Descriptor OpenRecordDirectoryAt(int parent, const std::string& name) {
    return Descriptor(
        openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// `directory` may be open as a path only.
bool Sync(int directory) {
    const Descriptor opened(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened && fsync(opened.Number()) == 0;
}

// Returns why a directory or file of the record of `owner` cannot be trusted; empty if it can.
QString ReasonAgainstTrust(const Descriptor& opened, uid_t owner) {
    struct stat found = {};
    if (fstat(opened.Number(), &found) != 0)
        return CauseOf(errno);
    if (found.st_uid != owner)
        return QStringLiteral("it is owned by user %1").arg(UserName(found.st_uid));
    if ((found.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return QStringLiteral("other users can write to it");
    return {};
}

QString ReasonAgainstUsersMode(const Descriptor& opened) {
    struct stat found = {};
    if (fstat(opened.Number(), &found) == 0 && (found.st_mode & modeBits) == modeOfPrivate)
        return {};
    return QStringLiteral("its mode is not 700");
}

QString TextOf(const Unresolved& unresolved) {
    switch (unresolved.reason) {
        case Unresolved::Reason::OthersCanWrite:
            return QStringLiteral("other users can write to it");
        case Unresolved::Reason::LinkOfOther:
            return QStringLiteral("it is below a symbolic link of another user");
        default:
            return CauseOf(unresolved.error);
    }
}

}  // namespace

QString UserRecords() {
    const char* fromEnvironment = std::getenv("XDG_STATE_HOME");
    if (fromEnvironment != nullptr && fromEnvironment[0] == '/')
        return QString::fromUtf8(fromEnvironment);
    const passwd* user = getpwuid(getuid());
    if (user == nullptr || !QFileInfo(QString::fromUtf8(user->pw_dir)).isDir())
        return {};
    return QString::fromUtf8(user->pw_dir) + QLatin1String(userRecords + 1);
}

QString PathInUserRecords(const Entry& entry, const QString& installDir) {
    QString path = QLatin1String(entry.path + std::strlen(userRecords) + 1);
    return path.replace(QLatin1String(escapedPart),
                        QString::fromStdString(EscapedPath(installDir)));
}

std::string EscapedPath(const QString& installDir) {
    QString path = QFileInfo(installDir).canonicalFilePath();
    if (path.isEmpty())
        path = QDir::cleanPath(installDir);
    const std::string bytes = path.toStdString();
    constexpr const char* plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789:_.";
    std::string escaped;
    for (size_t i = 1; i < bytes.size(); ++i) {
        const char byte = bytes[i];
        if (byte == '/')
            escaped += '-';
        else if (std::strchr(plain, byte) != nullptr && (byte != '.' || i > 1))
            escaped += byte;
        else
            escaped += QStringLiteral("\\x%1")
                           .arg(static_cast<unsigned char>(byte), 2, 16, QLatin1Char('0'))
                           .toStdString();
    }
    return escaped.empty() ? "-" : escaped;
}

RecordDirectory::RecordDirectory(const QString& installDir, Whose owner)
    : m_owner(owner == Whose::Roots ? 0 : getuid()),
      m_path(m_owner == 0 ? QLatin1String(Find(Item::Record).path) : UserRecordPath(installDir)) {}

bool RecordDirectory::IsOwn() const {
    return m_owner == getuid();
}

RecordDirectory::~RecordDirectory() {
    for (const Name& file : m_prepared)
        unlinkat(file.directory, (file.name + newSuffix).c_str(), 0);
    // Fails for a directory with a file.
    std::for_each(m_created.rbegin(), m_created.rend(), [](const Name& directory) {
        unlinkat(directory.directory, directory.name.c_str(), AT_REMOVEDIR);
    });
}

QString RecordDirectory::PathOf(Item item) const {
    const QString path = QLatin1String(Find(item).path);
    return m_path + path.mid(static_cast<qsizetype>(std::strlen(Find(Item::Record).path)));
}

Problem RecordDirectory::Unusable(const QString& path, const QString& reason,
                                  bool isWritten) const {
    if (isWritten) {
        return {ExitStatus::SystemCallFailed,
                QStringLiteral("cannot write record \"%1\": %2").arg(path, reason),
                QStringLiteral("Fix the cause, then run the setup again.")};
    }
    return {ExitStatus::RecordUnusable,
            QStringLiteral("cannot use record \"%1\": %2").arg(path, reason),
            QStringLiteral("Inspect \"%1\", remove it, then run the setup again.").arg(m_path)};
}

Problem RecordDirectory::Damaged(Item item) const {
    return Unusable(PathOf(item), QStringLiteral("it is damaged"), false);
}

Descriptor RecordDirectory::OpenOrCreate(int parent, const std::string& name, mode_t mode,
                                         bool creates) {
    Descriptor opened = OpenRecordDirectoryAt(parent, name);
    if (opened || errno != ENOENT || !creates)
        return opened;
    if (mkdirat(parent, name.c_str(), mode) != 0)
        return {};
    m_created.push_back({parent, name});
    opened = OpenRecordDirectoryAt(parent, name);
    // The umask may be strict.
    if (opened && (fchmod(opened.Number(), mode) != 0 || !Sync(parent)))
        return {};
    return opened;
}

Failure RecordDirectory::OpenForRoot(bool creates) {
    RootPath place;
    if (const auto unresolved = ResolveRootPath(Find(Item::Record).path, false, place)) {
        if (!creates && unresolved->error == ENOENT)
            return {};
        const QString directory = QString::fromStdString(unresolved->directory);
        return Unusable(directory.isEmpty() ? m_path : directory, TextOf(*unresolved), creates);
    }
    m_parents.push_back(std::move(place.parent));
    m_record =
        OpenOrCreate(m_parents.back().Number(), place.name, Find(Item::Record).rootMode, creates);
    return {};
}

// The directories above the record may be links of the user's.
Failure RecordDirectory::OpenForUser(bool creates) {
    const std::filesystem::path path = m_path.toStdString();
    const std::filesystem::path parent = path.parent_path();
    const std::filesystem::path records = parent.parent_path();
    if (creates && !QDir().mkpath(QString::fromStdString(records)))
        return Unusable(QString::fromStdString(records), CauseOf(errno), true);
    Descriptor above(open(records.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!above)
        return {};
    m_parents.push_back(std::move(above));
    const int base = m_parents.back().Number();
    Descriptor opened = OpenOrCreate(base, parent.filename(), modeOfPrivate, creates);
    if (!opened)
        return {};
    const QString reason = ReasonAgainstTrust(opened, m_owner);
    if (!reason.isEmpty())
        return Unusable(QString::fromStdString(parent), reason, creates);
    m_parents.push_back(std::move(opened));
    m_record = OpenOrCreate(m_parents.back().Number(), path.filename(), modeOfPrivate, creates);
    if (!m_record)
        return {};
    const QString wrongMode = ReasonAgainstUsersMode(m_record);
    if (!wrongMode.isEmpty())
        return Unusable(m_path, wrongMode, creates);
    return {};
}

Failure RecordDirectory::OpenAll(bool creates) {
    if (m_path.isEmpty())
        return {};
    errno = 0;
    if (Failure failure = m_owner == 0 ? OpenForRoot(creates) : OpenForUser(creates))
        return failure;
    if (!m_record)
        return errno == ENOENT && !creates ? Failure() : Unusable(m_path, CauseOf(errno), creates);
    m_private =
        OpenOrCreate(m_record.Number(), LastComponent(Item::RecordPrivate), modeOfPrivate, creates);
    const bool isMissing = errno == ENOENT || (errno == EACCES && !IsOwn());
    if (!m_private && (!isMissing || creates))
        return Unusable(PathOf(Item::RecordPrivate), CauseOf(errno), creates);
    for (const Descriptor* opened : {&m_record, &m_private}) {
        const QString reason = *opened ? ReasonAgainstTrust(*opened, m_owner) : QString();
        if (!reason.isEmpty()) {
            return Unusable(opened == &m_record ? m_path : PathOf(Item::RecordPrivate), reason,
                            creates);
        }
    }
    return {};
}

Failure RecordDirectory::Open() {
    return OpenAll(false);
}

Failure RecordDirectory::Create() {
    return OpenAll(true);
}

int RecordDirectory::DirectoryOf(Item item) const {
    const bool isPublic = item == Item::Manifest || item == Item::Verification;
    return isPublic ? m_record.Number() : m_private.Number();
}

Failure RecordDirectory::Read(Item item, qsizetype most, std::optional<QByteArray>& content) const {
    content.reset();
    if (DirectoryOf(item) == -1)
        return {};
    const Descriptor opened(openat(DirectoryOf(item), LastComponent(item).c_str(),
                                   O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!opened) {
        return errno == ENOENT ? Failure() : Unusable(PathOf(item), CauseOf(errno), false);
    }
    struct stat found = {};
    QString reason = ReasonAgainstTrust(opened, m_owner);
    if (reason.isEmpty() && (fstat(opened.Number(), &found) != 0 || !S_ISREG(found.st_mode)))
        reason = QStringLiteral("it is not a regular file");
    if (reason.isEmpty() && found.st_size > most)
        reason = QStringLiteral("it is larger than %1 bytes").arg(most);
    QFile file;
    if (reason.isEmpty() && !file.open(opened.Number(), QIODevice::ReadOnly))
        reason = file.errorString();
    if (!reason.isEmpty())
        return Unusable(PathOf(item), reason, false);
    content = file.read(most);
    return {};
}

Failure RecordDirectory::Prepare(Item item, const QByteArray& content) {
    const int directory = DirectoryOf(item);
    const std::string name = LastComponent(item);
    const std::string newName = name + newSuffix;
    // A killed setup may have left it.
    unlinkat(directory, newName.c_str(), 0);
    const mode_t mode = Find(item).rootMode;
    const Descriptor file(openat(directory, newName.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (file)
        m_prepared.push_back({directory, name});
    const std::string_view text(content.constData(), static_cast<size_t>(content.size()));
    if (!file || WriteAll(file.Number(), text) != 0 || fchmod(file.Number(), mode) != 0 ||
        fsync(file.Number()) != 0)
        return Unusable(PathOf(item), CauseOf(errno), true);
    return {};
}

Failure RecordDirectory::Replace() {
    bool isReplaced = true;
    for (; isReplaced && !m_prepared.empty(); m_prepared.erase(m_prepared.begin())) {
        const Name& file = m_prepared.front();
        isReplaced = renameat(file.directory, (file.name + newSuffix).c_str(), file.directory,
                              file.name.c_str()) == 0;
    }
    m_created.clear();
    const auto isOnDisk = [](const Descriptor& directory) {
        return !directory || fsync(directory.Number()) == 0;
    };
    if (isReplaced && isOnDisk(m_private) && isOnDisk(m_record))
        return {};
    Problem problem = Unusable(m_path, CauseOf(errno), true);
    problem.changes = Changes::Kept;
    return problem;
}

void RecordDirectory::RemoveIfEmpty() {
    // Without all of them, a killed setup has created no directory.
    const size_t levels = m_owner == 0 ? 1 : 2;
    if (m_parents.size() < levels)
        return;
    // A killed setup may have left them.
    for (const Item item :
         {Item::Manifest, Item::RecordedAnswers, Item::RecordedScript, Item::Verification})
        unlinkat(DirectoryOf(item), (LastComponent(item) + newSuffix).c_str(), 0);
    unlinkat(m_record.Number(), LastComponent(Item::RecordPrivate).c_str(), AT_REMOVEDIR);
    // That above a user's record is one of several records.
    for (std::filesystem::path path = m_path.toStdString(); !m_parents.empty();
         path = path.parent_path()) {
        unlinkat(m_parents.back().Number(), path.filename().c_str(), AT_REMOVEDIR);
        m_parents.pop_back();
    }
}
