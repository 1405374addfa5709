#include "installation/DatedName.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "Problem.h"

namespace {

constexpr int mostNumbers = 100;

std::string DatedName(const std::string& name, int number) {
    const std::time_t now = std::time(nullptr);
    std::tm time = {};
    std::array<char, 32> date = {};
    if (localtime_r(&now, &time) != nullptr)
        std::strftime(date.data(), date.size(), ".%Y%m%d-%H%M%S", &time);
    return name + date.data() + (number == 0 ? "" : '-' + std::to_string(number));
}

}  // namespace

bool CannotRenameWithFlags() {
    return errno == EINVAL || errno == ENOSYS;
}

int MoveToFreeName(int fromDirectory, const std::string& from, int toDirectory,
                   const std::string& to) {
    if (renameat2(fromDirectory, from.c_str(), toDirectory, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (!CannotRenameWithFlags())
        return errno;
    if (linkat(fromDirectory, from.c_str(), toDirectory, to.c_str(), 0) == 0)
        return unlinkat(fromDirectory, from.c_str(), 0) == 0 ? 0 : errno;
    // A directory replaces at most an empty one.
    if (errno == EPERM && renameat(fromDirectory, from.c_str(), toDirectory, to.c_str()) == 0)
        return 0;
    return errno == ENOTEMPTY || errno == ENOTDIR ? EEXIST : errno;
}

std::string MoveToDatedName(int fromDirectory, const std::string& from, int toDirectory,
                            const std::string& name) {
    std::string dated;
    int error = EEXIST;
    for (int number = 0; error == EEXIST && number < mostNumbers; ++number) {
        dated = DatedName(name, number);
        error = MoveToFreeName(fromDirectory, from, toDirectory, dated);
    }
    errno = error;
    return error == 0 ? dated : std::string();
}

void WarnOfDatedName(const std::string& name, const std::string& path) {
    ReportWarning({ExitStatus::Complete,
                   QStringLiteral("\"%1\" was replaced; what was there is now \"%2\"")
                       .arg(QString::fromStdString(name), QString::fromStdString(path)),
                   QStringLiteral("Inspect it, then remove it.")});
}
