#include "ReadBack.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <algorithm>

namespace {

bool IsPlainFile(int descriptor) {
    struct stat entry = {};
    return fstat(descriptor, &entry) == 0 && S_ISREG(entry.st_mode);
}

}  // namespace

QByteArray ReadBack(const QString& path, qsizetype most) {
    const int descriptor = open(path.toUtf8().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor == -1)
        return {};
    QByteArray bytes;
    QFile file;
    if (IsPlainFile(descriptor) && file.open(descriptor, QIODevice::ReadOnly))
        bytes = file.read(std::min<qint64>(most, file.size()));
    file.close();
    close(descriptor);
    return bytes;
}

bool Holds(const QString& path, const QByteArray& bytes) {
    return ReadBack(path, bytes.size() + 1) == bytes;
}
