// An entry that a merge placed or removed, until that is certain to stay.
#pragma once

#include <string>
#include <vector>

#include "merge/NewEntries.h"
#include "merge/PrivateDirectory.h"

struct PlacedEntry {
    DirectoryPointer parent;
    std::string name;
    PrivateDirectory* holder = nullptr;
    std::string slot;               // of `holder`
    bool isReplacing = false;       // what was there is in the slot
    std::vector<NewEntry> created;  // the entry and what is below it; empty for a removed one
    std::string aside;              // the name to which the former QueueEntries was moved

    int Parent() const { return parent->descriptor.Number(); }
    std::string Path() const { return parent->path + '/' + name; }
};

// Puts back what was there, and removes what the merge created. Reports what it cannot restore.
void TakeBack(PlacedEntry& placed);

void WarnNotRestored(const std::string& path, int error);
