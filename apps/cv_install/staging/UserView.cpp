#include "staging/UserView.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "WriteAll.h"
#include "installation/Installation.h"
#include "staging/TreeCopy.h"
#include "staging/ViewMounts.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* temporaryDirectory = "/tmp";

Problem NoNamespaces(int error) {
    return UserView::Impossible(QStringLiteral("user namespaces are not available: %1")
                                    .arg(QString::fromUtf8(std::strerror(error))),
                                UserView::RemedyFor());
}

bool WriteSetting(const char* path, const std::string& text) {
    const Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
    if (!file)
        return false;
    errno = WriteAll(file.Number(), text);
    return errno == 0;
}

// The user keeps both ids: a mapped root would be taken for root. Other ids cannot be mapped.
bool EnterNamespaces() {
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
           WriteSetting("/proc/self/uid_map", user + ' ' + user + " 1") &&
           WriteSetting("/proc/self/setgroups", "deny") &&
           WriteSetting("/proc/self/gid_map", group + ' ' + group + " 1") && MountViewBase();
}

// With them, the process would have access to files of the user whose modes forbid it.
bool DropCapabilities() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    return syscall(SYS_capset, &header, none) == 0;
}

bool MakeDirectory(const std::string& path) {
    return mkdir(path.c_str(), 0700) == 0;
}

// The names in the install directory that a setup makes.
std::set<std::string> NamesOfSetup() {
    std::set<std::string> names;
    for (const Entry& entry : Entries()) {
        const std::string path = entry.path;
        if (IsInTree(entry))
            names.insert(path.substr(0, path.find('/')));
    }
    return names;
}

// Fills the directory `place` with links to everything in `shown`, except for names that are there
// or hidden.
bool ShowRest(const std::string& shown, const std::string& place,
              const std::set<std::string>& hidden = {}) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(shown, error)) {
        const std::string name = entry.path().filename();
        if (hidden.contains(name))
            continue;
        const fs::path link = fs::path(place) / name;
        if (symlink(entry.path().c_str(), link.c_str()) != 0 && errno != EEXIST)
            return false;
    }
    errno = error.value();
    return !error;
}

// Opens the install directory in this mount namespace.
Descriptor OpenHere(const Descriptor& liveTree, const std::string& installDir) {
    Descriptor opened(open(installDir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::optional<State> expected = ReadAttributes(liveTree);
    const std::optional<State> found = opened ? ReadAttributes(opened) : std::nullopt;
    if (expected && found && found->IsSameInode(*expected))
        return opened;
    errno = ESTALE;
    return {};
}

// The rest of the install directory, such as the product itself, appears through links.
bool ShowTree(const Descriptor& tree, const std::set<std::string>& hidden) {
    const std::string live = viewBase + "/live";
    return MakeDirectory(live) && BindMount(PathOfOpened(tree), live, MS_REC) &&
           BindMount(viewTree, PathOfOpened(tree)) && ShowRest(live, viewTree, hidden);
}

// Also shows the install directory when it is below /tmp.
bool CoverTemporaryFiles() {
    const std::string live = viewBase + "/tmp.live";
    const std::string cover = viewBase + "/tmp.view";
    return MakeDirectory(live) && MakeDirectory(cover) &&
           BindMount(temporaryDirectory, live, MS_REC) && ShowRest(live, cover) &&
           BindMount(cover, temporaryDirectory);
}

bool IsSetTo(const std::string& path, const std::string& value) {
    std::ifstream file(path);
    std::string text;
    return std::getline(file, text) && text == value;
}

}  // namespace

Problem UserView::Impossible(const QString& reason, const QString& remedy) {
    return {ExitStatus::NoDryRun,
            QStringLiteral("cannot find out what a setup would change: %1").arg(reason), remedy};
}

Failure UserView::FindObstacle() {
    const pid_t child = fork();
    if (child == 0)
        _exit(EnterNamespaces() ? 0 : errno);
    int status = 0;
    while (child != -1 && waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    if (child != -1 && status == 0)
        return {};
    return NoNamespaces(child == -1 ? errno : WEXITSTATUS(status));
}

Failure UserView::Enter(const Descriptor& liveTree, TreeView view, StagedMachine& staged) {
    const std::string installDir = staged.installDir.toStdString();
    if (!EnterNamespaces())
        return NoNamespaces(errno);
    const Descriptor tree = OpenHere(liveTree, installDir);
    if (!tree || !MakeDirectory(viewTree))
        return StagingFailed(installDir);
    const bool isCopied = view == TreeView::Copied;
    if (Failure failure = isCopied ? CopyTree(liveTree, staged) : Failure())
        return failure;
    if (!ShowTree(tree, isCopied ? std::set<std::string>() : NamesOfSetup()))
        return StagingFailed(installDir);
    staged.tree = OpenPath(viewTree);
    if (!staged.tree || !CoverTemporaryFiles() || !DropCapabilities())
        return StagingFailed(temporaryDirectory);
    return {};
}

QString UserView::RemedyFor(const std::string& settings) {
    const struct {
        const char* name;
        const char* value;   // that forbids them
        const char* wanted;  // a value that allows them
    } all[] = {{"kernel.unprivileged_userns_clone", "0", "1"},
               {"user.max_user_namespaces", "0", "10000"},
               {"kernel.apparmor_restrict_unprivileged_userns", "1", "0"}};
    for (const auto& [name, value, wanted] : all) {
        std::string path = std::string("/") + name;
        std::ranges::replace(path, '.', '/');
        if (IsSetTo(settings + path, value)) {
            return QStringLiteral("Run as root: sysctl --write %1=%2.")
                .arg(QLatin1String(name), QLatin1String(wanted));
        }
    }
    return QStringLiteral(
        "Make sure that no container or chroot forbids them, or run cv_install outside of it.");
}
