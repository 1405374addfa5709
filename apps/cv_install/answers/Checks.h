// Checks of answers and machine before a setup changes anything. Each is a function of a
// description of the machine; all of them report at once.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "Problem.h"
#include "installation/MemberChanges.h"

// What the checks know about the machine and the answers. FindFacts reads it.
struct MachineFacts {
    // The service user, if it exists.
    struct User {
        QString name;
        uid_t uid = 0;
        QString shell;
        bool hasShell = true;  // one that can be executed and lets users log in
        bool hasPassword = false;
        bool isNamed = false;  // by an option
    };
    // The service group, if it exists.
    struct Group {
        gid_t gid = 0;
        // The members that /etc/group lists; empty if the group is in another source only.
        std::optional<QStringList> localMembers;
    };
    // A directory in which the setup creates or replaces files.
    struct Target {
        QString path;
        int error = 0;  // the error number if root or the user cannot write to it
        std::uint64_t needed = 0;
        std::uint64_t free = 0;  // in bytes
    };
    // A file that the setup or the service cannot use, and why.
    struct File {
        const char* kind = "";
        QString path;
        QString reason;
        const char* remedy = "";
    };
    // A command of a scheduler.
    struct Command {
        QString name;  // also of its option
        QString path;
        bool isNeeded = true;
    };
    // The scheduler of an external queue.
    struct Scheduler {
        QString label;
        QString setting;  // "queue" or "partition"
        QString queue;    // as answered; several may be separated by commas; empty: not checked
        std::vector<Command> missingCommands;  // that cannot be executed
        std::optional<QStringList> knownQueues;
        QString reason;  // why the known ones cannot be listed
    };
    // A port that another process listens at.
    struct TakenPort {
        QString protocol;  // as in options
        int port = 0;
        QString process;  // its number and name; empty if unknown
    };
    struct Scratch {
        bool isInMemory = false;
        std::uint64_t size = 0;      // of the file system; 0: unknown
        std::uint64_t promised = 0;  // by the limits
    };

    QString serviceGroup;
    std::optional<User> user;
    std::optional<Group> group;
    uid_t firstUserUid = 1000;  // the first that is not a system account's
    MemberChanges members;
    QStringList unknownMembers;  // wanted members who do not exist
    QStringList obstacles;       // something other than a link, where the setup creates one
    std::vector<Target> targets;
    std::vector<File> unusableFiles;
    std::optional<Scheduler> scheduler;
    std::vector<TakenPort> takenPorts;
    QString scratchDirectory;
    Scratch scratch;
};

struct Findings {
    std::vector<Problem> errors;  // each ends the setup
    std::vector<Problem> warnings;
};

// The findings of all checks.
Findings RunChecks(const MachineFacts& facts);

// Prints all findings. Fails if one of them ends the setup.
Failure ReportFindings(const Findings& findings);
