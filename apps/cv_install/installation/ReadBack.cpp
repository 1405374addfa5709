#include "installation/ReadBack.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <algorithm>

namespace {

// Opens a regular file for reading; -1 for anything else. Opening a device can have side effects,
// so the kind is checked before.
int OpenForReading(const QString& path) {
    const int found = open(path.toUtf8().constData(), O_PATH | O_CLOEXEC);
    if (found == -1)
        return -1;
    struct stat entry = {};
    int descriptor = -1;
    if (fstat(found, &entry) == 0 && S_ISREG(entry.st_mode)) {
        const QByteArray same = "/proc/self/fd/" + QByteArray::number(found);
        descriptor = open(same.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }
    close(found);
    return descriptor;
}

}  // namespace

QByteArray ReadBack(const QString& path, qsizetype most) {
    const int descriptor = OpenForReading(path);
    if (descriptor == -1)
        return {};
    QByteArray bytes;
    QFile file;
    if (file.open(descriptor, QIODevice::ReadOnly))
        bytes = file.read(std::min<qint64>(most, file.size()));
    file.close();
    close(descriptor);
    return bytes;
}
