#include "probes/DfReport.h"

#include <QString>
#include <QStringList>

namespace {

constexpr int blocksPerGigabyte = 1024 * 1024;  // df -P reports blocks of 1024 bytes
constexpr qsizetype availableColumn = 3;

}  // namespace

int hx::AvailableGigabytes(const QByteArray& report) {
    const QList<QByteArray> lines = report.split('\n');
    if (lines.size() < 2)
        return 0;
    // Compatibility: a space in the device name shifts the columns.
    const QStringList fields =
        QString::fromUtf8(lines[1]).split(u' ', Qt::SkipEmptyParts, Qt::CaseSensitive);
    if (fields.size() <= availableColumn)
        return 0;
    // toInt returns 0 for text that is not a number or does not fit.
    return fields[availableColumn].toInt() / blocksPerGigabyte;
}
