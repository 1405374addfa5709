// What is at a path, read through descriptors, without following links and without waiting.
#pragma once

#include <sys/types.h>

#include <QByteArray>
#include <QString>
#include <optional>
#include <string>
#include <utility>

// An open descriptor, closed when the object is destroyed.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Number() const { return m_number; }
    explicit operator bool() const { return m_number != -1; }

private:
    int m_number = -1;
};

struct State {
    enum class Kind { Missing, File, Directory, Link, Special };

    Kind kind = Kind::Missing;
    mode_t mode = 0;  // permission bits; 0 for a link
    uid_t owner = 0;
    gid_t group = 0;
    std::string target;  // of a link
    std::string digest;  // SHA-256 of a file's content in hexadecimal digits; empty if not read

    // Which inode it is, its number of hard links, and the size of a file. Not compared.
    dev_t device = 0;
    ino_t inode = 0;
    nlink_t links = 0;
    off_t size = 0;

    bool IsSameInode(const State& other) const {
        return device == other.device && inode == other.inode;
    }

    // Compares kind, mode, owner, target and content.
    bool operator==(const State& other) const;
};

// In reports: "file", "directory", "link", "special", or "missing".
const char* WordOf(State::Kind kind);

// Four octal digits, such as "0755".
QString ModeText(mode_t mode);

// Of which files the content is read. Where other users can rename files, root reads only what they
// can read already: a file and its directories are public. No file of more than 64 MB is read.
enum class Reading { Nothing, PublicFiles, AllFiles };

// Opens an entry of a directory with O_PATH and `flags`, without following a link; `name` has no
// slash. An empty name is the directory itself. Invalid, with errno set: EREMOTE for the mount
// point of a user's file system (FUSE), which may never answer.
Descriptor OpenEntry(int directory, const std::string& name, int flags = 0);

// Opens a directory for use as a base of the calls below, one component of `path` after the other,
// without following links. `path` is relative to `base`; empty for `base` itself. Invalid, with
// errno set, when a component is missing (ENOENT), is not a directory (ENOTDIR or ELOOP), or is on
// a user's file system (EREMOTE).
Descriptor OpenDirectory(int base, const std::string& path);

// The state of what was opened with OpenEntry, without a file's content.
std::optional<State> ReadAttributes(const Descriptor& entry);

// The state of an entry of a directory; `name` has no slash. An empty name is the directory itself.
// Empty, with errno set, when the state cannot be read.
std::optional<State> ReadState(int directory, const std::string& name,
                               Reading reading = Reading::PublicFiles);

// The state of a path of several components; Missing when one of its directories is missing or is
// not a directory.
std::optional<State> ReadStateAt(int base, const std::string& path,
                                 Reading reading = Reading::PublicFiles);

struct FileContent {
    QByteArray bytes;
    const char* refusal = nullptr;  // why it was not read; null if it was
    uid_t owner = 0;
    nlink_t links = 0;
};

// The content of a regular file of at most 64 MB that `reading` includes. Empty, with errno set, on
// a failure.
std::optional<FileContent> ReadContent(int base, const std::string& path, Reading reading);

// Opens a regular file for reading, without following links, waiting, or changing a device that was
// put in its place. Invalid, with errno set, for anything else.
Descriptor OpenRegularFile(int directory, const std::string& name);
