// Determines the directory of the running executable from argv[0] alone.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "setuprun/CInstallBase.h"

namespace {

std::string DirectoryOf(const std::string& workingDirectory, std::string_view argv0) {
    const size_t slash = argv0.rfind('/');
    if (slash == std::string_view::npos)
        return workingDirectory;
    std::string directory(argv0.substr(0, slash));
    if (directory.empty())
        return "/";
    if (directory.front() == '/')
        return directory;
    if (directory == ".")
        return workingDirectory;
    return workingDirectory + '/' + directory;
}

}  // namespace

int CInstallBase::CurrentDirectory(const char* argv0, char* buffer, int size) {
    if (size < 1) {
        errno = EINVAL;
        return -1;
    }
    const auto capacity = static_cast<size_t>(size);
    if (getcwd(buffer, capacity) == nullptr)
        return -1;
    const std::string directory = DirectoryOf(buffer, argv0 == nullptr ? "" : argv0);
    const size_t length = std::min(directory.size(), capacity - 1);
    std::memcpy(buffer, directory.data(), length);
    buffer[length] = '\0';
    return 0;
}
