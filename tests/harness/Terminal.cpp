#include "harness/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace hx_test {
namespace {

using Clock = std::chrono::steady_clock;

int MillisecondsUntil(Clock::time_point end) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

void KeepBytes(int slave) {
    termios settings = {};
    tcgetattr(slave, &settings);
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    tcsetattr(slave, TCSANOW, &settings);
}

}  // namespace

Terminal::Terminal(Mode mode, const std::function<void()>& body) {
    int slave = -1;
    if (openpty(&m_master, &slave, nullptr, nullptr, nullptr) != 0)
        return;
    fcntl(m_master, F_SETFD, FD_CLOEXEC);
    if (mode == Mode::Bytes)
        KeepBytes(slave);
    std::fflush(nullptr);
    m_child = fork();
    if (m_child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(m_master);
        login_tty(slave);
        body();
        std::fflush(nullptr);
        std::exit(0);
    }
    close(slave);
}

Terminal::~Terminal() {
    if (m_status == -1 && m_child > 0) {
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
    }
    close(m_master);
}

bool Terminal::ReadSome(int milliseconds) {
    pollfd fd = {m_master, POLLIN, 0};
    if (poll(&fd, 1, milliseconds) <= 0)
        return false;
    char buffer[4096];
    const ssize_t count = read(m_master, buffer, sizeof buffer);
    if (count <= 0)
        return false;
    m_output.append(buffer, static_cast<size_t>(count));
    return true;
}

bool Terminal::WaitFor(const std::string& text) {
    const auto end = Clock::now() + std::chrono::seconds(20);
    for (;;) {
        const size_t found = m_output.find(text, m_seen);
        if (found != std::string::npos) {
            m_seen = found + text.size();
            return true;
        }
        if (!ReadSome(MillisecondsUntil(end)))
            return false;
    }
}

void Terminal::Send(const std::string& keys) {
    if (write(m_master, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
        std::perror("writing to the terminal");
}

int Terminal::Finish() {
    const auto end = Clock::now() + std::chrono::seconds(60);
    while (ReadSome(MillisecondsUntil(end))) {
    }
    int status = 0;
    // Reading ends when the last process closes the terminal, or at the time limit.
    if (MillisecondsUntil(end) == 0)
        kill(m_child, SIGKILL);
    waitpid(m_child, &status, 0);
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return m_status;
}

bool Terminal::IsSane() const {
    termios settings = {};
    const tcflag_t wanted = ECHO | ICANON | ISIG;
    return tcgetattr(m_master, &settings) == 0 && (settings.c_lflag & wanted) == wanted;
}

}  // namespace hx_test
