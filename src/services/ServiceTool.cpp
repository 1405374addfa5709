#include "services/ServiceTool.h"

#include <unistd.h>

namespace {

constexpr int toolNotFound = 127;

const char* PathOf(const hx::ServiceTool& tool) {
    for (const char* path : {tool.preferred, tool.fallback}) {
        if (access(path, F_OK) == 0)
            return path;
    }
    return nullptr;
}

}  // namespace

int hx::RunServiceTool(QProcess& process, const ServiceTool& tool, const QStringList& arguments,
                       Wait wait) {
    const char* path = PathOf(tool);
    if (path == nullptr)
        return toolNotFound;
    process.start(QString::fromUtf8(path), arguments, QIODeviceBase::ReadWrite);
    if (wait == Wait::ForTheEnd)
        process.waitForFinished(-1);
    return process.exitCode();
}
