// The processes and control groups of a throwaway machine.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace hx_test {

// Forks the keeper of a machine and returns its id, -1 on failure. The keeper starts a process in a
// new pid and mount namespace, which builds the machine's root and boots it. On SIGTERM, when its
// parent dies, and when the machine ends, the keeper ends these processes and removes the machine's
// control groups. All output goes to the descriptor `log`.
//
// If the keeper itself is killed, its namespaces end with it, and the next machine removes the
// control groups.
pid_t StartKeeper(int log);

// Creates control groups that are named after the process `owner`, and removes those of owners that
// have ended. Does nothing on a system without control groups.
void MakeControlGroups(pid_t owner);

// Removes the groups of `owner`, which must be empty.
void RemoveControlGroups(pid_t owner);

// The processes whose parent is `parent`.
std::vector<pid_t> ChildrenOf(pid_t parent);

}  // namespace hx_test
