#include "report/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QRandomGenerator>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "installation/State.h"

namespace {

int reservedOutput = STDOUT_FILENO;

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
bool Replace(const std::string& directory, const std::string& name, const QByteArray& text,
             mode_t mode) {
    const Descriptor parent(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!parent)
        return false;
    const std::string created =
        '.' + name.substr(0, 200) + '.' +
        QByteArray::number(QRandomGenerator::system()->generate64(), 16).toStdString();
    const Descriptor file(openat(parent.Number(), created.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
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
        QStringLiteral("cannot write \"%1\": %2").arg(QString::fromStdString(path), reason),
        QStringLiteral("Use another file, or - for standard output, then run the setup again.")};
}

}  // namespace

void ReserveStandardOutput() {
    std::fflush(stdout);
    const int copy = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (copy != -1 && dup2(STDERR_FILENO, STDOUT_FILENO) != -1)
        reservedOutput = copy;
}

Failure WriteOutputFile(const std::string& path, const QByteArray& text, mode_t mode) {
    bool isWritten = false;
    struct stat found = {};
    if (path == "-") {
        std::fflush(stdout);
        isWritten = WriteText(reservedOutput, text);
    } else if (lstat(path.c_str(), &found) != 0 || S_ISREG(found.st_mode)) {
        const size_t slash = path.rfind('/');
        const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        isWritten = Replace(directory, path.substr(slash + 1), text, mode);
    } else if (IsOwnSpecialFile(path, found)) {
        isWritten = WriteToExisting(path, text);
    } else {
        return UnwritablePath(path, QStringLiteral("not a regular file"));
    }
    if (isWritten)
        return {};
    return UnwritablePath(path, QString::fromUtf8(std::strerror(errno)));
}
