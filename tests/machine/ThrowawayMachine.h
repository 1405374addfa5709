// A machine that boots a real systemd over the live root and discards all changes.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "harness/Process.h"

namespace hx_test {

// The machine has the live root file system as the lower layer of an overlay in memory: changes of
// its user database, /usr/bin, or services are real and temporary. Its network is a loopback only,
// its /tmp and /run are empty, and the live machine's enabled services are not started. File
// systems that are mounted below the live root are missing: copy the files that a test needs.
//
// Requires root. Boot takes seconds, so that tests share a machine. Every process, mount, and file
// of the machine is in namespaces that end with the test's process, also when that is killed.
class ThrowawayMachine {
public:
    ThrowawayMachine() = default;

    // Powers the machine off at once.
    ~ThrowawayMachine();
    ThrowawayMachine(const ThrowawayMachine&) = delete;
    ThrowawayMachine& operator=(const ThrowawayMachine&) = delete;

    // Returns why machines are not available; empty if Boot can be tried.
    static std::string Hindrance();

    // Boots and waits until systemd is idle. Returns false on failure, see Log().
    bool Boot();

    // Runs a command as root in the machine, with the machine's PATH.
    ProcessResult Run(const std::vector<std::string>& command,
                      const ProcessOptions& options = {}) const;

    // Runs a shell command in the machine.
    ProcessResult Shell(const std::string& text) const { return Run({"/bin/sh", "-c", text}); }

    // Returns the output of a shell command in the machine, without the last newline.
    std::string Output(const std::string& text) const;

    // Runs `body` in a forked child in the machine, as RunInChild does.
    ProcessResult RunInChild(const std::function<void()>& body) const;

    // Returns the path on the live machine of the machine's absolute `path`. Absolute links below
    // it lead out of the machine.
    std::string Path(const std::string& path) const;

    // Copies a file or directory of the live machine, with its permissions.
    void CopyIn(const std::string& from, const std::string& to) const;

    // The id of the machine's first process on the live machine.
    pid_t Init() const { return m_init; }

    // The messages of systemd and of the keeper.
    std::string Log() const;

private:
    bool WaitForInit();
    bool WaitForSystemd();

    pid_t m_keeper = -1;
    pid_t m_init = -1;
    int m_log = -1;
};

}  // namespace hx_test
