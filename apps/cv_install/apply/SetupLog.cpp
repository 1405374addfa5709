#include "apply/SetupLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Problem.h"
#include "installation/Installation.h"

namespace {

int logDescriptor = -1;
std::string logPath;
int outputError = 0;

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

// The message `text`, about the log and the error.
Problem LogProblem(const QString& text, int error, const QString& remedy) {
    return {ExitStatus::Complete,
            text.arg(QString::fromStdString(logPath), QString::fromUtf8(std::strerror(error))),
            remedy};
}

// A log that cannot be written to does not stop a setup. Writing again later would leave a gap.
void CloseLog(int error) {
    const QByteArray warning =
        WarningText(LogProblem(QStringLiteral("cannot write to log \"%1\": %2"), error,
                               QStringLiteral("The setup continues; the log is incomplete.")));
    // The streams may be in use: this is part of a write to one of them.
    WriteAll(STDERR_FILENO, warning.constData(), static_cast<size_t>(warning.size()));
    close(logDescriptor);
    logDescriptor = -1;
}

// The console comes first. A write error of one does not stop the other.
ssize_t WriteToBoth(void* cookie, const char* text, size_t length) {
    const int console = *static_cast<const int*>(cookie);
    if (!WriteAll(console, text, length) && console == STDOUT_FILENO)
        outputError = errno;
    if (logDescriptor != -1 && !WriteAll(logDescriptor, text, length))
        CloseLog(errno);
    return static_cast<ssize_t>(length);
}

// stdout and stderr are variables, which the C library lets a program set.
void Redirect(FILE*& stream, int console, int buffering) {
    static const int consoles[] = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    const cookie_io_functions_t functions = {nullptr, WriteToBoth, nullptr, nullptr};
    FILE* both = fopencookie(const_cast<int*>(&consoles[console]), "w", functions);
    if (both == nullptr)
        return;
    std::fflush(stream);
    std::setvbuf(both, nullptr, buffering, BUFSIZ);
    stream = both;
}

bool IsFileOfRootOnly(int descriptor) {
    struct stat entry = {};
    return fstat(descriptor, &entry) == 0 && S_ISREG(entry.st_mode) && entry.st_uid == 0 &&
           entry.st_nlink == 1;
}

// Other users may be able to write to the directory of logs. Sets errno when it returns -1.
int OpenLogOfRoot(mode_t mode) {
    const int log =
        open(logPath.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
    if (log == -1)
        return -1;
    if (!IsFileOfRootOnly(log)) {
        close(log);
        errno = EPERM;
        return -1;
    }
    // An existing file may have another mode.
    if (fchmod(log, mode) == 0 && ftruncate(log, 0) == 0)
        return log;
    const int error = errno;
    close(log);
    errno = error;
    return -1;
}

int OpenLog(bool root) {
    const Entry& entry = Find(root ? Item::RootLog : Item::UserLog);
    logPath = entry.path;
    if (root)
        return OpenLogOfRoot(entry.rootMode);
    const size_t suffix = logPath.size() - logPath.find(randomPart) - randomPart.size();
    return mkostemps(logPath.data(), static_cast<int>(suffix), O_CLOEXEC);
}

// Also after failures on which the library ends the process.
void ShowPathAfterFailure(int status, void* /*unused*/) {
    if (status != static_cast<int>(ExitStatus::Complete))
        std::fprintf(stderr, "    Log: %s\n", logPath.c_str());
}

}  // namespace

void SetupLog::Start(bool root) {
    logDescriptor = OpenLog(root);
    if (logDescriptor == -1) {
        ReportWarning(LogProblem(QStringLiteral("cannot open log \"%1\": %2"), errno,
                                 QStringLiteral("The setup continues without a log.")));
        logPath.clear();
        return;
    }
    Redirect(stdout, STDOUT_FILENO, isatty(STDOUT_FILENO) != 0 ? _IOLBF : _IOFBF);
    Redirect(stderr, STDERR_FILENO, _IONBF);
    on_exit(ShowPathAfterFailure, nullptr);
}

const std::string& SetupLog::Path() {
    return logPath;
}

int SetupLog::OutputError() {
    if (std::fflush(stdout) != 0)
        return errno;
    // An earlier error of the stream, whose number is gone.
    return outputError == 0 && std::ferror(stdout) != 0 ? EIO : outputError;
}
