#include "staging/PrivateMounts.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "installation/Installation.h"
#include "installation/Mounts.h"
#include "installation/TreeCheck.h"
#include "staging/Recorder.h"
#include "staging/TreeCopy.h"
#include "staging/ViewMounts.h"

namespace {

namespace fs = std::filesystem;

struct Layer {
    const char* path;
    const char* name;  // of the upper layer, below the tmpfs
};

constexpr Layer etcLayer = {etcDirectory, "etc"};
constexpr Layer binLayer = {binDirectory, "bin"};
constexpr Layer tmpLayer = {"/tmp", "tmp"};
constexpr Layer varLayer = {"/var", "var"};

// Services and files of the machine that the account tools would otherwise notify of accounts
// that do not exist yet.
constexpr const char* hiddenSockets[] = {"/run/nscd/socket", "/var/run/nscd/socket", "/dev/log"};
constexpr const char* hiddenFiles[] = {"/var/log/lastlog", "/var/log/faillog"};

// The directories and files on which something is mounted below a directory, without those below
// another one.
std::vector<std::string> MountsBelow(const std::string& directory) {
    std::vector<std::string> found;
    for (const Mount& each : ReadMounts()) {
        if (each.point.starts_with(directory + '/') &&
            (found.empty() || !each.point.starts_with(found.back() + '/')))
            found.push_back(each.point);
    }
    return found;
}

// The directories directly below a directory, without links.
std::vector<std::string> DirectoriesIn(const std::string& directory) {
    std::vector<std::string> found;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, error)) {
        if (entry.symlink_status(error).type() == fs::file_type::directory)
            found.push_back(entry.path().string());
    }
    return found;
}

// Mounts an overlay of `layer` at `place`. Its root has mode and owner of the upper layer.
bool MountOverlay(const Layer& layer, const std::string& place) {
    struct stat lower = {};
    const std::string upper = viewBase + '/' + layer.name;
    const std::string work = upper + ".work";
    if (stat(layer.path, &lower) != 0 || mkdir(upper.c_str(), 0755) != 0 ||
        chown(upper.c_str(), lower.st_uid, lower.st_gid) != 0 ||
        chmod(upper.c_str(), lower.st_mode & 07777) != 0 || mkdir(work.c_str(), 0700) != 0)
        return false;
    const std::string layers = "redirect_dir=off,metacopy=off,lowerdir=" + std::string(layer.path) +
                               ",upperdir=" + upper + ",workdir=" + work;
    return mount("overlay", place.c_str(), "overlay", 0, layers.c_str()) == 0;
}

// An overlay shows neither file systems mounted below it nor servers that listen there.
bool CoverWithOverlay(const Layer& layer, const std::vector<std::string>& shown) {
    std::vector<Descriptor> opened;
    opened.reserve(shown.size());
    for (const std::string& path : shown)
        opened.push_back(OpenPath(path));
    if (!MountOverlay(layer, layer.path))
        return false;
    for (size_t i = 0; i < shown.size(); ++i) {
        if (opened[i] && !BindMount(PathOfOpened(opened[i]), shown[i], MS_REC))
            return false;
    }
    return true;
}

// Mounting needs a descriptor that was opened in this namespace.
bool OpenHere(Descriptor& liveTree) {
    if (!liveTree)
        return true;
    struct stat expected = {};
    struct stat found = {};
    Descriptor opened;
    if (OpenInstallDirectory(opened) || fstat(liveTree.Number(), &expected) != 0 ||
        fstat(opened.Number(), &found) != 0 || expected.st_dev != found.st_dev ||
        expected.st_ino != found.st_ino) {
        errno = ESTALE;
        return false;
    }
    liveTree = std::move(opened);
    return true;
}

bool MakeFile(const std::string& path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    return file != -1 && close(file) == 0;
}

bool HideLiveServices() {
    const std::string empty = viewBase + "/empty";
    if (!MakeFile(empty))
        return false;
    const auto hide = [](const char* path, const std::string& with) {
        return access(path, F_OK) != 0 || BindMount(with, path);
    };
    return std::ranges::all_of(hiddenSockets,
                               [&](const char* path) { return hide(path, "/dev/null"); }) &&
           std::ranges::all_of(hiddenFiles, [&](const char* path) { return hide(path, empty); });
}

// Without an install directory there is nothing to mount on.
bool CoverInstallDirectory(const Descriptor& liveTree) {
    if (mkdir(viewTree.c_str(), 0700) != 0)
        return false;
    if (liveTree)
        return BindMount(viewTree, PathOfOpened(liveTree));
    // Something else than a directory may be there.
    return CoverWithOverlay(varLayer, DirectoriesIn(varLayer.path)) &&
           (unlink(sharedDirectory) == 0 || errno == ENOENT) && mkdir(sharedDirectory, 0700) == 0 &&
           BindMount(viewTree, sharedDirectory);
}

bool BuildView(const Descriptor& liveTree, const QStringList& active) {
    const std::string tools = viewBase + "/tools";
    const std::string temporary = viewBase + "/tmp.view";
    return mkdir(tools.c_str(), 0700) == 0 && mkdir(temporary.c_str(), 0700) == 0 &&
           CoverWithOverlay(etcLayer, MountsBelow(etcLayer.path)) &&
           CoverWithOverlay(binLayer, MountsBelow(binLayer.path)) &&
           MountOverlay(tmpLayer, temporary) && CoverInstallDirectory(liveTree) &&
           HideLiveServices() && ReplaceServiceTools(tools, active);
}

}  // namespace

QString PrivateMounts::Enter(Descriptor& liveTree, const QStringList& active) {
    if (unshare(CLONE_NEWNS) == 0 && OpenHere(liveTree) && MountViewBase() &&
        BuildView(liveTree, active))
        return {};
    return QString::fromUtf8(std::strerror(errno));
}

Failure PrivateMounts::Fill(const Descriptor& liveTree, StagedMachine& staged) {
    if (liveTree) {
        if (Failure failure = CopyTree(liveTree, staged))
            return failure;
    } else if (chmod(viewTree.c_str(), Find(Item::InstallDirectory).rootMode) != 0) {
        return StagingFailed(staged.installDir.toStdString());
    }
    staged.tree = OpenPath(viewTree);
    staged.etc = OpenPath(viewBase + '/' + etcLayer.name);
    staged.bin = OpenPath(viewBase + '/' + binLayer.name);
    const std::string calls = viewBase + "/tools/" + callsFile;
    staged.calls = Descriptor(open(calls.c_str(), O_RDONLY | O_CLOEXEC));
    if (staged.tree && staged.etc && staged.bin && staged.calls)
        return {};
    return StagingFailed(viewBase);
}

void PrivateMounts::ShowScratchDirectory(const Descriptor& liveTree, const QString& path) {
    const std::string prefix = std::string(sharedDirectory) + '/';
    const std::string scratch = path.toStdString();
    if (!liveTree || !scratch.starts_with(prefix))
        return;
    const std::string relative = scratch.substr(prefix.size());
    const Descriptor directory = OpenDirectory(liveTree.Number(), relative);
    std::error_code error;
    const std::string staged = viewTree + '/' + relative;
    if (directory && fs::create_directories(staged, error))
        BindMount(PathOfOpened(directory), staged);
}

Failure PrivateMounts::CoverTemporaryFiles() {
    const std::string view = viewBase + "/tmp.view";
    if (BindMount(view, tmpLayer.path))
        return {};
    return StagingFailed(tmpLayer.path);
}
