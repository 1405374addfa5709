#include "installation/TimeLimit.h"

#include <sys/time.h>

#include <csignal>

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
