// The sections that the two submission scripts share, in the order of the Samba script.
#pragma once

#include <cstdio>

namespace hx {

// Writes the settings, which an administrator may edit.
void WriteSubmissionSettings(FILE* script);

void WriteSubmissionUser(FILE* script);

// `name` distinguishes the log that all users share.
void WriteSubmissionLog(FILE* script, const char* name);

void WriteSubmissionDiagnostics(FILE* script);

void WriteQueueArguments(FILE* script);

void WriteResourceArguments(FILE* script);

}  // namespace hx
