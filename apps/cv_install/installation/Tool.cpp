#include "installation/Tool.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QStringList>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>

#include "installation/State.h"

namespace {

using std::chrono::seconds;

constexpr seconds longestRun(90);
constexpr seconds longestEnd(5);

// What a started program gets: no input, default dispositions of signals, and a process group,
// which the terminal's signals do not reach and which ends with it.
class SpawnSettings {
public:
    // The descriptors that become stdout and stderr, or -1.
    SpawnSettings(int output, int errors) {
        posix_spawn_file_actions_init(&m_actions);
        posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        Redirect(STDOUT_FILENO, output);
        Redirect(STDERR_FILENO, errors);
        sigset_t set;
        posix_spawnattr_init(&m_attributes);
        posix_spawnattr_setflags(
            &m_attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
        sigfillset(&set);
        posix_spawnattr_setsigdefault(&m_attributes, &set);
        sigemptyset(&set);
        posix_spawnattr_setsigmask(&m_attributes, &set);
        posix_spawnattr_setpgroup(&m_attributes, 0);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&m_actions);
        posix_spawnattr_destroy(&m_attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawn_file_actions_t* Actions() const { return &m_actions; }
    const posix_spawnattr_t* Attributes() const { return &m_attributes; }

private:
    void Redirect(int stream, int to) {
        if (to == -1)
            posix_spawn_file_actions_addopen(&m_actions, stream, "/dev/null", O_WRONLY, 0);
        else
            posix_spawn_file_actions_adddup2(&m_actions, to, stream);
    }

    posix_spawn_file_actions_t m_actions = {};
    posix_spawnattr_t m_attributes = {};
};

// Returns 0 and sets `process`, or returns the error number.
int Spawn(const std::vector<std::string>& command, int output, int errors, pid_t& process) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const SpawnSettings settings(output, errors);
    return posix_spawnp(&process, arguments[0], settings.Actions(), settings.Attributes(),
                        arguments.data(), environ);
}

// Returns the status of waitpid; empty when the process is still running after the limit.
std::optional<int> WaitForEnd(pid_t process, seconds longest) {
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + longest;
    const Descriptor ended(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    for (int status = 0;;) {
        if (waitpid(process, &status, WNOHANG) == process)
            return status;
        const auto remaining =
            std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now());
        if (remaining.count() <= 0)
            return {};
        pollfd end = {ended.Number(), POLLIN, 0};
        // Kernels before 5.3 have no such descriptor.
        poll(&end, 1, ended.Number() == -1 ? 1 : static_cast<int>(remaining.count()));
    }
}

void End(pid_t process) {
    kill(-process, SIGTERM);
    if (!WaitForEnd(process, longestEnd)) {
        kill(-process, SIGKILL);
        WaitForEnd(process, longestEnd);
    }
}

// The lines of the file, joined; at most 1,000 bytes.
QString ReadMessages(int file) {
    std::array<char, 1000> text = {};
    const ssize_t length = pread(file, text.data(), text.size(), 0);
    const QString lines = QString::fromUtf8(text.data(), length > 0 ? length : 0);
    return lines.split(u'\n', Qt::SkipEmptyParts).join(QStringLiteral("; "));
}

// As RunTool, with stdout to `output` unless that is -1.
std::optional<QString> RunWithin(const std::vector<std::string>& command, Messages messages,
                                 int output, seconds longest, int lastSuccess = 0) {
    // A file in memory, because background processes of the tool can keep a pipe open.
    const Descriptor errors(messages == Messages::Shown ? memfd_create("errors", MFD_CLOEXEC) : -1);
    pid_t process = 0;
    if (const int error = Spawn(command, output, errors.Number(), process))
        return QString::fromUtf8(std::strerror(error));
    const std::optional<int> status = WaitForEnd(process, longest);
    if (!status) {
        End(process);
        return QStringLiteral("the process did not end within %1 seconds").arg(longest.count());
    }
    if (WIFEXITED(*status) && WEXITSTATUS(*status) <= lastSuccess)
        return {};
    const QString text = ReadMessages(errors.Number());
    if (!text.isEmpty())
        return text;
    return WIFSIGNALED(*status) ? QString::fromUtf8(strsignal(WTERMSIG(*status)))
                                : QStringLiteral("exit status %1").arg(WEXITSTATUS(*status));
}

}  // namespace

std::optional<QString> RunTool(const std::vector<std::string>& command, Messages messages) {
    return RunWithin(command, messages, -1, longestRun);
}

ToolOutput ReadTool(const std::vector<std::string>& command, seconds longest, int lastSuccess) {
    const Descriptor output(memfd_create("output", MFD_CLOEXEC));
    ToolOutput result;
    result.failure = RunWithin(command, Messages::Shown, output.Number(), longest, lastSuccess);
    result.text.resize(longestToolOutput);
    const ssize_t length =
        pread(output.Number(), result.text.data(), static_cast<size_t>(longestToolOutput), 0);
    result.text.truncate(length > 0 ? length : 0);
    return result;
}
