// The private view of the machine in which a regular user's setup runs for a dry run or a repair.
#pragma once

#include "Problem.h"
#include "installation/StagedMachine.h"
#include "staging/ViewMounts.h"

// A tmpfs in place of the install directory, with copies of what the setup changes, and another one
// in place of /tmp. Everything else in both directories is shown as it is. The view needs a user
// namespace, in which the user keeps all ids; only there may a regular user mount. Nothing is
// mounted when the setup asks, checks, and measures.
namespace UserView {

// The problem of a machine on which the view is impossible for this reason.
Problem Impossible(const QString& reason, const QString& remedy);

// Finds out, in a child process, whether the view is possible on this machine.
Failure FindObstacle();

// Moves this process, which must have one thread, to namespaces of its own, and fills
// `staged.tree`. No process outside this one and its children can reach it.
Failure Enter(const Descriptor& liveTree, TreeView view, StagedMachine& staged);

// What to do so that users can create user namespaces, by the settings below `settings`.
QString RemedyFor(const std::string& settings = "/proc/sys");

}  // namespace UserView
