// The messages of cv_install that these tests expect.
#pragma once

#include <string>

// What a failed setup changed.
inline const std::string changedNothing = "    No changes were made.\n";
inline const std::string changedRunTimeFiles =
    "    At most, Q-Chem files and submission scripts were changed.\n";
inline const std::string keptChanges = "    Changes made so far were kept. Run the setup again.\n";

// The commit script.
inline const std::string noScript =
    "cv_install: cannot write the commit script\n"
    "    Make sure that /tmp is writable and not full, then run the setup again.\n" +
    changedRunTimeFiles;
inline const std::string cannotStartScript = "cv_install: cannot start the commit script: ";
inline const std::string cannotMonitorScript = "\"; terminated it\n" + keptChanges;
inline std::string ScriptFailed(int status) {
    return "\" failed with exit status " + std::to_string(status) +
           "; see the error above\n    Fix the cause.\n" + keptChanges;
}

// The result.
inline const std::string isIncomplete =
    "\" is incomplete or unreadable\n"
    "    Make sure that its file system is writable and not full, then run the setup again.\n";
inline const std::string pageIsIncomplete = "\" is missing or truncated\n    Free up disk space, ";
inline const std::string cannotReadArchive = "cv_install: cannot read archive \"/tmp/product/";
inline std::string MoveAway(const std::string& directory) {
    return "move directory \"" + directory + "\" away";
}

// The console and the log.
inline std::string LostOutput(const std::string& error) {
    return "cv_install: cannot write to standard output: " + error +
           "\n    Some output was lost. The exit status is still valid.\n";
}
inline const std::string logIsFull =
    ".log\": No space left on device\n    The setup continues; the log is incomplete.\n";
inline std::string CannotOpenLog(const std::string& path) {
    return "cv_install: warning: cannot open log \"" + path;
}

// Directories.
inline std::string ScratchNotAccessible(const std::string& error) {
    return "The scratch directory \"/tmp\" cannot be accessed: " + error + "\n";
}
inline const std::string scratchNotWritable = "The scratch directory \"/tmp\" is not writable.";
inline std::string NotWritable(const std::string& directory) {
    return "cv_install: cannot write to directory \"" + directory + "\"\n";
}
inline std::string CannotLock(const std::string& path, const std::string& error) {
    return "cv_install: cannot lock \"" + path + "\": " + error +
           "\n    Make sure that its file system is writable and supports locks, then run the "
           "setup again.\n" +
           changedNothing;
}
