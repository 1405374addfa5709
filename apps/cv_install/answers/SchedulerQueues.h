// Asks the scheduler of an external queue for its queues.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

#include "setuprun/CInstallBase.h"

// The names in the output of "sinfo --all --noheader --format=%R".
QStringList ParsePartitions(const QByteArray& text);

// The names in the output of "qstat -Q -f".
QStringList ParseQueues(const QByteArray& text);

// The names of all queues or partitions. Waits for at most 10 seconds. Empty, with the reason, if
// the scheduler cannot be asked. Root runs only a program that no other user can replace.
std::optional<QStringList> FindKnownQueues(const CInstallBase& run, QString& reason);
