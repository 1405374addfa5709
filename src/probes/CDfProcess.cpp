#include "probes/CDfProcess.h"

namespace {

constexpr int WaitMilliseconds = 50000;
constexpr int BlocksPerGigabyte = 1024 * 1024;  // df -P reports blocks of 1024 bytes
constexpr qsizetype AvailableColumn = 3;

}  // namespace

CDfProcess::CDfProcess(QObject* parent) : QProcess(parent) {}

CDfProcess::~CDfProcess() = default;

void CDfProcess::Run(const QString& path) {
    start(QStringLiteral("df"), {QStringLiteral("-P"), path}, QIODeviceBase::ReadWrite);
}

int CDfProcess::TotalAvailable() {
    if (!waitForFinished(WaitMilliseconds)) {
        if (state() == QProcess::Running)
            kill();
        return 0;
    }
    const QList<QByteArray> lines = readAllStandardOutput().split('\n');
    if (lines.size() < 2)
        return 0;
    // Kept: a device name with a blank moves the columns.
    const QStringList fields =
        QString::fromUtf8(lines[1]).split(u' ', Qt::SkipEmptyParts, Qt::CaseSensitive);
    if (fields.size() <= AvailableColumn)
        return 0;
    // toInt gives 0 for what is no number or does not fit.
    return fields[AvailableColumn].toInt() / BlocksPerGigabyte;
}
