// What the signals SIGINT, SIGQUIT, SIGTERM and SIGHUP do to a setup.
#pragma once

#include <QString>

#include "Problem.h"

// A child process that did not call these functions dies of such a signal. Signals that the caller
// ignores stay ignored.
class Interruption {
public:
    // From now on, a signal ends the process: what the setup has changed is reported, and the
    // process dies of the signal.
    static void EndsSetup(Changes changes);

    // From now on, the setup ends by itself, and a signal is only noted.
    static void ComesTooLate();

    // The file that is removed when a signal ends the process; none for an empty path.
    static void Removes(const QString& path);

    // Does what a signal does after EndsSetup.
    [[noreturn]] static void End(int signal);

    // Reports a signal that was noted.
    static void ReportLateSignal();
};
