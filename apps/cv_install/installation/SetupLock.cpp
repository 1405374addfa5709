#include "installation/SetupLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <QDateTime>
#include <QFile>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

#include "installation/Installation.h"
#include "installation/Owners.h"
#include "installation/State.h"

namespace {

Problem LockProblem(const std::string& path, int error) {
    return {
        ExitStatus::SystemCallFailed,
        QStringLiteral("cannot lock \"%1\": %2")
            .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(error))),
        QStringLiteral("Make sure that its file system is writable and supports locks, then run "
                       "the setup again.")};
}

// When the process started; invalid when that is unknown.
QDateTime StartOf(const QByteArray& process) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(QLatin1String(process)));
    QFile machine(QStringLiteral("/proc/stat"));
    if (!stat.open(QIODevice::ReadOnly) || !machine.open(QIODevice::ReadOnly))
        return {};
    const QByteArray text = stat.readAll();
    // The command's name, in parentheses, may contain spaces. The start is field 22.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    const QByteArray boot = machine.readAll();
    const qsizetype at = boot.indexOf("\nbtime ");
    if (fields.size() < 20 || at == -1)
        return {};
    const qlonglong bootTime = boot.mid(at + 7, boot.indexOf('\n', at + 1) - at - 7).toLongLong();
    return QDateTime::fromSecsSinceEpoch(bootTime + fields[19].toLongLong() / sysconf(_SC_CLK_TCK));
}

QString UserOf(const QByteArray& process) {
    struct stat found = {};
    if (stat(("/proc/" + process).constData(), &found) != 0)
        return {};
    return UserName(found.st_uid);
}

bool IsSetup(const QByteArray& process) {
    QFile name(QStringLiteral("/proc/%1/comm").arg(QLatin1String(process)));
    return name.open(QIODevice::ReadOnly) && name.readAll() == "cv_install\n";
}

// The processes that took the lock; some of them may have ended and left it to a child.
QList<QByteArray> FindHolders(int descriptor) {
    QList<QByteArray> holders;
    struct stat found = {};
    QFile locks(QStringLiteral("/proc/locks"));
    if (fstat(descriptor, &found) != 0 || !locks.open(QIODevice::ReadOnly))
        return holders;
    std::array<char, 64> file = {};
    std::snprintf(file.data(), file.size(), "%02x:%02x:%ju", major(found.st_dev),
                  minor(found.st_dev), static_cast<uintmax_t>(found.st_ino));
    for (const QByteArray& line : locks.readAll().split('\n')) {
        // 1: FLOCK  ADVISORY  WRITE 1234 08:01:5678 0 EOF
        const QList<QByteArray> words = line.simplified().split(' ');
        if (words.size() > 5 && words[1] == "FLOCK" && words[5] == file.data())
            holders.push_back(words[4]);
    }
    return holders;
}

// The setup that took the lock; empty when it ended and left the lock to a child, or is unknown.
QByteArray FindHolder(int descriptor) {
    const QList<QByteArray> holders = FindHolders(descriptor);
    const auto setup = std::ranges::find_if(holders, IsSetup);
    return setup == holders.end() ? QByteArray() : *setup;
}

QString Describe(int descriptor) {
    const QByteArray process = FindHolder(descriptor);
    const QString owner = process.isEmpty() ? QString() : UserOf(process);
    const QDateTime start = owner.isEmpty() ? QDateTime() : StartOf(process);
    QString text = QStringLiteral("another setup is running");
    if (start.isValid()) {
        text += QStringLiteral(": process %1 of user %2, since %3")
                    .arg(QLatin1String(process), owner,
                         start.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")));
    }
    return text;
}

Problem HeldBy(int descriptor) {
    return {ExitStatus::Locked, Describe(descriptor),
            QStringLiteral("Run the setup again when it has ended, or with --wait SECONDS.")};
}

Problem Waiting(int descriptor, std::chrono::seconds limit) {
    return {ExitStatus::Locked, Describe(descriptor),
            QStringLiteral("The setup continues when it ends, or fails after %1 seconds.")
                .arg(limit.count())};
}

}  // namespace

SetupLock::~SetupLock() {
    if (m_descriptor != -1)
        close(m_descriptor);
}

Failure SetupLock::OpenFile(const std::string& path, mode_t mode) {
    m_path = path;
    m_descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
    if (m_descriptor == -1)
        return LockProblem(path, errno);
    return {};
}

Failure SetupLock::OpenDirectory(const std::string& path) {
    m_path = path;
    m_descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_descriptor == -1)
        return LockProblem(path, errno);
    return {};
}

int SetupLock::TryLock() const {
    return flock(m_descriptor, LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
}

Failure SetupLock::Take(const QString& installDir, std::chrono::seconds limit, Purpose purpose) {
    const Entry& entry = Find(Item::RootLock);
    const bool isRoot = getuid() == 0;
    const auto isUntaken = [purpose](const std::string& path) {
        return purpose == Purpose::DryRun && access(path.c_str(), F_OK) != 0;
    };
    if (isRoot && isUntaken(entry.path))
        return {};
    if (Failure failure =
            isRoot ? OpenFile(entry.path, entry.rootMode) : OpenDirectory(installDir.toStdString()))
        return failure;
    int error = TryLock();
    // Some network file systems lock only files that are open for writing.
    if (!isRoot && error != 0 && error != EWOULDBLOCK) {
        close(std::exchange(m_descriptor, -1));
        const Entry& file = Find(Item::UserLock);
        const std::string path = PathOf(file, installDir.toStdString());
        if (isUntaken(path))
            return {};
        if (Failure failure = OpenFile(path, file.userMode))
            return failure;
        error = TryLock();
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (bool reported = false; error != 0; reported = true, error = TryLock()) {
        if (error != EWOULDBLOCK)
            return LockProblem(m_path, error);
        if (std::chrono::steady_clock::now() >= deadline)
            return HeldBy(m_descriptor);
        if (!reported)
            ReportWarning(Waiting(m_descriptor, limit));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return {};
}

void SetupLock::Inherit() const {
    fcntl(m_descriptor, F_SETFD, 0);
}

// A failure only keeps the next setup from restarting the service.
void SetupLock::NoteMerge(bool begins) const {
    [[maybe_unused]] const int result = ftruncate(m_descriptor, begins ? 1 : 0);
}

bool SetupLock::FoundIncompleteMerge() const {
    struct stat found = {};
    return fstat(m_descriptor, &found) == 0 && S_ISREG(found.st_mode) && found.st_size > 0;
}

LockState SetupLock::Look(const QString& installDir, bool isRoots) {
    const std::string directory = installDir.toStdString();
    const std::string file = PathOf(Find(isRoots ? Item::RootLock : Item::UserLock), directory);
    LockState state;
    // Other users can lock the directory of root's installation.
    for (const std::string& path : {file, isRoots ? file : directory}) {
        const Descriptor lock(open(path.c_str(), O_PATH | O_CLOEXEC));
        struct stat found = {};
        if (!lock || fstat(lock.Number(), &found) != 0)
            continue;
        if (!FindHolders(lock.Number()).isEmpty())
            state.runningSetup = Describe(lock.Number());
        else if (S_ISREG(found.st_mode) && isRoots)
            state.isIncomplete = found.st_size > 0;
    }
    return state;
}
