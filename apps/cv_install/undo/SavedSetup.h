// What a setup changed, as its record keeps it to undo the setup.
#pragma once

#include <QByteArray>
#include <QStringList>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "installation/Difference.h"

struct SavedSetup {
    bool isComplete = false;            // neither the setup nor its undo was interrupted
    bool isInPlace = false;             // of any attempt
    bool isResultKnown = true;          // otherwise the last attempt is a snapshot, see Snapshot.h
    std::vector<Differences> attempts;  // more than one after interrupted setups
    std::vector<std::string> record;    // names of the files of the record before the setup
    std::map<std::string, QStringList> members;  // before the setup, of groups that it changes
};

// A path that the attempts changed.
struct SavedPath {
    std::string path;
    const Entry* entry = nullptr;  // as in PathDifference
    State before;                  // of the first attempt
    std::vector<State> after;      // states that an attempt produced, or found and replaced
};

std::vector<SavedPath> PathsOf(const SavedSetup& saved);

// Each account once, as it was created last. Groups are before users.
std::vector<AccountDifference> AccountsOf(const SavedSetup& saved);

// Each member and service once, as the first attempt found it.
std::vector<MemberDifference> MembersOf(const SavedSetup& saved);
std::vector<ServiceDifference> ServicesOf(const SavedSetup& saved);

// Leaves as many attempts as there are states that a path can have now, after a complete setup: the
// first `before` of each path, and what the last setup left.
void Collapse(SavedSetup& saved);

// The row of a path; for what is below a directory of web pages, that of the directory. Null for
// enablement links of earlier services, and for directories above rows.
const Entry* RowOfPath(const std::string& path, const std::string& installDir);

// Of which files the content is read to compare them with a saved state.
Reading ReadingOfSaved(const Entry* entry, bool isInTree);

// The body of a record's file: JSON.
QByteArray TextOf(const SavedSetup& saved);

// Empty if the text is not what TextOf returns.
std::optional<SavedSetup> ParseSavedSetup(const QByteArray& text, const std::string& installDir);
