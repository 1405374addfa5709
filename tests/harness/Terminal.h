// A pseudo-terminal with a process behind it, driven as a person would.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace hx_test {

class Terminal {
public:
    enum class Mode {
        Person,  // echo and line ends as on a console
        Bytes    // no echo, line feeds as they are: what is read is what was written
    };

    // Runs `body` in a forked child whose stdin, stdout and stderr are the terminal. A body that
    // returns ends the child with status 0.
    Terminal(Mode mode, const std::function<void()>& body);

    // Ends a child that still runs.
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Reads until `text` has come since the last call; false after 20 seconds or at the end.
    bool WaitFor(const std::string& text);

    void Send(const std::string& keys);

    // Waits for the child to end, 60 seconds at most: its status, 128 plus a signal's number.
    int Finish();

    // The child's process id, while it runs.
    pid_t Pid() const { return m_child; }

    // All that came so far.
    const std::string& Output() const { return m_output; }

    // False when a program left the terminal without echo or without line editing.
    bool IsSane() const;

private:
    bool ReadSome(int milliseconds);

    int m_master = -1;
    pid_t m_child = -1;
    int m_status = -1;
    size_t m_seen = 0;
    std::string m_output;
};

}  // namespace hx_test
