#include "installation/DirectoryNames.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

bool ReadNames(int directory, Names& names, size_t most) {
    // A duplicate would share the position.
    const int again = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    if (again == -1)
        return false;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(again), closedir);
    if (stream == nullptr) {
        const int error = errno;
        close(again);
        errno = error;
        return false;
    }
    errno = 0;
    while (const dirent* entry = names.size() < most ? readdir(stream.get()) : nullptr) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
        errno = 0;
    }
    const int error = errno;
    std::sort(names.begin(), names.end());
    errno = error;
    return error == 0;
}
