// What the Samba and the SSH submission script share, in the order in which the first holds it.
#pragma once

#include <cstdio>

namespace hx {

// For an administrator to edit by hand.
void WriteSubmissionSettings(FILE* script);

void WriteSubmissionUser(FILE* script);

// `name` distinguishes the log that all users share.
void WriteSubmissionLog(FILE* script, const char* name);

void WriteSubmissionDiagnostics(FILE* script);

void WriteQueueArguments(FILE* script);

void WriteResourceArguments(FILE* script);

}  // namespace hx
