// The state before a setup in place, whose changes are known only afterwards.
#pragma once

#include <QString>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Problem.h"
#include "installation/Difference.h"
#include "record/ReplacedPages.h"

struct SetupInPlace {
    QString installDir;
    unsigned conditions = 0;  // see Installation.h
    QString serviceUser;      // empty in a user's setup
    QString serviceGroup;
    FormerPages formerPages;
    const PackedPages* packed = nullptr;
};

// Reads everything that the setup may change. In the result, `after` of paths is not known,
// accounts are those that do not exist, and a member without a name stands for all members of a
// group. The content of web pages is read only if the setup may replace them. `liveTree` is the
// install directory, or -1 if it does not exist.
Failure ReadSnapshot(const SetupInPlace& setup, int liveTree, Differences& snapshot);

// Turns a snapshot into what is different now. `members` are those of groups before the setup.
Failure CompleteSnapshot(const std::map<std::string, QStringList>& members,
                         const std::string& installDir, int liveTree, Differences& snapshot);

// The paths below a directory of a tree, relative to the tree, directories before what is in them.
// Empty, with errno set, if it cannot be listed or has too many levels.
using RelativePaths = std::vector<std::string>;
std::optional<RelativePaths> PathsBelow(int tree, const std::string& directory);
