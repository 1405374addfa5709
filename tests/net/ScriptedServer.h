// A tiny server that answers each connection as it is told, well or badly.
#pragma once

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace hx_test {

class ScriptedServer {
public:
    struct Answer {
        std::string bytes;      // sent once the request's headers have come
        bool leftOpen = false;  // else the connection is closed then
    };

    // The first connection gets the first answer, and so on; further ones are closed.
    explicit ScriptedServer(std::vector<Answer> answers);

    // Closes all connections.
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int Port() const { return m_port; }
    std::string Url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(m_port) + path;
    }

    // The request line and the headers of each connection so far.
    std::vector<std::string> Requests() const;

    // A header's value in the first request; "(none)" without it.
    std::string Header(const std::string& name) const;

private:
    void Serve();
    void Converse(int connection, const Answer& answer);

    std::vector<Answer> m_answers;
    std::vector<int> m_open;
    std::vector<std::string> m_requests;
    mutable std::mutex m_mutex;
    int m_listener = -1;
    int m_port = 0;
    std::thread m_thread;
};

}  // namespace hx_test
