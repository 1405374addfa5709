#include "machine/Interruption.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "harness/Process.h"
#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/ServiceManager.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

// Sourced by bash before the script: records each command, and kills the process group before the
// first one above the limit. Does not count commands within a command substitution.
const char* const counter = R"sh(
unset BASH_ENV
hx_step ()
{
    [ "$BASH_SUBSHELL" -eq 0 ] || return 0
    hx_steps=$((hx_steps + 1))
    [ "$hx_steps" -le "$HX_STEPS" ] || kill -KILL 0
    printf '%s\n' "${BASH_COMMAND//$'\n'/ }" >> /hx_trace
}
set -o functrace
trap hx_step DEBUG
)sh";

// Includes lock files, because a kill must not leave one.
const std::vector<std::string> places = {
    "/var/corvane",     "/usr/bin/corvane26", "/usr/bin/corvane26_snapshot",
    serviceProgram,     "/etc/init.d",        "/etc/systemd",
    "/etc/passwd",      "/etc/passwd.lock",   "/etc/shadow",
    "/etc/shadow.lock", "/etc/group",         "/etc/group.lock",
    "/etc/gshadow",     "/etc/gshadow.lock",  managerState};

}  // namespace

TracedRun RunUntil(CInstallBase& run, size_t commands) {
    QString path;
    EXPECT_TRUE(run.WriteCommitScript(path, false));
    WriteFile("/hx_counter", counter);
    fs::remove("/hx_trace");
    ProcessOptions options;
    options.env = {{"BASH_ENV", "/hx_counter"}, {"HX_STEPS", std::to_string(commands)}};
    options.unset = {"CORV_QUEUE_ALLOW"};
    // In a separate process group, so that the test survives.
    const auto result = Run({"setsid", "/bin/bash", path.toStdString()}, options);
    fs::remove(path.toStdString());
    TracedRun traced = {result.status == 128 + SIGKILL, result.status, {}};
    std::ifstream trace("/hx_trace");
    for (std::string line; std::getline(trace, line);)
        traced.commands.push_back(line);
    return traced;
}

Snapshot StateOfMachine() {
    Snapshot state = SnapshotOf("", places);
    // The number of calls does not matter.
    state.erase(managerState + "/calls");
    return state;
}

std::vector<std::string> Differences(const Snapshot& one, const Snapshot& other) {
    std::vector<std::string> paths;
    Snapshot all = one;
    all.insert(other.begin(), other.end());
    for (const auto& [path, ignored] : all) {
        const auto left = one.find(path);
        const auto right = other.find(path);
        if (left == one.end() || right == other.end() || left->second != right->second)
            paths.push_back(path);
    }
    return paths;
}

void SaveMachine() {
    std::string command = "cd / && tar -cpf /hx_saved.tar";
    for (const auto& place : places) {
        if (fs::exists(fs::symlink_status(place)))
            command += " " + place.substr(1);
    }
    Succeed({"sh", "-c", command});
}

void RestoreMachine() {
    for (const auto& place : places)
        fs::remove_all(place);
    Succeed({"tar", "-C", "/", "-xpf", "/hx_saved.tar"});
}

}  // namespace hx_test
