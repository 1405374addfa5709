#include "installation/State.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <algorithm>
#include <array>
#include <cerrno>
#include <tuple>

#include "installation/Mounts.h"

namespace {

State::Kind KindOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return State::Kind::File;
        case S_IFDIR:
            return State::Kind::Directory;
        case S_IFLNK:
            return State::Kind::Link;
        default:
            return State::Kind::Special;
    }
}

// `opened` was opened with O_PATH. Opening it again cannot reach another inode.
Descriptor OpenAgain(const Descriptor& opened, int flags) {
    const std::string path = "/proc/self/fd/" + std::to_string(opened.Number());
    return Descriptor(open(path.c_str(), flags | O_CLOEXEC));
}

std::optional<std::string> ReadTarget(const Descriptor& link) {
    std::array<char, 4096> text = {};
    const ssize_t length = readlinkat(link.Number(), "", text.data(), text.size());
    if (length < 0)
        return {};
    return std::string(text.data(), static_cast<size_t>(length));
}

constexpr off_t largestContent = off_t{64} << 20;

bool IsRead(const struct stat& file, Reading reading) {
    if (reading == Reading::Nothing || file.st_size > largestContent)
        return false;
    return reading == Reading::AllFiles || (file.st_mode & S_IROTH) != 0;
}

// Calls `take` with one block after the other. O_NONBLOCK: does not wait for a process that has a
// lease on the file. Stops at `size`, because another process may append without end. Returns false
// with errno set on a failure.
template <class Take>
bool ReadBlocks(const Descriptor& file, off_t size, const Take& take) {
    Descriptor content = OpenAgain(file, O_RDONLY | O_NONBLOCK | O_NOATIME);
    // Only the owner and root can keep the time of access.
    if (!content && errno == EPERM)
        content = OpenAgain(file, O_RDONLY | O_NONBLOCK);
    if (!content)
        return false;
    std::array<char, 65536> block = {};
    for (off_t rest = size; rest > 0;) {
        const ssize_t length =
            read(content.Number(), block.data(), std::min(block.size(), static_cast<size_t>(rest)));
        if (length < 0)
            return false;
        if (length == 0)
            break;
        take(QByteArrayView(block.data(), length));
        rest -= length;
    }
    return true;
}

std::optional<std::string> ReadDigest(const Descriptor& file, off_t size) {
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!ReadBlocks(file, size, [&hash](QByteArrayView block) { hash.addData(block); }))
        return {};
    return hash.result().toHex().toStdString();
}

bool IsOnOtherFuse(const Descriptor& entry, int directory) {
    const std::optional<int> mount = MountOf(entry.Number());
    if (mount && mount == MountOf(directory))
        return false;
    const std::vector<Mount> mounts = ReadMounts();
    const auto found = std::find_if(mounts.begin(), mounts.end(),
                                    [&](const Mount& each) { return each.id == mount; });
    // One that is not listed was unmounted meanwhile.
    return found == mounts.end() || found->IsFuse();
}

bool IsPublicDirectory(const Descriptor& directory) {
    struct stat found = {};
    return fstatat(directory.Number(), "", &found, AT_EMPTY_PATH) == 0 &&
           (found.st_mode & S_IXOTH) != 0;
}

// As OpenDirectory; sets `isPublic` to false when other users cannot enter one of the directories.
Descriptor OpenSteps(int base, const std::string& path, bool& isPublic) {
    Descriptor directory = OpenEntry(base, "", O_DIRECTORY);
    isPublic = directory && IsPublicDirectory(directory);
    for (size_t begin = 0; directory && begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        directory = OpenEntry(directory.Number(), path.substr(begin, end - begin), O_DIRECTORY);
        isPublic = isPublic && directory && IsPublicDirectory(directory);
        begin = end + 1;
    }
    return directory;
}

std::optional<State> ReadEntry(int directory, const std::string& name, Reading reading) {
    const Descriptor entry = OpenEntry(directory, name);
    if (!entry)
        return errno == ENOENT ? std::optional<State>(State()) : std::nullopt;
    std::optional<State> state = ReadAttributes(entry);
    struct stat found = {};
    if (!state || state->kind != State::Kind::File ||
        fstatat(entry.Number(), "", &found, AT_EMPTY_PATH) != 0 || !IsRead(found, reading))
        return state;
    const std::optional<std::string> content = ReadDigest(entry, found.st_size);
    if (!content)
        return {};
    state->digest = *content;
    return state;
}

struct PathParts {
    std::string directory;  // empty for a single component
    std::string name;
};

