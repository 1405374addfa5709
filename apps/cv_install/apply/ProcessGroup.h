// The processes of a commit script: a group that has the ID of its first process.
#pragma once

#include <sys/types.h>

#include <QProcess>
#include <chrono>

// The command line of the process of the group that was started last; empty if there is none except
// the first one.
QString NewestCommand(pid_t group);

// Sends SIGTERM to the group, and SIGKILL to what is left of it after `grace`. `first` is its first
// process, a child of this one.
void EndGroup(QProcess& first, std::chrono::milliseconds grace);
