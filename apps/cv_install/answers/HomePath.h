// "~" at the start of a typed path.
#pragma once

#include <QString>

// Returns the path with "~" or "~USER" at its start replaced by the home directory of this user or
// of USER in the user database. Other paths are returned as they are.
QString ExpandHome(const QString& path);
