#include "SetupLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int logDescriptor = -1;
std::string logPath;
bool lostOutput = false;

// Sets errno when it returns false.
bool WriteAll(int descriptor, const char* text, size_t length) {
    while (length > 0) {
        const ssize_t written = write(descriptor, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        text += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

// A log that cannot be written to any more does not stop a setup. What follows would leave a hole.
void GiveUpLog(int error) {
    const std::string warning = "cv_install: the log " + logPath +
                                " ends here, it cannot be written to: " + std::strerror(error) +
                                '\n';
    WriteAll(STDERR_FILENO, warning.data(), warning.size());
    close(logDescriptor);
    logDescriptor = -1;
}

// The console comes first; neither of the two that cannot be written to any more stops the other.
ssize_t WriteToBoth(void* cookie, const char* text, size_t length) {
    const int console = *static_cast<const int*>(cookie);
    if (!WriteAll(console, text, length) && console == STDOUT_FILENO)
        lostOutput = true;
    if (logDescriptor != -1 && !WriteAll(logDescriptor, text, length))
        GiveUpLog(errno);
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

bool IsFileOfRootAlone(int descriptor) {
    struct stat entry = {};
    return fstat(descriptor, &entry) == 0 && S_ISREG(entry.st_mode) && entry.st_uid == 0 &&
           entry.st_nlink == 1;
}

// Others may be able to write to the folder of logs. Sets errno when it returns -1.
int OpenLogOfRoot() {
    const int log =
        open(logPath.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (log == -1)
        return -1;
    if (!IsFileOfRootAlone(log)) {
        close(log);
        errno = EPERM;
        return -1;
    }
    // One that is there already may have another mode.
    if (fchmod(log, 0600) == 0 && ftruncate(log, 0) == 0)
        return log;
    const int error = errno;
    close(log);
    errno = error;
    return -1;
}

int OpenLog(bool rootRun) {
    if (rootRun) {
        logPath = "/var/log/corvane26_setup.log";
        return OpenLogOfRoot();
    }
    logPath = "/tmp/corvane26_setup_XXXXXX.log";
    return mkostemps(logPath.data(), 4, O_CLOEXEC);
}

}  // namespace

void SetupLog::Start(bool rootRun) {
    logDescriptor = OpenLog(rootRun);
    if (logDescriptor == -1) {
        std::fprintf(stderr, "cv_install: there will be no log, %s cannot be opened: %s\n",
                     logPath.c_str(), std::strerror(errno));
        logPath.clear();
        return;
    }
    Redirect(stdout, STDOUT_FILENO, isatty(STDOUT_FILENO) != 0 ? _IOLBF : _IOFBF);
    Redirect(stderr, STDERR_FILENO, _IONBF);
}

const std::string& SetupLog::Path() {
    return logPath;
}

bool SetupLog::LostOutput() {
    return std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || lostOutput;
}
