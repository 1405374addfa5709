// A pseudo-terminal with a process that the test reads from and types to.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace hx_test {

class Terminal {
public:
    enum class Mode {
        Person,  // echo and line ends as on a terminal
        Bytes    // no echo, output bytes unchanged
    };

    // Runs `body` in a forked child whose stdin, stdout, and stderr are the terminal. When `body`
    // returns, the child exits with status 0.
    Terminal(Mode mode, const std::function<void()>& body);

    // Kills the child if it still runs.
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Reads until `text` appears after the previous match; false after 20 seconds or at the end.
    bool WaitFor(const std::string& text);

    void Send(const std::string& keys);

    // Waits up to 60 seconds for the child and returns its status, or 128 plus a signal number.
    int Finish();

    // Returns the process id of the running child.
    pid_t Pid() const { return m_child; }

    // Returns all output so far.
    const std::string& Output() const { return m_output; }

    // Returns false if a program left the terminal without echo or line editing.
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
