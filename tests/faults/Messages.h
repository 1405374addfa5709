// Messages that more than one kind of failure ends with.
#pragma once

inline constexpr const char* kNoScript =
    "cv_install: the commit script could not be written, nothing has been changed\n"
    "    See that /tmp exists, may be written to and has space, and run the setup again.\n";
