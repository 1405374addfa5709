// The previous setup of this machine, and what the next one takes over from it.
#pragma once

#include "Problem.h"
#include "answers/Answers.h"
#include "installation/State.h"
#include "record/Manifest.h"
#include "record/RecordText.h"
#include "setuprun/CInstallBase.h"

struct PreviousSetup {
    enum class Source {
        None,    // no previous setup is known
        Record,  // of this machine
        Copy,    // a record that was copied from another machine
        Files    // setups before there were records left only their files
    };

    Source source = Source::None;
    SetupFacts facts;                  // of a record
    Answers answers;                   // as far as they are known; chosen ones are marked
    QByteArray recordedAnswers;        // as the record contains them
    std::optional<Manifest> manifest;  // of a record of this machine, if it can be used
};

// Reads the record of the setup that `run` has been constructed for. Without one, reads the run
// script and QueueLimits of the install directory `tree`, which is -1 if it does not exist. Other
// users can write to those: they are never run, and invalid values in them are ignored. Warns of a
// damaged record, and of one that was copied from another machine. Fails with RecordUnusable if the
// record is damaged, there is nothing else to read, and the setup does not ask.
Failure ReadPreviousSetup(const CInstallBase& run, int tree, PreviousSetup& previous);

// Returns the answers that the next setup repeats, with the source Record. `run` has just been
// constructed. These are the chosen answers, and limits that were edited in QueueLimits since. The
// submission scripts are not repeated, because users edit them, nor are members if others are in
// the group now. If the setup asks, values that a question of the library can offer are set as
// those of the previous setup instead. Limits that were not chosen are measured again.
Answers AnswersToRepeat(const PreviousSetup& previous, CInstallBase& run);

// True if a setup with these answers would leave the record as it is, except for its time, its
// caller and its command line.
bool IsRecorded(const Answers& answers, const PreviousSetup& previous);

// The lines of QueueLimits that a setup with these answers writes: keys and values.
std::vector<std::pair<const char*, QString>> LimitsOf(const Answers& answers);
