// Writes what a setup prints to a log as well.
#pragma once

#include <QByteArray>
#include <string>

// From Start on, everything that this process writes to stdout and stderr also goes to the log. The
// log therefore contains no typed answers. A setup as root overwrites one log; each setup of a user
// creates a new one.
class SetupLog {
public:
    // Warns when the log cannot be opened. When the process exits with another status than
    // Complete, prints the log's path to stderr.
    static void Start(bool root);

    // Writes something to the log only.
    static void Append(const QByteArray& text);

    // The log's path; empty without a log.
    static const std::string& Path();
};
