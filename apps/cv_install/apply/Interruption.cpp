#include "apply/Interruption.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "Outcome.h"
#include "apply/SetupLog.h"
#include "installation/SignalsHandled.h"

namespace {

// What the handler shares with the rest.
std::atomic<bool> isTooLate = false;
std::atomic<int> lateSignal = 0;
std::atomic<const char*> changesText = "";
std::atomic<pid_t> setupProcess = 0;
std::array<char, 128> removedPath = {};
static_assert(std::atomic<const char*>::is_always_lock_free);

// Async-signal-safe.
void ReportEnd(int signal) {
    const char* name = sigdescr_np(signal);
    OutcomeLine message;
    if (isatty(STDERR_FILENO) != 0)
        message.Add("\n");
    message.Add("cv_install: setup stopped by signal ");
    message.Add(name == nullptr ? "" : name);
    message.Add("\n    ");
    message.Add(changesText.load());
    message.Add("\n");
    SetupLog::EndBySignal(signal, message.Text());
}

void EndProcess(int signal) {
    if (getpid() == setupProcess) {
        if (removedPath[0] != '\0')
            unlink(removedPath.data());
        ReportEnd(signal);
    }
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void OnSignal(int signal) {
    const int error = errno;
    if (isTooLate)
        lateSignal = signal;
    else
        EndProcess(signal);
    errno = error;
}

// The handlers stay until the process ends.
void Handle() {
    static const SignalsHandled* const handled = new SignalsHandled(OnSignal);
    static_cast<void>(handled);
    setupProcess = getpid();
}

}  // namespace

void Interruption::EndsSetup(Changes changes) {
    changesText = TextOf(changes);
    isTooLate = false;
    Handle();
}

void Interruption::ComesTooLate() {
    isTooLate = true;
    Handle();
}

void Interruption::Removes(const QString& path) {
    removedPath[0] = '\0';
    const QByteArray bytes = path.toUtf8();
    if (static_cast<size_t>(bytes.size()) < removedPath.size())
        std::memcpy(removedPath.data(), bytes.constData(), static_cast<size_t>(bytes.size()) + 1);
}

void Interruption::End(int signal) {
    std::fflush(stdout);
    EndProcess(signal);
    _exit(static_cast<int>(ExitStatus::SignalBase) + signal);
}

void Interruption::ReportLateSignal() {
    if (lateSignal == 0)
        return;
    ReportWarning({ExitStatus::Complete,
                   QStringLiteral("received signal %1 too late to stop the setup")
                       .arg(QString::fromUtf8(sigdescr_np(lateSignal))),
                   {}});
}
