// The processes that hold a throwaway machine.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace hx_test {

// Forks the keeper of a machine and returns its id, -1 on a failure. The keeper starts a process of
// a pid and a mount namespace of its own, which builds the machine's root and boots it. On SIGTERM,
// at the death of its parent and at the end of the machine the keeper ends all of that and removes
// the machine's control groups. Everything that is said goes to the descriptor `log`.
//
// If the keeper itself is killed, its namespaces die with it, and the next machine removes the
// control groups.
pid_t StartKeeper(int log);

// The processes whose parent is `parent`.
std::vector<pid_t> ChildrenOf(pid_t parent);

}  // namespace hx_test
