#include "probes/DfReport.h"

#include <QString>
#include <QStringList>

namespace {

constexpr int BlocksPerGigabyte = 1024 * 1024;  // df -P reports blocks of 1024 bytes
constexpr qsizetype AvailableColumn = 3;

}  // namespace

int hx::AvailableGigabytes(const QByteArray& report) {
    const QList<QByteArray> lines = report.split('\n');
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
