#include "apply/SetupLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Problem.h"
#include "apply/Console.h"
#include "installation/Installation.h"
#include "installation/Owners.h"

namespace {

int logDescriptor = -1;
std::string logPath;
pid_t logOwner = 0;  // the process that opened the log

// Sets errno when it returns false.
bool WriteAll(int descriptor, const char* text, size_t length) {
    while (length > 0) {
        const ssize_t written = write(descriptor, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        text += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

// The message `text`, about the log and the cause.
Problem LogProblem(const QString& text, const QString& cause, const QString& remedy) {
    return {ExitStatus::Complete, text.arg(QString::fromStdString(logPath), cause), remedy};
}

QString ErrorText(int error) {
    return QString::fromUtf8(std::strerror(error));
}

// A log that cannot be written to does not stop a setup. Writing again later would leave a gap.
void CloseLog(int error) {
    const QByteArray warning =
        WarningText(LogProblem(QStringLiteral("cannot write to log \"%1\": %2"), ErrorText(error),
                               QStringLiteral("The setup continues; the log is incomplete.")));
    // The streams may be in use: this is part of a write to one of them.
    WriteAll(STDERR_FILENO, warning.constData(), static_cast<size_t>(warning.size()));
    close(logDescriptor);
    logDescriptor = -1;
}

void WriteToLog(const char* text, size_t length) {
    if (logDescriptor != -1 && !WriteAll(logDescriptor, text, length))
        CloseLog(errno);
}

// Returns why root must not write to the file; empty for a file that only root controls.
QString ReasonAgainst(const struct stat& found) {
    if (S_ISLNK(found.st_mode))
        return QStringLiteral("it is a symbolic link");
    if (!S_ISREG(found.st_mode))
        return QStringLiteral("it is not a regular file");
    if (found.st_uid != 0)
        return QStringLiteral("it is owned by user %1").arg(UserName(found.st_uid));
    return found.st_nlink > 1 ? QStringLiteral("it has more than one hard link") : QString();
}

Problem CannotOpenLog(const QString& cause, const QString& remedy = {}) {
    return LogProblem(QStringLiteral("cannot open log \"%1\": %2"), cause,
                      remedy + QStringLiteral("The setup continues without a log."));
}

// Other users may be able to write to the directory of logs.
Failure OpenLogOfRoot(mode_t mode) {
    logDescriptor =
        open(logPath.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
    const int error = errno;
    struct stat found = {};
    if ((logDescriptor == -1 ? lstat(logPath.c_str(), &found) : fstat(logDescriptor, &found)) ==
        0) {
        const QString reason = ReasonAgainst(found);
        if (!reason.isEmpty())
            return CannotOpenLog(reason,
                                 QStringLiteral("Remove it before you run the next setup. "));
    }
    if (logDescriptor == -1)
        return CannotOpenLog(ErrorText(error));
    // An existing file may have another mode.
    if (fchmod(logDescriptor, mode) != 0 || ftruncate(logDescriptor, 0) != 0)
        return CannotOpenLog(ErrorText(errno));
    return {};
}

Failure OpenLogOfUser() {
    const size_t suffix = logPath.size() - logPath.find(randomPart) - randomPart.size();
    logDescriptor = mkostemps(logPath.data(), static_cast<int>(suffix), O_CLOEXEC);
    if (logDescriptor == -1)
        return CannotOpenLog(ErrorText(errno));
    return {};
}

// Also after failures on which the library ends the process. A child that shares the log leaves it
// to its parent.
void ShowPathAfterFailure(int status, void* /*unused*/) {
    if (status != static_cast<int>(ExitStatus::Complete) && getpid() == logOwner)
        std::fprintf(stderr, "    Log: %s\n", logPath.c_str());
}

}  // namespace

void SetupLog::Start(bool root) {
    const Entry& entry = Find(root ? Item::RootLog : Item::UserLog);
    logPath = entry.path;
    if (const Failure failure = root ? OpenLogOfRoot(entry.rootMode) : OpenLogOfUser()) {
        ReportWarning(*failure);
        if (logDescriptor != -1)
            close(logDescriptor);
        logDescriptor = -1;
        logPath.clear();
        return;
    }
    Console::CopyTo(WriteToLog);
    logOwner = getpid();
    on_exit(ShowPathAfterFailure, nullptr);
}

void SetupLog::Append(const QByteArray& text) {
    std::fflush(stdout);
    WriteToLog(text.constData(), static_cast<size_t>(text.size()));
}

const std::string& SetupLog::Path() {
    return logPath;
}
