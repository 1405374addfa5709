// What a setup changes on the machine: the differences between the staged machine and the live one.
// Plan, dry run and merge read them.
#pragma once

#include <string>
#include <vector>

#include "installation/Installation.h"
#include "installation/State.h"

enum class Change { Create, Modify, Delete };

// A file, directory, or link.
struct PathDifference {
    Change change = Change::Create;
    std::string path;              // absolute, on the live machine
    State before;                  // Missing for Create
    State after;                   // Missing for Delete
    const Entry* entry = nullptr;  // its row; for web pages that of their directory; null for
                                   // enablement links of earlier services
    std::vector<std::string> changedLines = {};  // of QueueLimits, such as "MaxThreads: 8 -> 12"
    bool keepsReplaced = false;                  // what is there is kept under a dated name

    bool operator==(const PathDifference&) const = default;
};

// A user or group that is created, or deleted by an undo.
struct AccountDifference {
    bool isGroup = false;
    std::string name;
    uid_t uid = 0;  // of a user
    gid_t gid = 0;
    std::string comment, home, shell;  // of a user
    Change change = Change::Create;

    bool operator==(const AccountDifference&) const = default;
};

// An attribute of the service user that a repair restores: "home", "shell" or "gid".
struct UserChange {
    std::string user;
    std::string attribute;
    std::string before, after;

    bool operator==(const UserChange&) const = default;
};

// A user who joins or leaves a group.
struct MemberDifference {
    Change change = Change::Create;  // Create: joins; Delete: leaves
    std::string user;
    std::string group;

    bool operator==(const MemberDifference&) const = default;
};

// What happens to a service.
struct ServiceDifference {
    Change change = Change::Create;  // Create: started; Modify: restarted; Delete: stopped
    std::string name;                // of the unit or the init script
    std::string before, after;       // "active" or "inactive"; empty: does not exist

    bool operator==(const ServiceDifference&) const = default;
};

struct Differences {
    std::vector<AccountDifference> accounts;  // groups before users
    std::vector<MemberDifference> members;
    std::vector<PathDifference> paths;  // directories before what is below them, deleted ones after
    std::vector<ServiceDifference> services;
    std::vector<const Entry*> kept = {};  // rows of files, directories and links that stay
    std::vector<UserChange> userChanges = {};

    bool IsEmpty() const {
        return accounts.empty() && members.empty() && paths.empty() && services.empty() &&
               userChanges.empty();
    }
    bool operator==(const Differences&) const = default;
};
