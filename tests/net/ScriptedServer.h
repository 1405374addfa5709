// A server that sends prepared responses, valid or not.
#pragma once

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace hx_test {

class ScriptedServer {
public:
    struct Response {
        std::string bytes;      // sent after the headers of the request are complete
        bool keepOpen = false;  // whether the connection then stays open
    };

    // Sends one response for each connection, in order. Closes later connections at once.
    explicit ScriptedServer(std::vector<Response> responses);

    // Closes all connections.
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int Port() const { return m_port; }
    std::string Url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(m_port) + path;
    }

    // The request line and the headers of each connection.
    std::vector<std::string> Requests() const;

    // The value of a header of the first request, or "(none)".
    std::string Header(const std::string& name) const;

private:
    void Serve();
    void Converse(int connection, const Response& response);

    std::vector<Response> m_responses;
    std::vector<int> m_open;
    std::vector<std::string> m_requests;
    mutable std::mutex m_mutex;
    int m_listener = -1;
    int m_port = 0;
    std::thread m_thread;
};

}  // namespace hx_test
