// The directory in which a setup keeps its record for the next one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Problem.h"
#include "installation/Installation.h"
#include "installation/State.h"

// The directory of a user's records, which XDG_STATE_HOME can name; empty without a home directory.
QString UserRecords();

// Follows the name of a file until it replaces the present one.
inline constexpr const char* newSuffix = ".new";

// The path of a row of a user's record, relative to that directory.
QString PathInUserRecords(const Entry& entry, const QString& installDir);

// The name of a user's record, as systemd-escape --path writes the path of the install directory.
// Links in the path are resolved.
std::string EscapedPath(const QString& installDir);

// For root, a directory below /var/lib; for a user, one for each install directory, below the home
// directory of the user database or XDG_STATE_HOME. Files are replaced: whatever interrupts this,
// each file is the old or the new one as a whole. Only one process at a time uses a directory,
// because of the setup's lock.
class RecordDirectory {
public:
    // The record of this user, or that of root. Other users can read a part of that.
    enum class Whose { Own, Roots };

    explicit RecordDirectory(const QString& installDir, Whose owner = Whose::Own);

    // Removes what Prepare wrote and Replace did not place.
    ~RecordDirectory();

    RecordDirectory(const RecordDirectory&) = delete;
    RecordDirectory& operator=(const RecordDirectory&) = delete;

    // Opens the directory if it exists. A user without a home directory has none. Refuses one that
    // another user controls and, for a user, one with a mode other than 700.
    Failure Open();

    // The same, but creates what is missing, except for a user without a home directory.
    Failure Create();

    bool IsOpen() const { return static_cast<bool>(m_record); }
    bool IsOwn() const;

    // The directories, for what has no row of its own; -1 if they do not exist.
    int Public() const { return m_record.Number(); }
    int Private() const { return m_private.Number(); }

    // The directory that contains the record.
    int Above() const { return m_parents.back().Number(); }

    // Removes new files that a killed setup left, and the directories if they are empty.
    void RemoveIfEmpty();

    // Reads a file of at most `most` bytes; empty if it does not exist. `item` is a row of root's
    // record.
    Failure Read(Item item, qsizetype most, std::optional<QByteArray>& content) const;

    // Writes a new file to the disk, next to the present one.
    Failure Prepare(Item item, const QByteArray& content);

    // Replaces the files that have been prepared, in the order of the calls.
    Failure Replace();

    // The path of a file or directory. `item` is a row of root's record.
    QString PathOf(Item item) const;

    // The problem of a file whose content is not what a setup wrote.
    Problem Damaged(Item item) const;

private:
    struct Name {
        int directory;
        std::string name;
    };

    Failure OpenAll(bool creates);
    Failure OpenForRoot(bool creates);
    Failure OpenForUser(bool creates);
    int DirectoryOf(Item item) const;
    Descriptor OpenOrCreate(int parent, const std::string& name, mode_t mode, bool creates);
    Problem Unusable(const QString& path, const QString& reason, bool isWritten) const;

    uid_t m_owner;
    QString m_path;  // of the record; empty if there cannot be one
    std::vector<Descriptor> m_parents;
    Descriptor m_record;   // invalid if there is no record
    Descriptor m_private;  // likewise
    std::vector<Name> m_created;
    std::vector<Name> m_prepared;
};
