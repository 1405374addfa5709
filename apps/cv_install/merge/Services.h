// The service, and the services of earlier versions.
#pragma once

#include <optional>
#include <string>

#include "Problem.h"
#include "installation/Difference.h"
#include "installation/StagedMachine.h"
#include "merge/Undo.h"

// Adds to `services`, after all other differences were found: services of earlier versions that
// the script stopped, and whether the service is started or, when something that it uses changes
// or `alwaysRestart` is set, restarted.
void FindServiceDifferences(const StagedMachine& staged, bool alwaysRestart,
                            Differences& differences);

// Stops services of earlier versions, while their files exist.
void StopEarlierServices(const Differences& differences, Undo& undo);

// Reloads the service manager if units changed, and starts or restarts the service. A manager that
// does not run is not a failure, as for the commit script.
void StartService(const Differences& differences);

// The service account as the last setup recorded it in a file of root's, for the service program
// and the next setup.
struct ServiceAccount {
    std::string user, group;
    uid_t uid = 0;
    gid_t gid = 0;
};

// The record; without one, the account of the default name if it exists. Empty without either.
// Fails when the record is not root's alone or is unreadable.
Failure ReadServiceAccount(std::optional<ServiceAccount>& account);
