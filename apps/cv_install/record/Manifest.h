// The manifest of a setup: what it installed, for --verify, and for programs that read mtree(5).
#pragma once

#include <QByteArray>
#include <QStringList>
#include <optional>
#include <string>
#include <vector>

#include "answers/Answers.h"
#include "installation/State.h"
#include "record/RecordText.h"

// A directory, file or link.
struct ManifestEntry {
    std::string path;  // relative to the top of the manifest; empty for the top itself
    // The digest is empty if the content is not the setup's.
    State state;
    // False for a directory above the installation. Only its kind matters.
    bool isInstalled = true;

    bool operator==(const ManifestEntry&) const = default;
};

// The service account as it was after the setup.
struct AccountFacts {
    std::string user, home, shell;
    std::string group;
    uid_t uid = 0;
    gid_t primaryGid = 0;  // of the user
    gid_t gid = 0;         // of the group
    std::vector<std::string> members;

    bool operator==(const AccountFacts&) const = default;
};

// A file of a user's record, which is outside the install directory.
struct RecordedDigest {
    std::string name;
    std::string digest;

    bool operator==(const RecordedDigest&) const = default;
};

struct Manifest {
    SetupFacts facts;
    Answers answers;
    std::string top;         // absolute, without links: "/", or the install directory of a user
    std::string tree;        // the install directory, relative to the top
    std::string productDir;  // absolute
    std::optional<AccountFacts> account;  // of a setup as root
    std::vector<std::string> commands;    // of the scheduler, which could be executed
    std::vector<RecordedDigest> digests;
    std::vector<ManifestEntry> entries;  // directories before what is below them
};

// The text of a record's file. Everything but the entries is in comments.
QByteArray WriteManifest(const Manifest& manifest);

// Empty if the text is not what WriteManifest returns. A manifest of a version that did not list
// files has no entries.
std::optional<Manifest> ParseManifest(const QByteArray& text);
