// A child process that gets the signals which ask this process to end.
#pragma once

#include <sys/types.h>

#include <optional>

#include "installation/SignalsHandled.h"

// One at a time. While the object exists, SIGINT, SIGQUIT, SIGTERM and SIGHUP go to the child and
// do not end this process. When this process is killed, the child gets SIGTERM.
class ChildProcess {
public:
    // Returns as fork does. The process must have one thread. The child gets the dispositions of
    // signals that this process had before.
    pid_t Fork();

    // Waits for the child's end and returns its status as waitpid does.
    static int Wait();

    // The last signal that came while the object existed; 0 without one.
    static int ReceivedSignal();

    // Ends the handling of signals.
    void Restore() { m_handled.reset(); }

private:
    std::optional<SignalsHandled> m_handled;
};
