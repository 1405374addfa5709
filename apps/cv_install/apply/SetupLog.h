// Writes what a setup prints to a log as well, with a header and the outcome.
#pragma once

#include <QByteArray>
#include <string>
#include <string_view>

// From Start on, everything that this process and its child process write to stdout and stderr also
// goes to the log. The log therefore contains no typed answers. Setups as root append to one log;
// each setup of a user creates a new one. Until Keep, the text waits in memory: a setup that is
// declined or refused leaves one line in the log of root, and no log of a user.
class SetupLog {
public:
    // Called at the start of the process. When it exits, the log gets the outcome, also of a setup
    // as root that fails before Start. Prints the path of the log to stderr after a failure.
    static void WriteOutcomeAtExit();

    // Warns when the log cannot be opened.
    static void Start(bool root);

    // Writes the header and what was printed so far to the log. Called before the setup changes
    // anything.
    static void Keep();

    // Ends the log of a setup that found nothing to do. The file gets nothing, and a new one is
    // removed.
    static void Discard();

    // Ends the log of root and removes it. Its outcome only goes to the system's log.
    static void Remove();

    // Writes something to the log only.
    static void Append(const QByteArray& text);

    // For a process that is about to die of a signal: prints the message to stderr and writes the
    // outcome to the log. Async-signal-safe.
    static void EndBySignal(int signal, std::string_view message);

    // The log's path; empty without a log.
    static const std::string& Path();
};
