#include "installation/State.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <array>
#include <cerrno>
#include <tuple>

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

// O_NONBLOCK: does not wait for a process that has a lease on the file.
std::optional<std::string> ReadDigest(const Descriptor& file) {
    const Descriptor content = OpenAgain(file, O_RDONLY | O_NONBLOCK | O_NOATIME);
    if (!content)
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    std::array<char, 65536> block = {};
    for (;;) {
        const ssize_t length = read(content.Number(), block.data(), block.size());
        if (length < 0)
            return {};
        if (length == 0)
            return hash.result().toHex().toStdString();
        hash.addData(QByteArrayView(block.data(), length));
    }
}

std::optional<State> StateOf(const Descriptor& opened) {
    struct stat found = {};
    if (fstatat(opened.Number(), "", &found, AT_EMPTY_PATH) != 0)
        return {};
    State state;
    state.kind = KindOf(found.st_mode);
    state.mode = state.kind == State::Kind::Link ? 0 : found.st_mode & 07777;
    state.owner = found.st_uid;
    state.group = found.st_gid;
    state.device = found.st_dev;
    state.inode = found.st_ino;
    state.links = found.st_nlink;
    std::optional<std::string> content = std::string();
    if (state.kind == State::Kind::Link)
        content = state.target = ReadTarget(opened).value_or(std::string());
    else if (state.kind == State::Kind::File && (found.st_mode & S_IROTH) != 0)
        content = ReadDigest(opened);
    if (!content)
        return {};
    if (state.kind == State::Kind::File)
        state.digest = *content;
    return state;
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

Descriptor OpenDirectory(int base, const std::string& path) {
    constexpr int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Descriptor directory(openat(base, ".", flags));
    for (size_t begin = 0; directory && begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        const std::string name = path.substr(begin, end - begin);
        directory = Descriptor(openat(directory.Number(), name.c_str(), flags));
        begin = end + 1;
    }
    return directory;
}

std::optional<State> ReadState(int directory, const std::string& name) {
    const Descriptor entry(
        openat(directory, name.empty() ? "." : name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (entry)
        return StateOf(entry);
    if (errno == ENOENT)
        return State();
    return {};
}

std::optional<State> ReadStateAt(int base, const std::string& path) {
    const size_t slash = path.rfind('/');
    const bool isNested = slash != std::string::npos;
    const Descriptor directory = OpenDirectory(base, isNested ? path.substr(0, slash) : "");
    if (directory)
        return ReadState(directory.Number(), isNested ? path.substr(slash + 1) : path);
    if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP)
        return State();
    return {};
}

Descriptor OpenRegularFile(int directory, const std::string& name) {
    const Descriptor entry(openat(directory, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat found = {};
    if (!entry || fstatat(entry.Number(), "", &found, AT_EMPTY_PATH) != 0)
        return {};
    if (!S_ISREG(found.st_mode)) {
        errno = EINVAL;
        return {};
    }
    return OpenAgain(entry, O_RDONLY | O_NONBLOCK | O_NOATIME);
}
