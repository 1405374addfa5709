#include "ProcessState.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "ExitStatus.h"
#include "ScriptRun.h"

namespace {

void OpenStandardStreams() {
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor != -1 && descriptor <= STDERR_FILENO)
        descriptor = open("/dev/null", O_RDWR);
    if (descriptor != -1)
        close(descriptor);
}

// Nothing throws but a failing allocation, and there is no way on from that.
[[noreturn]] void EndWithoutMemory() {
    StopScript();
    constexpr std::string_view text =
        "cv_install: out of memory\n    What was done remains.  Run the setup again.\n";
    // Without a console there is nobody to tell.
    [[maybe_unused]] const ssize_t told = write(STDERR_FILENO, text.data(), text.size());
    _exit(static_cast<int>(ExitStatus::SystemCallFailed));
}

}  // namespace

void PrepareProcess() {
    OpenStandardStreams();
    std::signal(SIGCHLD, SIG_DFL);
    // Qt gives children the default back.
    std::signal(SIGPIPE, SIG_IGN);
    std::set_terminate(EndWithoutMemory);
    // The programs that root starts are the system's.
    if (getuid() == 0 && setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1) != 0)
        EndWithoutMemory();
}
