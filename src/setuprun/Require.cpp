#include "setuprun/Require.h"

#include <sys/stat.h>

#include <cerrno>

#include "setuprun/CInstallBase.h"

namespace hx {

void Require(bool success, const char* before, const QString& path, const char* after) {
    const int error = errno;
    if (!success)
        CInstallBase::InstallError(QLatin1String(before) + path + QLatin1String(after), 2, error);
}

void MakeDirectory(const QString& path, const char* before) {
    const QByteArray name = path.toUtf8();
    Require(mkdir(name.constData(), 0755) == 0, before, path);
    // mkdir applies the umask, chmod does not.
    Require(chmod(name.constData(), 0755) == 0, "Unable to chmod \"", path);
}

}  // namespace hx
