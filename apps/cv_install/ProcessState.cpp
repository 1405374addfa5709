#include "ProcessState.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

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

// What a setup as root needs of its environment; PATH is set separately.
constexpr std::string_view keptForRoot[] = {"COLORTERM", "HOME",  "LANG",  "LANGUAGE",
                                            "LOGNAME",   "SHELL", "TERM",  "TZ",
                                            "USER",      "LC_*",  "SUDO_*"};

// What changes the output or the actions of the tools that a setup starts, and the values of an
// older run script.
constexpr std::string_view removedForUsers[] = {"BLOCKSIZE",     "BLOCK_SIZE",      "CORV_*",
                                                "DF_BLOCK_SIZE", "POSIXLY_CORRECT", "TAR_OPTIONS"};

// `pattern` may end with "*".
bool Matches(std::string_view name, std::string_view pattern) {
    return pattern.ends_with('*') ? name.starts_with(pattern.substr(0, pattern.size() - 1))
                                  : name == pattern;
}

template <size_t N>
bool MatchesAny(std::string_view name, const std::string_view (&patterns)[N]) {
    return std::any_of(std::begin(patterns), std::end(patterns),
                       [name](std::string_view pattern) { return Matches(name, pattern); });
}

void CleanEnvironment() {
    const bool root = getuid() == 0;
    std::vector<std::string> removed;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text = *variable;
        const std::string_view name = text.substr(0, text.find('='));
        if (root ? !MatchesAny(name, keptForRoot) : MatchesAny(name, removedForUsers))
            removed.emplace_back(name);
    }
    for (const std::string& name : removed)
        unsetenv(name.c_str());
    if (root && setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1) != 0)
        EndWithoutMemory();
}

}  // namespace

void PrepareProcess() {
    OpenStandardStreams();
    std::signal(SIGCHLD, SIG_DFL);
    // Qt gives children the default back.
    std::signal(SIGPIPE, SIG_IGN);
    std::set_terminate(EndWithoutMemory);
    CleanEnvironment();
    umask(022);
}
