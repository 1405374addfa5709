#include "harness/Server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace hx_test {
namespace {

sockaddr_in Loopback(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

[[noreturn]] void Become(const std::vector<std::string>& command) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int null = open("/dev/null", O_RDWR);
    for (const int fd : {0, 1, 2})
        dup2(null, fd);
    std::vector<char*> argv;
    for (const std::string& word : command)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
}

}  // namespace

int FreePort() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    bind(listener, reinterpret_cast<const sockaddr*>(&address), size);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    close(listener);
    return ntohs(address.sin_port);
}

bool PortAnswers(int port) {
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(port);
    const bool connected =
        connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(client);
    return connected;
}

Server::~Server() {
    Stop();
}

bool Server::Start(const std::vector<std::string>& command, int port) {
    m_pid = fork();
    if (m_pid == 0)
        Become(command);
    for (int i = 0; i < 400 && !HasEnded(); ++i) {
        if (PortAnswers(port))
            return !HasEnded();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

bool Server::HasEnded() {
    if (m_pid > 0 && waitpid(m_pid, nullptr, WNOHANG) == m_pid)
        m_pid = -1;
    return m_pid <= 0;
}

void Server::Stop() {
    if (HasEnded())
        return;
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

}  // namespace hx_test
