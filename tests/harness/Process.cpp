#include "harness/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <sstream>

namespace hx_test {
namespace {

std::vector<char*> Pointers(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> Environment(const ProcessOptions& options) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        const std::string name = text.substr(0, text.find('='));
        const auto& unset = options.unset;
        if (std::find(unset.begin(), unset.end(), name) == unset.end() &&
            !options.env.contains(name))
            variables.push_back(text);
    }
    for (const auto& [name, value] : options.env)
        variables.push_back(name + '=' + value);
    return variables;
}

// Returns the file that the command names in its own environment. Another thread may use that of
// this process.
std::string FileOf(const std::string& command, const std::vector<std::string>& environment) {
    if (command.find('/') != std::string::npos)
        return command;
    const auto variable =
        std::find_if(environment.begin(), environment.end(),
                     [](const std::string& text) { return text.starts_with("PATH="); });
    std::istringstream directories(variable == environment.end() ? "/bin:/usr/bin"
                                                                 : variable->substr(5));
    for (std::string directory; std::getline(directories, directory, ':');) {
        const std::string file = directory + '/' + command;
        if (access(file.c_str(), X_OK) == 0)
            return file;
    }
    return command;
}

// Does not copy this process, which costs most of the time of a short command.
pid_t Start(std::vector<std::string> command, const ProcessOptions& options, int in, int out,
            int err) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, 0);
    posix_spawn_file_actions_adddup2(&actions, out, 1);
    posix_spawn_file_actions_adddup2(&actions, err, 2);
    if (!options.workingDirectory.empty())
        posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory.c_str());
    std::vector<std::string> variables = Environment(options);
    const std::string file = FileOf(command[0], variables);
    pid_t child = -1;
    const int error = posix_spawn(&child, file.c_str(), &actions, nullptr, Pointers(command).data(),
                                  Pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? child : -1;
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
    const pid_t child = Start(command, options, input, out[1], err[1]);
    for (const int fd : {input, out[1], err[1]})
        close(fd);
    ProcessResult result;
    CollectOutput(out[0], err[0], result);
    close(out[0]);
    close(err[0]);
    int status = 127 << 8;
    if (child > 0)
        waitpid(child, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

}  // namespace hx_test
