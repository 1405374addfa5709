#include "answers/Listeners.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "commit/EarlierServices.h"
#include "installation/Installation.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* listens = "0A";

template <class Number>
bool ParseHexadecimal(const std::string& text, Number& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, 16);
    return error == std::errc() && stop == end;
}

// The kernel writes each 32-bit word of an address as a number of this machine.
std::optional<std::string> ParseAddress(const std::string& words) {
    std::array<std::uint32_t, 4> address = {};
    const size_t count = words.size() / 8;
    if (words.size() % 8 != 0 || (count != 1 && count != 4))
        return {};
    for (size_t i = 0; i < count; ++i) {
        if (!ParseHexadecimal(words.substr(8 * i, 8), address[i]))
            return {};
    }
    std::array<char, INET6_ADDRSTRLEN> text = {};
    if (inet_ntop(count == 1 ? AF_INET : AF_INET6, address.data(), text.data(), text.size()) ==
        nullptr)
        return {};
    return text.data();
}

// An IPv4 address that an IPv6 socket listens at is in both forms the same.
std::string WithoutMapping(const std::string& address) {
    constexpr const char* mapped = "::ffff:";
    return address.starts_with(mapped) && address.find('.') != std::string::npos
               ? address.substr(std::strlen(mapped))
               : address;
}

std::string ReadProcFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool HasSocket(const fs::path& process, const std::string& inode) {
    const std::string socket = "socket:[" + inode + "]";
    std::error_code error;
    fs::directory_iterator at(process / "fd", error);
    for (const fs::directory_iterator end; !error && at != end; at.increment(error)) {
        std::error_code closed;
        if (fs::read_symlink(at->path(), closed) == socket)
            return true;
    }
    return false;
}

std::string DescribeHolder(const std::string& inode, uid_t serviceUser) {
    std::error_code error;
    fs::directory_iterator at("/proc", error);
    for (const fs::directory_iterator end; !error && at != end; at.increment(error)) {
        const std::string number = at->path().filename();
        if (number.find_first_not_of("0123456789") != std::string::npos ||
            !HasSocket(at->path(), inode))
            continue;
        struct stat process = {};
        if (IsOfComputeService(ReadProcFile(at->path() / "cgroup")) ||
            (stat(at->path().c_str(), &process) == 0 && process.st_uid == serviceUser))
            return {};
        std::string name = ReadProcFile(at->path() / "comm");
        name.resize(std::min(name.size(), name.find('\n')));
        return std::string("process ").append(number).append(" (").append(name).append(")");
    }
    return "another process";
}

}  // namespace

bool IsAnyAddress(const std::string& address) {
    return address == "0.0.0.0" || address == "::";
}

std::vector<Listener> ParseListeners(const std::string& text) {
    constexpr size_t addressField = 1;
    constexpr size_t stateField = 3;
    constexpr size_t inodeField = 9;
    std::vector<Listener> listeners;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> fields;
        std::istringstream words(line);
        for (std::string word; words >> word;)
            fields.push_back(word);
        if (fields.size() <= inodeField || fields[stateField] != listens)
            continue;
        const std::string& place = fields[addressField];
        const size_t colon = place.find(':');
        const std::optional<std::string> address = ParseAddress(place.substr(0, colon));
        Listener listener;
        if (!address || colon == std::string::npos ||
            !ParseHexadecimal(place.substr(colon + 1), listener.port))
            continue;
        listener.isAnyAddress = IsAnyAddress(*address);
        listener.address = *address;
        listener.inode = fields[inodeField];
        listeners.push_back(listener);
    }
    return listeners;
}

bool IsInTheWay(const Listener& listener, const std::string& address, int port) {
    return listener.port == port && (listener.isAnyAddress || IsAnyAddress(address) ||
                                     WithoutMapping(listener.address) == WithoutMapping(address));
}

bool IsOfComputeService(const std::string& cgroups) {
    const auto runs = [&](const std::string& unit) {
        return (cgroups + '\n').find('/' + unit + '\n') != std::string::npos;
    };
    return runs(serviceUnit) || std::ranges::any_of(hx::earlierServices, [&](const auto& service) {
               return runs(std::string(service.name) + ".service");
           });
}

std::string FindPortHolder(const std::string& address, int port, uid_t serviceUser) {
    for (const char* path : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        for (const Listener& listener : ParseListeners(ReadProcFile(path))) {
            if (!IsInTheWay(listener, address, port))
                continue;
            std::string holder = DescribeHolder(listener.inode, serviceUser);
            if (!holder.empty())
                return holder;
        }
    }
    return {};
}
