// --status: prints what the record and the service manager know about an installation.
#pragma once

#include "answers/Arguments.h"

// Constructs no setup run and takes no lock. Failures have been reported.
ExitStatus RunStatus(Arguments& arguments);

// How long ago a time such as 2026-11-22T14:05:09Z was, in the largest unit, such as "3 days ago".
QString AgeOf(const QString& time, const QString& now);
