// Removes what a user's setup made.
#pragma once

#include <QString>

#include "ExitStatus.h"
#include "answers/Arguments.h"

// Deletes what the manifest of the install directory lists and is still as it says. Without
// --purge, settings and the record stay. Shows what is deleted and asks.
// Failures have been reported.
ExitStatus RemoveAsUser(const Arguments& arguments, const QString& installDir);
