// The exit statuses of cv_install, as --help prints them.
#pragma once

enum class ExitStatus {
    Complete = 0,
    Refused = 1,  // by the library, or by a step of the commit script
    SystemCallFailed = 2,
    UnusableArguments = 3,
    ValueRefused = 4,
    ScriptNotWritten = 5,
    ScriptNotStarted = 6,
    ConsoleClosed = 7,
    TreeRefused = 8,
    Declined = 9,
    Incomplete = 10,
    NoWorkingDirectory = 14,
    Locked = 64,
    ChecksFailed = 65,
    ServiceNotRunning = 66,
    NoDryRun = 67,
    RecordUnusable = 68,
    Differs = 1,      // of --verify: not as the setup left it
    NotVerified = 2,  // of --verify
    SignalBase = 128  // plus the number of the signal that terminated the commit script
};
