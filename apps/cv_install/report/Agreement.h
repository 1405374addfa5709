// The plan of a staged setup: shown, confirmed, and compared with what other processes change.
#pragma once

#include <functional>

#include "Problem.h"
#include "installation/Difference.h"
#include "installation/LiveRows.h"
#include "installation/StagedMachine.h"

// The live machine at one moment.
struct LiveMachine {
    LiveRows rows;
    Differences differences;  // from the staged machine
};

using LiveReader = std::function<Failure(LiveMachine&)>;

// Shows what differs.
Failure ShowDifferences(const StagedMachine& staged, const LiveReader& read,
                        Differences& differences);

// Shows the contents of files that differ.
using ContentPrinter = std::function<void(const Differences&)>;

// Shows what differs and asks; the answer d calls `showContents`. Then compares the live machine
// with `atStaging`, its state when the setup was staged: a difference is shown and asked about once
// more, and a further one is a failure. A setup without questions reports it and continues.
// `differences` becomes what was shown last.
Failure Agree(const StagedMachine& staged, const LiveRows& atStaging, const LiveReader& read,
              const ContentPrinter& showContents, Differences& differences);
