#include "probes/CDfProcess.h"

#include "probes/DfReport.h"

namespace {

constexpr int waitMilliseconds = 50000;

}  // namespace

CDfProcess::CDfProcess(QObject* parent) : QProcess(parent) {}

CDfProcess::~CDfProcess() = default;

void CDfProcess::Run(const QString& path) {
    start(QStringLiteral("df"), {QStringLiteral("-P"), path}, QIODeviceBase::ReadWrite);
}

int CDfProcess::TotalAvailable() {
    if (!waitForFinished(waitMilliseconds)) {
        if (state() == QProcess::Running)
            kill();
        return 0;
    }
    return hx::AvailableGigabytes(readAllStandardOutput());
}
