#include "installation/Limits.h"

#include <sys/stat.h>

#include <QFile>

#include "installation/Installation.h"
#include "installation/State.h"
#include "installation/TreeCheck.h"

std::optional<Limits> ReadLimits(int tree) {
    const Descriptor opened = OpenRegularFile(tree, Find(Item::QueueLimits).path);
    struct stat found = {};
    QFile file;
    if (!opened || fstat(opened.Number(), &found) != 0 || (found.st_mode & S_IROTH) == 0 ||
        !file.open(opened.Number(), QIODevice::ReadOnly))
        return {};
    Limits limits;
    for (const QString& line : QString::fromUtf8(file.read(largestLimits)).split(u'\n')) {
        const qsizetype colon = line.indexOf(u':');
        if (colon != -1)
            limits[line.left(colon).toLower()] = line.mid(colon + 1).trimmed();
    }
    return limits;
}
