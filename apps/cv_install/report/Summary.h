// The end of a setup's output.
#pragma once

#include <QStringList>

#include "Problem.h"
#include "installation/Difference.h"
#include "installation/StagedMachine.h"
#include "setuprun/CInstallBase.h"

struct Summary {
    bool isRoot = false;
    bool hasService = false;
    bool isManagerRunning = true;  // as far as it is known
    QString serviceState;          // such as "active"; empty when it is unknown
    QStringList serviceMessages;
    QString installDir;
    QStringList missingCommands;  // of the scheduler; cannot be executed
};

Summary SummaryOf(const CInstallBase& run);
Summary SummaryOf(const StagedMachine& staged);

// Finds the state of the service. Fails with ServiceNotRunning, and finds the last messages of the
// service, if it should run and does not.
Failure CheckService(Summary& summary);

// Prints the install directory, commands of the scheduler that cannot be executed, in a setup as
// root the state of the service, the log's path, and the next step. With --quiet, it is one line
// after those about commands.
void ShowSummary(const Summary& summary);

// Prints that a setup would change nothing. `idleService` is the state of a service that stays
// idle, otherwise empty.
void ShowNothingToDo(const QString& idleService);

// Prints with --quiet how many changes an action, such as "a setup", would make.
void ShowSummaryOfDryRun(const Differences& differences, const char* action);
