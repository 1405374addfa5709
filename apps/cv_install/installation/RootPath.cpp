#include "installation/RootPath.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <vector>

namespace {

using Components = std::deque<std::string>;

Components SplitPath(const std::string& path) {
    Components components;
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        const std::string name = path.substr(begin, end - begin);
        if (!name.empty() && name != ".")
            components.push_back(name);
        begin = end + 1;
    }
    return components;
}

// A directory and its path for messages, which has no links.
class Directory {
public:
    Directory() { OpenTop(); }

    void OpenTop() {
        m_opened = Descriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
        m_names.clear();
    }

    Descriptor OpenBelow(const std::string& name) const {
        if (name == "..")
            return Descriptor(openat(m_opened.Number(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
        return OpenEntry(m_opened.Number(), name);
    }

    void Enter(const std::string& name, Descriptor opened) {
        m_opened = std::move(opened);
        if (name != "..")
            m_names.push_back(name);
        else if (!m_names.empty())
            m_names.pop_back();
    }

    bool IsRootsAlone() const {
        const std::optional<State> state = m_opened ? ReadAttributes(m_opened) : std::nullopt;
        return state && ::IsRootsAlone(*state);
    }

    std::string Path() const {
        std::string path;
        for (const std::string& name : m_names)
            path += '/' + name;
        return path.empty() ? "/" : path;
    }

    Descriptor Take() { return std::move(m_opened); }

private:
    Descriptor m_opened;
    std::vector<std::string> m_names;
};

}  // namespace

bool IsRootsAlone(const State& state) {
    return state.kind == State::Kind::Directory && state.owner == 0 &&
           (state.mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::optional<Unresolved> ResolveRootPath(const std::string& path, bool followsLast,
                                          RootPath& resolved) {
    using Reason = Unresolved::Reason;
    constexpr int mostLinks = 40;
    Components rest = SplitPath(path);
    Directory directory;
    for (int links = 0; !rest.empty() && links < mostLinks;) {
        if (!directory.IsRootsAlone())
            return Unresolved{Reason::OthersCanWrite, directory.Path()};
        const std::string name = rest.front();
        rest.pop_front();
        Descriptor next = directory.OpenBelow(name);
        const int error = errno;
        const std::optional<State> state = next ? ReadAttributes(next) : std::nullopt;
        const bool isLink = state && state->kind == State::Kind::Link;
        const bool isFollowed = isLink && (followsLast || !rest.empty());
        if (rest.empty() && !isFollowed && (state || error == ENOENT) && name != "..") {
            resolved = {directory.Take(), name};
            return {};
        }
        if (isFollowed) {
            if (state->owner != 0)
                return Unresolved{Reason::LinkOfOther, {}};
            ++links;
            const Components target = SplitPath(state->target);
            rest.insert(rest.begin(), target.begin(), target.end());
            if (state->target.starts_with('/'))
                directory.OpenTop();
        } else if (state && state->kind == State::Kind::Directory) {
            directory.Enter(name, std::move(next));
        } else {
            return Unresolved{Reason::SystemError, {}, state ? ENOTDIR : error};
        }
    }
    return Unresolved{Reason::SystemError, {}, ELOOP};
}
