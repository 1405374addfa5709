// The questions of a setup, in order.
#pragma once

#include <functional>

#include "Problem.h"
#include "answers/Answers.h"
#include "setuprun/CInstallBase.h"

// Asks everything that `answers` does not contain, and completes it. Succeeds when the answers can
// be written to the commit script. A default that `previous`, the previous setup's answers, lists
// as chosen remains chosen. On a terminal, an invalid answer is asked again, and an unsuitable
// scratch directory can be changed; elsewhere the former ends the setup, and the latter is a
// warning. Changes nothing on the machine. Calls `scratchChosen` before the free space of the
// scratch directory is measured.
Failure AskQuestions(CInstallBase& run, Answers& answers, const Answers& previous,
                     const std::function<void(const QString&)>& scratchChosen = {});

// True at the end of input on a terminal, where it cancels the setup. On a pipe it is an empty
// answer.
bool InputEnded(const CInstallBase& run);

// The failure of a question at the end of input. Ends the question's line.
Problem EndOfInput();

// Prints `question` and returns the answer: y, yes, n or no, in upper or lower case. An empty
// answer and the end of input mean `preset`. Another answer is asked again on a terminal, and means
// no elsewhere. The answer d calls `details`, if there are any, and asks again.
bool AskYesNo(const char* question, bool preset, const std::function<void()>& details = {});
