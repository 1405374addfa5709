// Reads the report of the df tool.
#pragma once

#include <QByteArray>

namespace hx {

// Returns the available gigabytes (2^30 bytes) from the second line of the output of "df -P".
// Returns 0 if there is no such value or if the number of blocks does not fit an int.
int AvailableGigabytes(const QByteArray& report);

}  // namespace hx
