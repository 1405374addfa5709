#include "installation/Mounts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

// mountinfo writes a space, tab, newline, or backslash as a backslash and three octal digits.
std::string Unescape(const std::string& text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size()) {
            plain += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

// For kernels older than 5.8.
std::optional<int> ReadMountId(int descriptor) {
    const std::string path = "/proc/self/fdinfo/" + std::to_string(descriptor);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::array<char, 1024> text = {};
    const ssize_t length = file == -1 ? -1 : read(file, text.data(), text.size() - 1);
    if (file != -1)
        close(file);
    const char* line = length > 0 ? std::strstr(text.data(), "\nmnt_id:") : nullptr;
    if (line == nullptr)
        return {};
    return std::atoi(line + std::strlen("\nmnt_id:"));
}

}  // namespace

// 36 35 98:0 /root /mount/point options tag:1 - type source options
std::vector<Mount> ReadMounts() {
    std::vector<Mount> mounts;
    std::ifstream list("/proc/self/mountinfo");
    for (std::string line; std::getline(list, line);) {
        std::istringstream words(line);
        Mount mount;
        std::string word;
        words >> mount.id >> word >> word >> word >> mount.point;
        while (words >> word && word != "-") {
        }
        words >> mount.type;
        mount.point = Unescape(mount.point);
        mounts.push_back(mount);
    }
    return mounts;
}

std::optional<int> MountOf(int descriptor) {
    struct statx found = {};
    if (statx(descriptor, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_MNT_ID, &found) == 0 &&
        (found.stx_mask & STATX_MNT_ID) != 0)
        return static_cast<int>(found.stx_mnt_id);
    return ReadMountId(descriptor);
}
