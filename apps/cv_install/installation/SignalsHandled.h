// Handlers of the signals that ask the process to end.
#pragma once

#include <csignal>
#include <iterator>

// Handles SIGINT, SIGQUIT, SIGTERM and SIGHUP while the object exists, except those that the caller
// ignores, as nohup does: then children ignore them too. An executed program gets the default
// disposition of the others.
class SignalsHandled {
public:
    explicit SignalsHandled(void (*handler)(int), int flags = SA_RESTART) {
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = flags;
        Handle(action);
    }
    explicit SignalsHandled(void (*handler)(int, siginfo_t*, void*)) {
        struct sigaction action = {};
        action.sa_sigaction = handler;
        action.sa_flags = SA_SIGINFO | SA_RESTART;
        Handle(action);
    }
    ~SignalsHandled() { Restore(); }
    SignalsHandled(const SignalsHandled&) = delete;
    SignalsHandled& operator=(const SignalsHandled&) = delete;

    // Also for a child process, which does not destroy the object.
    void Restore() const {
        for (size_t i = 0; i < std::size(handled); ++i)
            sigaction(handled[i], &m_former[i], nullptr);
    }

    // Around fork, so that no signal gets lost between parent and child. `how`: SIG_BLOCK or
    // SIG_UNBLOCK.
    static void Mask(int how) {
        sigset_t set;
        sigemptyset(&set);
        for (const int signal : handled)
            sigaddset(&set, signal);
        sigprocmask(how, &set, nullptr);
    }

private:
    void Handle(const struct sigaction& action) {
        for (size_t i = 0; i < std::size(handled); ++i) {
            sigaction(handled[i], nullptr, &m_former[i]);
            if (m_former[i].sa_handler != SIG_IGN)
                sigaction(handled[i], &action, nullptr);
        }
    }

    static constexpr int handled[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
    struct sigaction m_former[std::size(handled)] = {};
};
