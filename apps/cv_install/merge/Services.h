// The service, and the services of earlier versions.
#pragma once

#include "installation/Difference.h"
#include "installation/StagedMachine.h"
#include "merge/ServiceAccount.h"
#include "merge/Undo.h"

// Adds to `services`, after all other differences were found: services of earlier versions that
// the script stopped, and, if the manager is running, whether the service is started or, when
// something that it uses changes or `alwaysRestart` is set, restarted.
Failure FindServiceDifferences(const StagedMachine& staged, bool alwaysRestart,
                               Differences& differences);

// Adds to `services` what a setup in place may stop or start, as it is before.
void AddServicesBefore(Differences& snapshot);

// Removes the start of the service.
void KeepServiceIdle(Differences& differences);

// Stops services of earlier versions, while their files exist.
void StopEarlierServices(const Differences& differences, Undo& undo);

// Reloads the service manager if units changed, and starts or restarts the service. A manager that
// does not run is not a failure, as for the commit script.
void StartService(const Differences& differences);

// Adds to `services` of `differences`, whose paths are known, what an undo does so that the
// services are active again as before a setup, which are the differences `changed`. `active` is as
// in StagedMachine. After an interrupted setup or undo, nothing is certain of the service.
void FindServicesToUndo(const std::vector<ServiceDifference>& changed, const QStringList& active,
                        bool wasInterrupted, Differences& differences);

// Stops the service, while its files exist, if it was not active before the setup.
void StopServiceForUndo(const Differences& differences, Undo& undo);

// Stops the service if its unit is deleted, also one that is not active: the manager may be about
// to start it again.
void StopRemovedService(const Differences& differences);

// Starts services of earlier versions, and starts or restarts the service.
void StartServicesAfterUndo(const Differences& differences);
