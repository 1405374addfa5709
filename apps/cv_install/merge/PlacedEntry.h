// An entry that a merge placed or removed, until that is certain to stay.
#pragma once

#include <string>
#include <vector>

#include "merge/LivePlaces.h"
#include "merge/NewEntries.h"

struct PlacedEntry : LivePlace {
    std::string slot;               // of `holder`
    bool isReplacing = false;       // what was there is in the slot
    std::vector<NewEntry> created;  // the entry and what is below it; empty for a removed one
    std::string aside;              // the name to which the former QueueEntries was moved
};

// Puts back what was there, and removes what the merge created. Reports what it cannot restore, and
// returns false then.
bool TakeBack(PlacedEntry& placed);

void WarnNotRestored(const std::string& path, int error);
