// Messages and pauses of a setup.
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "setuprun/CInstallBase.h"
#include "support/HXfgets.h"

namespace {

// Blocks SIGPIPE in this thread, so that a closed pipe cannot end the process before the message
// is written. The signal's disposition belongs to the caller and stays as it is.
class SigpipeBlock {
public:
    SigpipeBlock() {
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&m_sigpipe);
        sigaddset(&m_sigpipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_sigpipe, &m_before);
    }
    SigpipeBlock(const SigpipeBlock&) = delete;
    SigpipeBlock& operator=(const SigpipeBlock&) = delete;

    // Discards a SIGPIPE that arrived meanwhile. An earlier one remains pending.
    ~SigpipeBlock() {
        const timespec noWait = {};
        while (!m_wasPending && sigtimedwait(&m_sigpipe, nullptr, &noWait) == -1 && errno == EINTR)
            continue;
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }

private:
    sigset_t m_sigpipe = {};
    sigset_t m_before = {};
    bool m_wasPending = false;
};

// Questions and progress on stdout come before the failure that follows them.
void Report(const char* kind, const QString& message, int errnum) {
    std::fflush(stdout);
    std::fprintf(stderr, "Corvane Install: %s\n    %s\n", kind, message.toUtf8().constData());
    if (errnum != 0)
        std::fprintf(stderr, "    %s\n", std::strerror(errnum));
}

}  // namespace

void CInstallBase::InstallError(const QString& message, int status, int errnum) {
    // Remains in effect through exit, which flushes the output of exit handlers.
    const SigpipeBlock block;
    Report("Error", message, errnum);
    std::exit(status);
}

void CInstallBase::InstallWarning(const QString& message, int errnum) {
    const SigpipeBlock block;
    Report("Warning", message, errnum);
}

void CInstallBase::InstallPause() {
    if (!m_interactive)
        return;
    std::printf("[Press \"Enter\" key to continue]");
    std::fflush(stdout);
    std::array<char, 256> ignored = {};
    HXfgets(ignored.data(), static_cast<int>(ignored.size()), stdin);
}

void CInstallBase::InstallSeparator() {
    std::printf("------------------------------------------------------------\n");
}
