// System calls whose failure ends the setup.
#pragma once

#include <QString>

namespace hx {

// Unless `success`, ends the process with status 2. The message consists of `before`, `path`, and
// `after`, followed by the text of errno, which the failed call must have set.
void Require(bool success, const char* before, const QString& path, const char* after = "\"");

// Creates a directory with mode 0755, regardless of the umask. `before` begins the error message.
void MakeDirectory(const QString& path, const char* before);

}  // namespace hx