PathParts Split(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? PathParts{"", path}
                                      : PathParts{path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace

Descriptor::~Descriptor() {
    if (m_number != -1)
        close(m_number);
}

bool State::operator==(const State& other) const {
    return std::tie(kind, mode, owner, group, target, digest) ==
           std::tie(other.kind, other.mode, other.owner, other.group, other.target, other.digest);
}

const char* WordOf(State::Kind kind) {
    switch (kind) {
        case State::Kind::File:
            return "file";
        case State::Kind::Directory:
            return "directory";
        case State::Kind::Link:
            return "link";
        case State::Kind::Special:
            return "special";
        default:
            return "missing";
    }
}

QString ModeText(mode_t mode) {
    return QStringLiteral("%1").arg(mode, 4, 8, QLatin1Char('0'));
}

Descriptor OpenEntry(int directory, const std::string& name, int flags) {
    constexpr int always = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    Descriptor entry(openat(directory, name.empty() ? "." : name.c_str(), always | flags));
    if (entry && !name.empty() && IsOnOtherFuse(entry, directory)) {
        errno = EREMOTE;
        return {};
    }
    return entry;
}

Descriptor OpenDirectory(int base, const std::string& path) {
    bool isPublic = false;
    return OpenSteps(base, path, isPublic);
}

std::optional<State> ReadAttributes(const Descriptor& entry) {
    struct stat found = {};
    if (fstatat(entry.Number(), "", &found, AT_EMPTY_PATH) != 0)
        return {};
    State state;
    state.kind = KindOf(found.st_mode);
    state.mode = state.kind == State::Kind::Link ? 0 : found.st_mode & 07777;
    state.owner = found.st_uid;
    state.group = found.st_gid;
    state.device = found.st_dev;
    state.inode = found.st_ino;
    state.links = found.st_nlink;
    state.size = state.kind == State::Kind::File ? found.st_size : 0;
    if (state.kind != State::Kind::Link)
        return state;
    const std::optional<std::string> target = ReadTarget(entry);
    if (!target)
        return {};
    state.target = *target;
    return state;
}

std::optional<State> ReadState(int directory, const std::string& name, Reading reading) {
    if (reading == Reading::PublicFiles) {
        const Descriptor opened = OpenEntry(directory, "");
        if (!opened)
            return {};
        if (!name.empty() && !IsPublicDirectory(opened))
            reading = Reading::Nothing;
    }
    return ReadEntry(directory, name, reading);
}

std::optional<State> ReadStateAt(int base, const std::string& path, Reading reading) {
    const PathParts parts = Split(path);
    bool isPublic = false;
    const Descriptor directory = OpenSteps(base, parts.directory, isPublic);
    if (!directory && (errno == ENOENT || errno == ENOTDIR || errno == ELOOP))
        return State();
    if (!directory)
        return {};
    if (reading == Reading::PublicFiles && !isPublic)
        reading = Reading::Nothing;
    return ReadEntry(directory.Number(), parts.name, reading);
}

std::optional<FileContent> ReadContent(int base, const std::string& path, Reading reading) {
    const PathParts parts = Split(path);
    bool isPublic = false;
    const Descriptor directory = OpenSteps(base, parts.directory, isPublic);
    const Descriptor entry = directory ? OpenEntry(directory.Number(), parts.name) : Descriptor();
    struct stat found = {};
    if (!entry || fstatat(entry.Number(), "", &found, AT_EMPTY_PATH) != 0)
        return {};
    FileContent content;
    content.owner = found.st_uid;
    content.links = found.st_nlink;
    if (!S_ISREG(found.st_mode))
        content.refusal = "it is not a regular file";
    else if (reading != Reading::AllFiles && (!isPublic || (found.st_mode & S_IROTH) == 0))
        content.refusal = "other users cannot read it";
    else if (found.st_size > largestContent)
        content.refusal = "it is larger than 64 MB";
    else if (!ReadBlocks(entry, found.st_size,
                         [&](QByteArrayView block) { content.bytes.append(block); }))
        return {};
    return content;
}

Descriptor OpenRegularFile(int directory, const std::string& name) {
    const Descriptor entry = OpenEntry(directory, name);
    struct stat found = {};
    if (!entry || fstatat(entry.Number(), "", &found, AT_EMPTY_PATH) != 0)
        return {};
    if (!S_ISREG(found.st_mode)) {
        errno = EINVAL;
        return {};
    }
    return OpenAgain(entry, O_RDONLY | O_NONBLOCK | O_NOATIME);
}
