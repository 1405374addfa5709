// The control groups of throwaway machines.
#pragma once

#include <sys/types.h>

namespace hx_test {

// Makes control groups that no other machine shares, named after the process `owner`, and removes
// those of owners that are gone. Nothing is made where the system has none to offer.
void MakeControlGroups(pid_t owner);

// Moves the calling process into the groups of `owner`.
void EnterControlGroups(pid_t owner);

// Removes the groups of `owner`, which have no process left.
void RemoveControlGroups(pid_t owner);

}  // namespace hx_test
