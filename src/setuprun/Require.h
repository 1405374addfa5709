// System calls that a setup run cannot do without.
#pragma once

#include <QString>

namespace hx {

// Unless `success`, ends the process with status 2 and the text of errno, which must be the
// failure's. The message is the path between the two texts.
void Require(bool success, const char* before, const QString& path, const char* after = "\"");

// Makes a directory with mode 0755, whatever the umask. `before` opens the message of a failure.
void MakeDirectory(const QString& path, const char* before);

}  // namespace hx
