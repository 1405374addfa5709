// A server program of a test's own on the loopback.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace hx_test {

// A TCP port of 127.0.0.1 that nobody listens on at the moment.
int FreePort();

// True when somebody accepts connections on the port of 127.0.0.1.
bool PortAnswers(int port);

// A program that stays in the foreground. It dies with the test's process.
class Server {
public:
    Server() = default;
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Starts the program and waits until it answers on `port`. False when it ends before that,
    // such as when another program took the port, and after 20 seconds.
    bool Start(const std::vector<std::string>& command, int port);

    void Stop();

private:
    bool HasEnded();

    pid_t m_pid = -1;
};

}  // namespace hx_test
