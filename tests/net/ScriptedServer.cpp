#include "net/ScriptedServer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace hx_test {

ScriptedServer::ScriptedServer(std::vector<Response> responses)
    : m_responses(std::move(responses)) {
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(m_listener, reinterpret_cast<const sockaddr*>(&address), size);
    listen(m_listener, 10);
    getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size);
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { Serve(); });
}

ScriptedServer::~ScriptedServer() {
    // Ends the accept call of the thread.
    shutdown(m_listener, SHUT_RDWR);
    m_thread.join();
    close(m_listener);
    for (const int connection : m_open)
        close(connection);
}

void ScriptedServer::Serve() {
    for (size_t next = 0;; ++next) {
        const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            return;
        if (next < m_responses.size())
            Converse(connection, m_responses[next]);
        else
            close(connection);
    }
}

void ScriptedServer::Converse(int connection, const Response& response) {
    std::string request;
    char buffer[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
        if (count <= 0)
            break;
        request.append(buffer, static_cast<size_t>(count));
    }
    {
        const std::lock_guard lock(m_mutex);
        m_requests.push_back(request);
    }
    (void)!send(connection, response.bytes.data(), response.bytes.size(), MSG_NOSIGNAL);
    if (response.keepOpen)
        m_open.push_back(connection);
    else
        close(connection);
}

std::vector<std::string> ScriptedServer::Requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

std::string ScriptedServer::Header(const std::string& name) const {
    const std::lock_guard lock(m_mutex);
    if (m_requests.empty())
        return "(no request)";
    const std::string& request = m_requests.front();
    // Newer versions of Qt send the names in lower case.
    const char* line = strcasestr(request.c_str(), ("\r\n" + name + ": ").c_str());
    if (line == nullptr)
        return "(none)";
    const size_t value = static_cast<size_t>(line - request.c_str()) + name.size() + 4;
    return request.substr(value, request.find("\r\n", value) - value);
}

}  // namespace hx_test
