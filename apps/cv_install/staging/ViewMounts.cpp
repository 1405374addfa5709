#include "staging/ViewMounts.h"

#include <fcntl.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>

namespace {

// More than the web pages, the accounts and the scripts need.
constexpr const char* tmpfsOptions = "mode=0700,size=1g";

}  // namespace

bool MountViewBase() {
    return mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0 &&
           mount("tmpfs", viewBase.c_str(), "tmpfs", MS_NOSUID, tmpfsOptions) == 0;
}

bool BindMount(const std::string& from, const std::string& to, unsigned long flags) {
    return mount(from.c_str(), to.c_str(), nullptr, MS_BIND | flags, nullptr) == 0;
}

std::string PathOfOpened(const Descriptor& opened) {
    return "/proc/self/fd/" + std::to_string(opened.Number());
}

Descriptor OpenPath(const std::string& path) {
    return Descriptor(open(path.c_str(), O_PATH | O_CLOEXEC));
}

Problem StagingFailed(const std::string& path) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot stage \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(errno))),
            QStringLiteral("Make sure that enough memory is free, then run the setup again.")};
}
