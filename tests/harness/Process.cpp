#include "harness/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace hx_test {
namespace {

[[noreturn]] void Exec(const std::vector<std::string>& command, const ProcessOptions& options) {
    if (!options.workingDirectory.empty() && chdir(options.workingDirectory.c_str()) != 0)
        _exit(126);
    for (const auto& name : options.unset)
        unsetenv(name.c_str());
    for (const auto& [name, value] : options.env)
        setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> argv;
    argv.reserve(command.size() + 1);
    for (const auto& word : command)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
}

// Reads the available bytes; returns false at the end of the file.
bool Drain(int fd, std::string& text) {
    char buffer[4096];
    const ssize_t count = read(fd, buffer, sizeof buffer);
    if (count > 0)
        text.append(buffer, static_cast<size_t>(count));
    return count > 0;
}

void CollectOutput(int out, int err, ProcessResult& result) {
    pollfd fds[] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string* texts[] = {&result.out, &result.err};
    while (fds[0].fd >= 0 || fds[1].fd >= 0) {
        poll(fds, 2, -1);
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd >= 0 && fds[i].revents != 0 && !Drain(fds[i].fd, *texts[i]))
                fds[i].fd = -1;
        }
    }
}

// A file in memory, so that no reader can block the writer and a full disk does not matter.
int InputDescriptor(const std::string& input) {
    const int fd = memfd_create("input", MFD_CLOEXEC);
    if (write(fd, input.data(), input.size()) == static_cast<ssize_t>(input.size()))
        lseek(fd, 0, SEEK_SET);
    return fd;
}

}  // namespace

ProcessResult Run(const std::vector<std::string>& command, const ProcessOptions& options) {
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        return {};
    const int input = InputDescriptor(options.input);
    const pid_t child = fork();
    if (child == 0) {
        dup2(input, 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        Exec(command, options);
    }
    for (const int fd : {input, out[1], err[1]})
        close(fd);
    ProcessResult result;
    CollectOutput(out[0], err[0], result);
    close(out[0]);
    close(err[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

}  // namespace hx_test
