// The private view of the machine in which a staged setup runs.
#pragma once

#include <QString>
#include <QStringList>

#include "Problem.h"
#include "installation/StagedMachine.h"

// What the library and the commit script see: a tmpfs in place of the install directory, filled
// with what they look at there; overlays over the directories outside it that the script changes;
// and a recorder in place of the tools that control services. No process outside this one and its
// children can reach any of it, and it vanishes with the last of them.
//
// `liveTree` is the install directory, or invalid when it does not exist.
namespace PrivateMounts {

// Moves this process, which must have one thread, to a mount namespace of its own and builds the
// view. Opens `liveTree` again in that namespace. `active` are the services that are active.
// Returns why that is impossible here; empty on success.
QString Enter(Descriptor& liveTree, const QStringList& active);

// Fills the tmpfs, and opens the directories of `staged`. Refuses entries of the tree that cannot
// be set up.
Failure Fill(const Descriptor& liveTree, StagedMachine& staged);

// Makes a scratch directory below the install directory visible, so that its free space can be
// measured.
void ShowScratchDirectory(const Descriptor& liveTree, const QString& path);

// Hides what is written to /tmp from now on. The free space of /tmp must be measured before.
Failure CoverTemporaryFiles();

}  // namespace PrivateMounts
