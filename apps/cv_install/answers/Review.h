// The review of all answers before the plan.
#pragma once

#include <functional>

#include "Problem.h"
#include "answers/Answers.h"
#include "setuprun/CInstallBase.h"

// What other answers need after a change.
struct ReviewSteps {
    std::function<Failure()> askForQueue;  // the queue, its name and its commands
    std::function<void()> measureLimits;   // the memory and scratch limits that were not chosen
    std::function<void(const QString&)> scratchChosen;
};

// Shows the answers by number until none is to be changed. Fails if the administrator quits or the
// input ends. A changed answer is typed. For a terminal.
Failure ReviewAnswers(CInstallBase& run, Answers& answers, const ReviewSteps& steps);
