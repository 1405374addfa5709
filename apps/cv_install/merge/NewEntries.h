// New files, directories and links of a merge, complete before they are placed.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "Problem.h"
#include "installation/Difference.h"

struct StagedEntry {
    const PathDifference* difference;
    int base;          // a staged directory
    std::string path;  // relative to it
};

struct NewEntry {
    std::string path;  // on the live machine
    State state;       // as created, without content
};

// Creates the first of `entries` as `name` in `directory`, which no other process has access to,
// and the others below it. Each gets its content, access control list, owner, mode, in this order,
// because the kernel clears set-id bits when the owner changes. Adds them to `created`.
Failure CreateEntries(std::span<const StagedEntry> entries, int directory, const std::string& name,
                      std::vector<NewEntry>& created);
