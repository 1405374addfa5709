// The part that the writers of run-time files share.
#pragma once

#include <QString>
#include <cstdio>
#include <functional>

#include "setuprun/CInstallBase.h"

namespace hx {

// The messages of a file that cannot be removed or opened: the text before and after its path.
struct FileFailures {
    const char* unlink[2];
    const char* open[2];
    bool exitsWithErrno = false;  // when it cannot be opened; otherwise with 2 and the error's text
};

// Compatibility: the scripts' exit status is the error number, and the error's text is missing.
inline constexpr FileFailures scriptFailures = {
    {"Unable to update \"", "\", unlink failed"}, {"Unable to open \"", "\" for write"}, true};
inline constexpr FileFailures qchemFailures = {{"Unable to delete \"", "\""},
                                               {"Unable to open file \"", "\" for write"}};
inline constexpr FileFailures queueFailures = {{"Unable to delete \"", "\""},
                                               {"Unable to create \"", "\""}};

// A file that a setup writes below m_installDir.
struct RunTimeFile {
    const char* suffix;  // of the path
    mode_t mode;
    const FileFailures& failures;
    const char* created = nullptr;  // first line of the report; null: no report
    const char* updated = nullptr;  // the same, if the file existed
    bool reportsPath = false;       // the path precedes that line
};

// Writes `file`, sets its mode regardless of the umask, and reports it. A file that the user may
// write to is truncated in place, which keeps its owner and its hard links; any other is removed
// first. Does not detect a full disk. Ends the process when the file cannot be removed or opened or
// its mode cannot be set.
void WriteRunTimeFile(CInstallBase& run, const RunTimeFile& file,
                      const std::function<void(FILE*)>& content);

// Writes a separator, the lines if the setup reports on stdout, and a pause.
void Report(CInstallBase& run, const std::function<void()>& lines);

}  // namespace hx
