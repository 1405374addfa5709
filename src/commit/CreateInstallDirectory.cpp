// Creates the install directory for callers that need it before the commit script runs.
#include <unistd.h>

#include "setuprun/CInstallBase.h"
#include "setuprun/Require.h"

bool CInstallBase::CreateInstallDirectory() {
    QString path;
    const QStringList parts = m_installDir.split(u'/', Qt::SkipEmptyParts, Qt::CaseSensitive);
    for (const QString& part : parts) {
        path += u'/' + part;
        if (access(path.toUtf8().constData(), F_OK) != 0)
            hx::MakeDirectory(path, "Unable to mkdir \"");
    }
    return true;
}
