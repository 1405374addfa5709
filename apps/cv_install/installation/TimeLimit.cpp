#include "installation/TimeLimit.h"

#include <sys/time.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace {

constexpr itimerval longestCalls = {.it_interval = {.tv_sec = 1, .tv_usec = 0},
                                    .it_value = {.tv_sec = 30, .tv_usec = 0}};

void Interrupt(int /*signal*/) {}

}  // namespace

TimeLimit::TimeLimit() {
    struct sigaction action = {};
    action.sa_handler = Interrupt;
    sigaction(SIGALRM, &action, nullptr);
    setitimer(ITIMER_REAL, &longestCalls, nullptr);
}

TimeLimit::~TimeLimit() {
    constexpr itimerval none = {};
    setitimer(ITIMER_REAL, &none, nullptr);
    std::signal(SIGALRM, SIG_DFL);
}

Problem UnreadablePath(const std::string& path, int error) {
    const char* reason = error == EINTR ? "timed out" : std::strerror(error);
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot read \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(reason)),
            QStringLiteral("Make sure that no other process uses it, then run the setup again.")};
}
