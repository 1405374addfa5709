// Keeps what a setup shows on the console in a file as well.
#pragma once

#include <string>

// From Start on, whatever this process writes to stdout and stderr also goes to the log, which
// therefore never holds more than the console was to show: no typed answers. The log of a root run
// is /var/log/corvane26_setup.log, that of the last setup; another user's lies in /tmp under a name
// of its own. Both have mode 0600.
class SetupLog {
public:
    // Does nothing but warn when the log cannot be opened.
    static void Start(bool rootRun);

    // The log's path; empty without a log.
    static const std::string& Path();

    // True when something that was printed could not be written to stdout, with or without a log.
    static bool LostOutput();
};
