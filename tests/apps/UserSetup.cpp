#include "apps/UserSetup.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "apps/Leaks.h"
#include "harness/Pattern.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Exec(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const std::string& word : command)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    setenv("LSAN_OPTIONS", LeakOptions("/tmp/lsan.supp").c_str(), 1);
    // It may name a directory in the hidden /tmp.
    unsetenv("TMPDIR");
    // The user cannot write to the home directory.
    setenv("XDG_STATE_HOME", "/tmp/state", 1);
    std::fflush(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
}

}  // namespace

std::string WithoutLogPath(const std::string& messages) {
    return hx_test::ReplaceMatches(messages, "    (Log|Commit script): \\S+\n", "");
}

UserSetup::UserSetup(const std::string& product) : m_product(product) {
    fs::copy(HX_PRODUCT_DIR, Outside(""),
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::copy(HX_INTERPOSER, Root() + "/interposer.so");
    fs::copy(HX_LEAK_SUPPRESSIONS, Root() + "/lsan.supp");
    m_world.identity = hx_test::World::Identity::User;
    // An empty /var hides an installation on this machine. /tmp comes last: it hides the others.
    m_world.binds = {{m_nothing.path().string(), "/var"}, {Root(), "/tmp"}};
}

std::vector<std::string> UserSetup::Command(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command = {Inside("cv_install")};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

std::vector<std::string> UserSetup::Command(const std::vector<std::string>& variables,
                                            const std::vector<std::string>& arguments) const {
    std::vector<std::string> command = {"/usr/bin/env", "LD_PRELOAD=/tmp/interposer.so"};
    command.insert(command.end(), variables.begin(), variables.end());
    const std::vector<std::string> setup = Command(arguments);
    command.insert(command.end(), setup.begin(), setup.end());
    return command;
}

hx_test::ProcessResult UserSetup::Run(const std::vector<std::string>& arguments,
                                      const std::string& input) const {
    hx_test::World world = m_world;
    world.input = input;
    return hx_test::RunInChild(world, [&] { Exec(Command(arguments)); });
}

hx_test::ProcessResult UserSetup::RunProgram(const std::vector<std::string>& command) const {
    return hx_test::RunInChild(m_world, [&] { Exec(command); });
}

void UserSetup::Become(const std::vector<std::string>& command) const {
    if (!hx_test::EnterWorld(m_world))
        _exit(126);
    Exec(command);
}

bool UserSetup::Has(const std::string& name) const {
    return fs::exists(fs::symlink_status(Outside(name)));
}

std::vector<std::string> UserSetup::CommitScripts() const {
    std::vector<std::string> scripts;
    for (const fs::directory_entry& entry : fs::directory_iterator(Root())) {
        if (entry.path().filename().string().starts_with("corvane26_commit_"))
            scripts.push_back(entry.path().string());
    }
    return scripts;
}
