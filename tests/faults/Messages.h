// The messages of cv_install that these tests expect.
#pragma once

#include <string>

// The commit script.
inline const std::string noScript =
    "cv_install: the commit script could not be written, nothing has been changed\n"
    "    See that /tmp exists, may be written to and has space, and run the setup again.\n";
inline const std::string cannotStartScript = "the commit script could not be started: ";
inline const std::string cannotMonitorScript = " could not be followed to its end, and was ended\n";
inline std::string ScriptFailed(int status) {
    return " failed with status " + std::to_string(status) + ", its message stands above\n";
}

// The result.
inline const std::string isIncomplete = "is not complete, or cannot be read\n";
inline const std::string onlyOwnFilesChanged =
    "Nothing but the Q-Chem files and submission scripts";
inline std::string MoveAway(const std::string& directory) {
    return "move the directory \"" + directory + "\" away";
}

// The console and the log.
inline const std::string lostOutput =
    "cv_install: stdout cannot be written to, some lines are lost\n";
inline const std::string logIsFull =
    " ends here, it cannot be written to: No space left on device\n";
inline std::string CannotOpenLog(const std::string& path) {
    return "cv_install: there will be no log, " + path;
}

// Directories.
inline const std::string scratchIsMissing = "The scratch directory \"/tmp\" cannot be found";
inline const std::string scratchNotWritable =
    "The scratch directory \"/tmp\" may not be written to";
inline std::string NotWritable(const std::string& directory) {
    return "cv_install: \"" + directory + "\" may not be written to, ";
}
