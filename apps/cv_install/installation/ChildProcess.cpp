#include "installation/ChildProcess.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>

namespace {

std::atomic<pid_t> supervised = 0;
std::atomic<int> signalForChild = 0;

// The terminal's signals reach the child by themselves.
void PassOnToChild(int signal, siginfo_t* information, void* /*context*/) {
    const int error = errno;
    signalForChild = signal;
    if (information->si_code <= 0 && supervised > 0)
        kill(supervised, signal);
    errno = error;
}

}  // namespace

pid_t ChildProcess::Fork() {
    // Otherwise the child would keep the rest of the input, and print what is buffered again.
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    std::fflush(nullptr);
    signalForChild = 0;
    const pid_t parent = getpid();
    m_handled.emplace(PassOnToChild);
    SignalsHandled::Mask(SIG_BLOCK);
    const pid_t forked = fork();
    supervised = forked;
    if (forked == 0)
        m_handled.reset();
    SignalsHandled::Mask(SIG_UNBLOCK);
    if (forked == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent)
            _exit(1);
    }
    return forked;
}

int ChildProcess::Wait() {
    int status = 0;
    while (waitpid(supervised, &status, 0) == -1 && errno == EINTR) {
    }
    supervised = 0;
    return status;
}

int ChildProcess::ReceivedSignal() {
    return signalForChild;
}
