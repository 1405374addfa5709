#include "bigint/Reference.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

extern char** environ;

namespace hx_test {

Reference::Reference() {
    int to[2];
    int from[2];
    if (pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0)
        std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, to[0], 0);
    posix_spawn_file_actions_adddup2(&actions, from[1], 1);
    char name[] = "python3";
    char noBytecode[] = "-B";
    char script[] = HX_REFERENCE_SCRIPT;
    char* command[] = {name, noBytecode, script, nullptr};
    if (posix_spawnp(&m_child, name, &actions, nullptr, command, environ) != 0)
        m_child = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(to[0]);
    close(from[1]);
    m_to = fdopen(to[1], "w");
    m_from = fdopen(from[0], "r");
    std::signal(SIGPIPE, SIG_IGN);
}

Reference::~Reference() {
    std::fclose(m_to);
    std::fclose(m_from);
    if (m_child > 0)
        waitpid(m_child, nullptr, 0);
}

bool Reference::Available() {
    return m_child > 0 && Ask("mp_add 0 2 3") == "0 5";
}

std::string Reference::Ask(const std::string& question) {
    std::fprintf(m_to, "%s\n", question.c_str());
    std::fflush(m_to);
    std::string answer;
    for (int c; (c = std::fgetc(m_from)) != EOF && c != '\n';)
        answer += static_cast<char>(c);
    return answer;
}

}  // namespace hx_test
