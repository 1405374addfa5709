#include "installation/ReadBack.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <algorithm>

QByteArray ReadBack(const QString& path, qsizetype most) {
    const int descriptor = open(path.toUtf8().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor == -1)
        return {};
    QByteArray bytes;
    QFile file;
    struct stat found = {};
    if (fstat(descriptor, &found) == 0 && S_ISREG(found.st_mode) &&
        file.open(descriptor, QIODevice::ReadOnly))
        bytes = file.read(std::min<qint64>(most, file.size()));
    file.close();
    close(descriptor);
    return bytes;
}
