// Makes the install directory, for a caller that needs it before the commit script runs.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "setuprun/CInstallBase.h"

namespace {

void Require(bool success, const char* action, const QString& path) {
    const int error = errno;
    if (!success) {
        CInstallBase::InstallError(
            QStringLiteral("Unable to %1 \"").arg(QLatin1String(action)) + path + u'"', 2, error);
    }
}

}  // namespace

bool CInstallBase::CreateInstallDirectory() {
    QString path;
    const QStringList parts = m_installDir.split(u'/', Qt::SkipEmptyParts, Qt::CaseSensitive);
    for (const QString& part : parts) {
        path += u'/' + part;
        const QByteArray name = path.toUtf8();
        if (access(name.constData(), F_OK) == 0)
            continue;
        Require(mkdir(name.constData(), 0755) == 0, "mkdir", path);
        // The umask has no say.
        Require(chmod(name.constData(), 0755) == 0, "chmod", path);
    }
    return true;
}
