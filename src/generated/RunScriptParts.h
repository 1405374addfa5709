// The sections that the two run scripts share.
#pragma once

#include <cstdio>

#include "setuprun/CInstallBase.h"

namespace hx {

// Writes the interpreter line and the function that sets a variable unless the user overrides it.
void WriteRunScriptHead(FILE* script);

void WriteRootDirectories(FILE* script, const CInstallBase& run);

// `first` precedes the directories that both scripts search.
void WriteLibraryPath(FILE* script, const char* first);

}  // namespace hx
