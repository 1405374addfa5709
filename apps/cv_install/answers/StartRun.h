// The setup run with the command line applied.
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "answers/Arguments.h"
#include "setuprun/CInstallBase.h"

// Returns the answers of the previous setup that this run repeats.
using TakeOver = std::function<Answers(CInstallBase& run)>;

// Constructs the setup run, which measures the machine. Sets `answers` to those of the options,
// then of the answers file, then of the previous setup, and the fields of the run accordingly.
std::unique_ptr<CInstallBase> StartRun(Arguments& arguments, const Answers& file,
                                       const TakeOver& takeOver, Answers& answers);

// The conditions of rows of the installation table that hold in this setup.
unsigned ConditionsOf(const CInstallBase& run, const Answers& answers);

// The answers in use, with a label for each, and the answers of the previous setup that differ.
std::vector<std::pair<QString, QString>> ValuesOf(const CInstallBase& run, const Answers& previous);
