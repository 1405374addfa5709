// What the df tool says.
#pragma once

#include <QByteArray>

namespace hx {

// The gigabytes available, by the second line of what "df -P" printed; 0 for an odd report and for
// a figure that does not fit an int.
int AvailableGigabytes(const QByteArray& report);

}  // namespace hx
