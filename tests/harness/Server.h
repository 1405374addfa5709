// A server program on the loopback interface for one test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace hx_test {

// Returns a TCP port of 127.0.0.1 without a listener.
int FreePort();

// Returns whether the port of 127.0.0.1 accepts connections.
bool PortAnswers(int port);

// A program that stays in the foreground. The kernel kills it when the test's process ends.
class Server {
public:
    Server() = default;
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Starts the program and waits until `port` accepts connections. Returns false after 20 seconds
    // or if the program ends, for instance because the port is in use.
    bool Start(const std::vector<std::string>& command, int port);

    void Stop();

private:
    bool HasEnded();

    pid_t m_pid = -1;
};

}  // namespace hx_test
