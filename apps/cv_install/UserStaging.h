// A regular user's setup, staged on copies: with --dry-run, and before a setup with --if-needed.
#pragma once

#include "answers/Arguments.h"
#include "installation/SetupLock.h"
#include "installation/StagedMachine.h"
#include "record/PreviousSetup.h"

bool IsStagedForUser(const Arguments& arguments);

// What must hold before the first question.
Failure FindObstacleToStaging(const CInstallBase& run, unsigned conditions);

// Stages the setup, whose questions have been asked, in a child process, compares the copies with
// the machine, and reports. Sets `continues` to true if the setup in place follows. Ends the
// process if the child failed, which has reported that.
Failure StageForUser(const Arguments& arguments, CInstallBase& run, const PreviousSetup& previous,
                     const Answers& answers, const SetupLock& lock, bool& continues);
