#include "apply/SetupLog.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "Console.h"
#include "Outcome.h"
#include "Problem.h"
#include "WriteAll.h"
#include "installation/Installation.h"
#include "installation/Owners.h"
#include "installation/State.h"

namespace {

int logFile = -1;
int logDescriptor = -1;  // what text is written to: the file, or memory until the log is kept
std::string logPath;
bool isLogStarted = false;
bool isOfRoot = false;
bool isEnded = false;
pid_t logOwner = 0;  // the process that writes the outcome

bool IsKept() {
    return logDescriptor == logFile;
}

// The message `text`, about the log and the cause.
Problem LogProblem(const QString& text, const QString& cause, const QString& remedy) {
    return {ExitStatus::Complete, text.arg(QString::fromStdString(logPath), cause), remedy};
}

QString ErrorText(int error) {
    return QString::fromUtf8(std::strerror(error));
}

void CloseDescriptors() {
    if (!IsKept())
        close(logDescriptor);
    if (logFile != -1)
        close(logFile);
    logFile = logDescriptor = -1;
}

// A log that cannot be written to does not stop a setup. Writing again later would leave a gap.
void CloseLog(int error) {
    const QByteArray warning =
        WarningText(LogProblem(QStringLiteral("cannot write to log \"%1\": %2"), ErrorText(error),
                               QStringLiteral("The setup continues; the log is incomplete.")));
    // The streams may be in use: this is part of a write to one of them.
    WriteAll(STDERR_FILENO, {warning.constData(), static_cast<size_t>(warning.size())});
    CloseDescriptors();
}

void WriteToLog(const char* text, size_t length) {
    const int error = logDescriptor == -1 ? 0 : WriteAll(logDescriptor, {text, length});
    if (error != 0)
        CloseLog(error);
}

void WriteHeader() {
    const std::string header = Outcome::Header();
    WriteToLog(header.data(), header.size());
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
Failure OpenLogOfRoot() {
    const mode_t mode = Find(Item::RootLog).rootMode;
    logFile = open(logPath.c_str(),
                   O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
    const int error = errno;
    struct stat found = {};
    if ((logFile == -1 ? lstat(logPath.c_str(), &found) : fstat(logFile, &found)) == 0) {
        const QString reason = ReasonAgainst(found);
        if (!reason.isEmpty())
            return CannotOpenLog(reason,
                                 QStringLiteral("Remove it before you run the next setup. "));
    }
    if (logFile == -1)
        return CannotOpenLog(ErrorText(error));
    // An existing file may have another mode.
    if ((found.st_mode & 07777U) != mode && fchmod(logFile, mode) != 0)
        return CannotOpenLog(ErrorText(errno));
    return {};
}

Failure OpenLogOfUser() {
    const size_t suffix = logPath.size() - logPath.find(randomPart) - randomPart.size();
    logFile = mkostemps(logPath.data(), static_cast<int>(suffix), O_CLOEXEC);
    if (logFile == -1)
        return CannotOpenLog(ErrorText(errno));
    return {};
}

Failure OpenLog(bool root) {
    isOfRoot = root;
    logPath = Find(root ? Item::RootLog : Item::UserLog).path;
    Failure failure = root ? OpenLogOfRoot() : OpenLogOfUser();
    logDescriptor = logFile;
    if (failure)
        CloseDescriptors();
    return failure;
}

// False when the log was renamed, as logrotate does, or removed.
bool IsAtItsPath() {
    struct stat file = {};
    struct stat there = {};
    return fstat(logFile, &file) == 0 && lstat(logPath.c_str(), &there) == 0 &&
           file.st_dev == there.st_dev && file.st_ino == there.st_ino;
}

bool IsEmptyAtItsPath() {
    struct stat file = {};
    return IsAtItsPath() && fstat(logFile, &file) == 0 && file.st_size == 0;
}

// A whole line is written at once, so that it does not mix with the text of another setup.
void WriteOutcome(int status, Outcome::Form form) {
    const OutcomeLine line = Outcome::Line(status, form);
    WriteAll(logFile, line.Text());
}

// True if the setup ended before it changed anything, for a reason that one line describes.
bool IsDeclinedOrRefused(int status) {
    switch (static_cast<ExitStatus>(status)) {
        case ExitStatus::UnusableArguments:
        case ExitStatus::ValueRefused:
        case ExitStatus::ConsoleClosed:
        case ExitStatus::TreeRefused:
        case ExitStatus::Declined:
        case ExitStatus::NoWorkingDirectory:
        case ExitStatus::Locked:
        case ExitStatus::ChecksFailed:
        case ExitStatus::NoDryRun:
            return true;
        default:
            return false;
    }
}

void WriteOnlyLine(int status) {
    if (isOfRoot)
        WriteOutcome(status, Outcome::Form::Whole);
    else
        unlink(logPath.c_str());
}

void EndLog(int status) {
    const bool isOnlyLine = !IsKept() && IsDeclinedOrRefused(status);
    if (!isOnlyLine)
        SetupLog::Keep();
    if (logFile == -1)
        return;
    if (status != static_cast<int>(ExitStatus::Complete) && (isOfRoot || !isOnlyLine))
        std::fprintf(stderr, "    Log: %s\n", logPath.c_str());
    if (isOnlyLine)
        WriteOnlyLine(status);
    else
        WriteOutcome(status, Outcome::Form::Last);
    if (isOfRoot && !IsAtItsPath()) {
        ReportWarning({ExitStatus::Complete,
                       QStringLiteral("log \"%1\" was moved or removed during the setup")
                           .arg(QString::fromStdString(logPath)),
                       {}});
    }
}

// Also after failures on which the library ends the process. A child process leaves the log to its
// parent.
void EndRun(int status, void* /*unused*/) {
    if (getpid() != logOwner || isEnded)
        return;
    isEnded = true;
    std::fflush(stdout);
    if (const std::string script = Outcome::KeptScript(); !script.empty())
        std::fprintf(stderr, "    Commit script: %s\n", script.c_str());
    const bool isRefused = !isLogStarted && status != 0 && getuid() == 0;
    if (isRefused && !OpenLog(true))
        WriteOutcome(status, Outcome::Form::Whole);
    else if (logFile != -1)
        EndLog(status);
    if (isRefused || (isLogStarted && isOfRoot))
        Outcome::SendToJournal(status);
}

}  // namespace

void SetupLog::WriteOutcomeAtExit() {
    logOwner = getpid();
    on_exit(EndRun, nullptr);
}

void SetupLog::Start(bool root) {
    isLogStarted = true;
    if (const Failure failure = OpenLog(root)) {
        ReportWarning(*failure);
        return;
    }
    const int memory = memfd_create("log", MFD_CLOEXEC);
    if (memory == -1)
        WriteHeader();
    else
        logDescriptor = memory;
    Console::CopyTo(WriteToLog);
}

void SetupLog::Keep() {
    std::fflush(stdout);
    if (IsKept())
        return;
    const Descriptor memory(std::exchange(logDescriptor, logFile));
    if (isOfRoot && !IsAtItsPath()) {
        CloseDescriptors();
        if (const Failure failure = OpenLog(true))
            ReportWarning(*failure);
    }
    WriteHeader();
    std::array<char, 4096> block = {};
    for (off_t offset = 0;;) {
        const ssize_t length = pread(memory.Number(), block.data(), block.size(), offset);
        if (length <= 0)
            break;
        WriteToLog(block.data(), static_cast<size_t>(length));
        offset += length;
    }
}

void SetupLog::Discard() {
    isLogStarted = false;
    std::fflush(stdout);
    if (logFile != -1 && (!isOfRoot || IsEmptyAtItsPath()))
        unlink(logPath.c_str());
    CloseDescriptors();
}

void SetupLog::Remove() {
    std::fflush(stdout);
    if (logFile != -1 && IsAtItsPath())
        unlink(logPath.c_str());
    CloseDescriptors();
}

void SetupLog::Append(const QByteArray& text) {
    std::fflush(stdout);
    WriteToLog(text.constData(), static_cast<size_t>(text.size()));
}

void SetupLog::EndBySignal(int signal, std::string_view message) {
    const int status = static_cast<int>(ExitStatus::SignalBase) + signal;
    isEnded = true;
    WriteAll(STDERR_FILENO, message);
    if (logFile != -1 && !IsKept()) {
        WriteOnlyLine(status);
    } else if (logFile != -1) {
        WriteAll(logFile, message);
        WriteOutcome(status, Outcome::Form::Last);
    }
    if (isLogStarted && isOfRoot)
        Outcome::SendToJournal(status);
}

const std::string& SetupLog::Path() {
    static const std::string none;
    return logFile == -1 ? none : logPath;
}
