// The state of what a setup as root may change, to find what others change at the same time.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "installation/Limits.h"
#include "installation/State.h"

struct LiveRows {
    struct Row {
        // Empty if it cannot be read. Without the content of QueueEntries and QueueLimits.
        std::optional<State> state;
        // The lines of QueueLimits that a setup sets.
        Limits limits;

        bool operator==(const Row&) const = default;
    };

    std::map<std::string, Row> rows;              // of the installation table, by path
    std::map<std::string, std::string> accounts;  // records by name, such as "user corvsrvc"
};

// Reads them as they are now. `liveTree` is the live install directory, or -1 when it does not
// exist.
LiveRows ReadLiveRows(int liveTree);

// The paths and accounts that differ.
std::set<std::string> DifferingRows(const LiveRows& one, const LiveRows& other);
