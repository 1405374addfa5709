// Reads what the checks need to know about the machine.
#pragma once

#include <map>

#include "answers/Answers.h"
#include "answers/Checks.h"
#include "installation/Installation.h"
#include "installation/State.h"
#include "setuprun/CInstallBase.h"

// Where a setup creates its files, on the live machine. A staged setup cannot see it.
struct EntryPlace {
    State::Kind kind = State::Kind::Missing;  // what is there
    std::string directory;                    // the nearest one that exists above it
    int error = 0;                            // the error number if it cannot be written to
    std::uint64_t free = 0;                   // bytes on its file system
    dev_t device = 0;
};
using EntryPlaces = std::map<const Entry*, EntryPlace>;

// Reads the places of all entries that setups check before they write there. `liveTree` is the
// install directory, or -1 when it does not exist.
EntryPlaces ReadEntryPlaces(const std::string& installDir, int liveTree);

// Reads everything else, when all questions are answered. Members are those of FindMemberChanges.
MachineFacts FindFacts(const CInstallBase& run, const Answers& answers,
                       const MemberChanges& members, const EntryPlaces& places, int liveTree);
