// Creates the files of an installation again, as a first setup with the recorded answers would.
#pragma once

#include "answers/Arguments.h"
#include "installation/SetupLock.h"
#include "installation/StagedMachine.h"
#include "record/Manifest.h"

// In the child process, in a private view with an empty install directory, which a user enters now:
// creates everything, as root with the account numbers of the manifest. Uses nothing that is on the
// machine now, because it may be damaged.
Failure StageAgain(Arguments& arguments, const Manifest& manifest, const Descriptor& liveTree,
                   const SetupLock& lock, StagedMachine& staged);
