#include "OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QRandomGenerator>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "WriteAll.h"

namespace {

int reservedOutput = STDOUT_FILENO;

// A file in the directory that is removed unless it gets the name of another one.
class NewFile {
public:
    NewFile(int directory, const std::string& name, mode_t mode)
        : m_directory(directory),
          m_name('.' + name.substr(0, 200) + '.' +
                 QByteArray::number(QRandomGenerator::system()->generate64(), 16).toStdString()),
          m_file(openat(directory, m_name.c_str(),
                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode)),
          m_error(m_file ? 0 : errno) {}
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        if (m_file)
            unlinkat(m_directory, m_name.c_str(), 0);
    }

    // Returns 0 or errno of creating the file.
    int Error() const { return m_error; }

    // Returns 0 or errno.
    int Write(std::string_view text) const {
        if (const int error = WriteAll(m_file.Number(), text))
            return error;
        return fsync(m_file.Number()) == 0 ? 0 : errno;
    }

    // Returns 0 or errno.
    int RenameTo(const std::string& name) {
        if (renameat(m_directory, m_name.c_str(), m_directory, name.c_str()) != 0)
            return errno;
        m_file = Descriptor();
        return 0;
    }

private:
    int m_directory;
    std::string m_name;
    Descriptor m_file;
    int m_error;
};

// A device, pipe or socket, or a link to one, which other users did not make.
bool IsOwnSpecialFile(const std::string& path, const struct stat& found) {
    struct stat target = {};
    return (found.st_uid == 0 || found.st_uid == geteuid()) && stat(path.c_str(), &target) == 0 &&
           !S_ISREG(target.st_mode) && !S_ISDIR(target.st_mode);
}

QString ErrorMessage(int error) {
    return QString::fromUtf8(std::strerror(error));
}

constexpr const char* useAnotherFile =
    "Use another file, or - for standard output, then run the setup again.";

}  // namespace

void ReserveStandardOutput() {
    std::fflush(stdout);
    const int copy = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (copy != -1 && dup2(STDERR_FILENO, STDOUT_FILENO) != -1)
        reservedOutput = copy;
}

Failure OutputFile::Open() {
    struct stat found = {};
    int error = 0;
    if (m_path == "-") {
        m_open = Descriptor(fcntl(reservedOutput, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        error = m_open ? 0 : errno;
    } else if (lstat(m_path.c_str(), &found) != 0 || S_ISREG(found.st_mode)) {
        error = OpenDirectory();
    } else if (IsOwnSpecialFile(m_path, found)) {
        error = OpenExisting();
    } else {
        return Unwritable(QStringLiteral("not a regular file"), QLatin1String(useAnotherFile));
    }
    if (error == 0)
        return {};
    return Unwritable(ErrorMessage(error), QLatin1String(useAnotherFile));
}

// Without a reader, a FIFO fails to open.
int OutputFile::OpenExisting() {
    m_open = Descriptor(open(m_path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    const int flags = m_open ? fcntl(m_open.Number(), F_GETFL) : -1;
    return flags != -1 && fcntl(m_open.Number(), F_SETFL, flags & ~O_NONBLOCK) == 0 ? 0 : errno;
}

int OutputFile::OpenDirectory() {
    const size_t slash = m_path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : m_path.substr(0, slash + 1);
    m_name = m_path.substr(slash + 1);
    m_directory = Descriptor(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    return m_directory ? NewFile(m_directory.Number(), m_name, m_mode).Error() : errno;
}

int OutputFile::Write(std::string_view text) {
    if (m_open)
        return WriteAll(m_open.Number(), text);
    NewFile file(m_directory.Number(), m_name, m_mode);
    int error = file.Error();
    if (error == 0)
        error = file.Write(text);
    return error == 0 ? file.RenameTo(m_name) : error;
}

Problem OutputFile::Unwritable(const QString& reason, const QString& remedy) const {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot write \"%1\": %2").arg(QString::fromStdString(m_path), reason),
            remedy};
}

Failure WriteOutputFile(const std::string& path, const QByteArray& text, mode_t mode) {
    OutputFile file(path, mode);
    if (Failure failure = file.Open())
        return failure;
    if (path == "-")
        std::fflush(stdout);
    const int error = file.Write({text.constData(), static_cast<size_t>(text.size())});
    if (error == 0)
        return {};
    return file.Unwritable(ErrorMessage(error), QLatin1String(useAnotherFile));
}
