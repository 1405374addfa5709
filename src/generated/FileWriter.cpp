#include "generated/FileWriter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "setuprun/Require.h"
#include "support/FileHandle.h"

namespace hx {
namespace {

FileHandle Open(const char* name, const QString& path, const FileFailures& failures) {
    FileHandle file(std::fopen(name, "w"));
    const int error = errno;
    if (file == nullptr) {
        CInstallBase::InstallError(
            QLatin1String(failures.open[0]) + path + QLatin1String(failures.open[1]),
            failures.exitsWithErrno ? error : 2, failures.exitsWithErrno ? 0 : error);
    }
    return file;
}

}  // namespace

void WriteRunTimeFile(CInstallBase& run, const RunTimeFile& file,
                      const std::function<void(FILE*)>& content) {
    const QString path = run.m_installDir + QLatin1String(file.suffix);
    const QByteArray name = path.toUtf8();
    const bool existed = access(name.constData(), F_OK) == 0;
    if (existed && access(name.constData(), W_OK) != 0) {
        Require(unlink(name.constData()) == 0, file.failures.unlink[0], path,
                file.failures.unlink[1]);
    }
    content(Open(name.constData(), path, file.failures).get());
    Require(chmod(name.constData(), file.mode) == 0, "Unable to chmod \"", path);
    if (file.created == nullptr)
        return;
    Report(run, [&] {
        std::printf("  %s%s\n    \"%s\"\n", file.reportsPath ? name.constData() : "",
                    existed ? file.updated : file.created, name.constData());
    });
}

void Report(CInstallBase& run, const std::function<void()>& lines) {
    CInstallBase::InstallSeparator();
    if (run.m_allowNonRoot)
        lines();
    run.InstallPause();
}

}  // namespace hx
