// Files that options name: for --json and --save-answers.
#pragma once

#include <sys/types.h>

#include <QByteArray>
#include <string>

#include "Problem.h"

// Reserves standard output for the file "-": from now on, all other output goes to stderr.
void ReserveStandardOutput();

// Writes a new file that replaces `path`; "-" is standard output, and a device or pipe is written
// to. A link that another user put there is refused or replaced.
Failure WriteOutputFile(const std::string& path, const QByteArray& text, mode_t mode);
