// A machine that boots a real systemd over the live root and forgets everything at its end.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "harness/Process.h"

namespace hx_test {

// The machine sees the live root file system through an overlay whose upper layer is in memory:
// what is done to its user database, /usr/bin or services is done for real and vanishes. It has a
// network of its own with nothing but a loopback, an empty /tmp and /run, and none of the live
// machine's enabled services (they are installed and can be started). File systems mounted below
// the live root are not there: copy in what is needed.
//
// Root only. Boot takes some seconds, so that one machine serves many tests. Nothing stays behind:
// every process, mount and file of the machine lives in namespaces whose first process dies with
// the test's, also when that is killed.
class ThrowawayMachine {
public:
    ThrowawayMachine() = default;

    // Powers the machine off at once.
    ~ThrowawayMachine();
    ThrowawayMachine(const ThrowawayMachine&) = delete;
    ThrowawayMachine& operator=(const ThrowawayMachine&) = delete;

    // Why no machine is to be had here; empty when Boot can be tried.
    static std::string Hindrance();

    // Boots and waits until systemd has settled. False on a failure, told by Log().
    bool Boot();

    // Runs a command in the machine as its root, found through the machine's PATH.
    ProcessResult Run(const std::vector<std::string>& command,
                      const ProcessOptions& options = {}) const;

    // Runs a line of shell text in the machine.
    ProcessResult Shell(const std::string& text) const { return Run({"/bin/sh", "-c", text}); }

    // What a line of shell text prints in the machine, without the last newline.
    std::string Output(const std::string& text) const;

    // Runs a piece of a test in a forked child in the machine, as RunInChild does.
    ProcessResult RunInChild(const std::function<void()>& body) const;

    // Where the live machine finds a file of the machine; `path` is absolute. Files are read and
    // written through it. Absolute links in it lead out of the machine.
    std::string Path(const std::string& path) const;

    // Copies a file or a directory of the live machine into the machine, with its permissions.
    void CopyIn(const std::string& from, const std::string& to) const;

    // The machine's first process, by its id on the live machine.
    pid_t Init() const { return m_init; }

    // What systemd said while it booted, or why it could not.
    std::string Log() const;

private:
    bool WaitForInit();
    bool WaitForSystemd();

    pid_t m_keeper = -1;
    pid_t m_init = -1;
    int m_log = -1;
};

}  // namespace hx_test
