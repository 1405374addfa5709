// Runs a setup in a child process with a private view of the machine.
#pragma once

#include <functional>
#include <optional>

#include "Problem.h"
#include "installation/StagedMachine.h"
#include "staging/ViewMounts.h"

// How the child process ended.
struct StagedResult {
    // The child's status. It has reported its failure itself.
    int status = 0;
    // The signal that terminated the child or reached this process; 0 without one.
    int signal = 0;
    // What the setup made; empty when it failed.
    std::optional<StagedMachine> staged;
    // Why a private view is impossible here; the child did nothing else. Empty otherwise.
    QString impossible;
};

// Forks. The child calls `setup`, which completes its argument or fails; the parent waits. As root,
// the child enters the private view before, with `view` in place of the install directory. A signal
// that asks this process to end goes to the child, whose end it waits for. When this process is
// killed, the child gets SIGTERM. The process must have one thread. `liveTree` is the install
// directory `installDir`, or invalid when it does not exist.
StagedResult RunStaged(const QString& installDir, Descriptor& liveTree,
                       const std::function<Failure(StagedMachine&)>& setup,
                       TreeView view = TreeView::Copied);
