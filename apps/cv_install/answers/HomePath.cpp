#include "answers/HomePath.h"

#include <pwd.h>
#include <unistd.h>

QString ExpandHome(const QString& path) {
    if (!path.startsWith(u'~'))
        return path;
    const QString name = path.mid(1).section(u'/', 0, 0);
    const passwd* user = name.isEmpty() ? getpwuid(getuid()) : getpwnam(name.toUtf8().constData());
    if (user == nullptr)
        return path;
    return QString::fromUtf8(user->pw_dir) + path.mid(1 + name.size());
}
