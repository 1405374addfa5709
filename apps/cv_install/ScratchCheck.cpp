#include "ScratchCheck.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

QString Problem(const QString& directory, const char* what) {
    return QStringLiteral("The scratch directory \"%1\" %2").arg(directory, QLatin1String(what));
}

}  // namespace

QString FindScratchProblem(const QString& directory) {
    const QByteArray path = directory.toUtf8();
    struct stat entry = {};
    if (!directory.startsWith(u'/')) {
        return Problem(directory,
                       "is not an absolute path: every job will look for it in its own working "
                       "directory and fail where it is not found.");
    }
    if (stat(path.constData(), &entry) != 0) {
        return Problem(directory,
                       "cannot be found: jobs that need scratch space will fail until it is made.");
    }
    if (!S_ISDIR(entry.st_mode))
        return Problem(directory, "is not a directory: jobs that need scratch space will fail.");
    if (access(path.constData(), W_OK | X_OK) != 0) {
        return Problem(directory,
                       "may not be written to: jobs that need scratch space will fail until its "
                       "mode allows it.");
    }
    return {};
}
