#include "apply/ProcessState.h"

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
#include "answers/Usage.h"
#include "apply/ScriptRun.h"

namespace {

void OpenStandardStreams() {
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor != -1 && descriptor <= STDERR_FILENO)
        descriptor = open("/dev/null", O_RDWR);
    if (descriptor != -1)
        close(descriptor);
}

// Only a failing allocation throws, and the setup cannot continue after that. The message needs no
// memory.
[[noreturn]] void EndWithoutMemory() {
    StopScript();
    constexpr std::string_view text =
        "cv_install: out of memory\n    Changes made so far were kept. Run the setup again.\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    _exit(static_cast<int>(ExitStatus::SystemCallFailed));
}

// `pattern` may end with "*".
bool Matches(std::string_view name, std::string_view pattern) {
    return pattern.ends_with('*') ? name.starts_with(pattern.substr(0, pattern.size() - 1))
                                  : name == pattern;
}

// What the table of variables says about a variable; Removed for root if it is not in the table,
// because a setup as root keeps only what is.
VariableUse UseOf(std::string_view name, bool root) {
    for (const VariableUsage& usage : Variables()) {
        if (Matches(name, usage.name))
            return usage.use;
    }
    return root ? VariableUse::Removed : VariableUse::Kept;
}

void CleanEnvironment() {
    const bool root = getuid() == 0;
    std::vector<std::string> removed;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text = *variable;
        const std::string_view name = text.substr(0, text.find('='));
        if (UseOf(name, root) == VariableUse::Removed)
            removed.emplace_back(name);
    }
    for (const std::string& name : removed)
        unsetenv(name.c_str());
    for (const VariableUsage& usage : Variables()) {
        if (root && usage.valueForRoot != nullptr && setenv(usage.name, usage.valueForRoot, 1) != 0)
            EndWithoutMemory();
    }
}

}  // namespace

void PrepareProcess() {
    OpenStandardStreams();
    std::signal(SIGCHLD, SIG_DFL);
    // Qt resets this one in children.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::set_terminate(EndWithoutMemory);
    CleanEnvironment();
    umask(022);
}
