// What the two run scripts share.
#pragma once

#include <cstdio>

#include "setuprun/CInstallBase.h"

namespace hx {

// The interpreter line and the function that sets a variable the user may override.
void WriteRunScriptHead(FILE* script);

void WriteRootDirectories(FILE* script, const CInstallBase& run);

// `first` stands before the directories that both scripts search.
void WriteLibraryPath(FILE* script, const char* first);

}  // namespace hx
