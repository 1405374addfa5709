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

namespace {

namespace fs = std::filesystem;

// Exists everywhere, and neither the library nor the script needs what is below it.
const std::string base = "/sys";

// More than the web pages, the accounts and the scripts need.
constexpr const char* tmpfsOptions = "mode=0700,size=1g";

struct Layer {
    const char* path;
    const char* name;  // of the upper layer, below the tmpfs
};

constexpr Layer etcLayer = {etcDirectory, "etc"};
constexpr Layer binLayer = {binDirectory, "bin"};
constexpr Layer tmpLayer = {"/tmp", "tmp"};
constexpr Layer varLayer = {"/var", "var"};

// Services and files of the machine that the account tools would otherwise tell about accounts
// that do not exist yet.
constexpr const char* hiddenSockets[] = {"/run/nscd/socket", "/var/run/nscd/socket", "/dev/log"};
constexpr const char* hiddenFiles[] = {"/var/log/lastlog", "/var/log/faillog"};

std::string PathOfOpened(const Descriptor& opened) {
    return "/proc/self/fd/" + std::to_string(opened.Number());
}

Descriptor Open(const std::string& path) {
    return Descriptor(open(path.c_str(), O_PATH | O_CLOEXEC));
}

bool Bind(const std::string& from, const std::string& to, unsigned long flags = 0) {
    return mount(from.c_str(), to.c_str(), nullptr, MS_BIND | flags, nullptr) == 0;
}

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
    const std::string upper = base + '/' + layer.name;
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
        opened.push_back(Open(path));
    if (!MountOverlay(layer, layer.path))
        return false;
    for (size_t i = 0; i < shown.size(); ++i) {
        if (opened[i] && !Bind(PathOfOpened(opened[i]), shown[i], MS_REC))
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
    const std::string empty = base + "/empty";
    if (!MakeFile(empty))
        return false;
    const auto hide = [](const char* path, const std::string& with) {
        return access(path, F_OK) != 0 || Bind(with, path);
    };
    return std::ranges::all_of(hiddenSockets,
                               [&](const char* path) { return hide(path, "/dev/null"); }) &&
           std::ranges::all_of(hiddenFiles, [&](const char* path) { return hide(path, empty); });
}

// Without an install directory there is nothing to mount on.
bool CoverInstallDirectory(const Descriptor& liveTree) {
    const std::string tree = base + "/tree";
    if (mkdir(tree.c_str(), 0700) != 0)
        return false;
    if (liveTree)
        return Bind(tree, PathOfOpened(liveTree));
    return CoverWithOverlay(varLayer, DirectoriesIn(varLayer.path)) &&
           mkdir(sharedDirectory, 0700) == 0 && Bind(tree, sharedDirectory);
}

bool BuildView(const Descriptor& liveTree, const QStringList& active) {
    const std::string tools = base + "/tools";
    const std::string temporary = base + "/tmp.view";
    return mkdir(tools.c_str(), 0700) == 0 && mkdir(temporary.c_str(), 0700) == 0 &&
           CoverWithOverlay(etcLayer, MountsBelow(etcLayer.path)) &&
           CoverWithOverlay(binLayer, MountsBelow(binLayer.path)) &&
           MountOverlay(tmpLayer, temporary) && CoverInstallDirectory(liveTree) &&
           HideLiveServices() && ReplaceServiceTools(tools, active);
}

Problem Refused(const std::string& path, const char* reason, const char* remedy) {
    return {ExitStatus::TreeRefused,
            QStringLiteral("\"%1\" %2").arg(QString::fromStdString(path), QLatin1String(reason)),
            QLatin1String(remedy)};
}

Problem CannotInspect(const std::string& path) {
    return {ExitStatus::TreeRefused,
            QStringLiteral("cannot inspect \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(errno))),
            QLatin1String(inspectAndRemove)};
}

Problem StagingFailed(const std::string& path) {
    return {ExitStatus::SystemCallFailed,
            QStringLiteral("cannot stage \"%1\": %2")
                .arg(QString::fromStdString(path), QString::fromUtf8(std::strerror(errno))),
            QStringLiteral("Make sure that enough memory is free, then run the setup again.")};
}

// Copies the limits of the last setup, which the library reads.
Failure StageLimits(const Descriptor& directory, const std::string& path, int staged) {
    const Descriptor file = OpenRegularFile(directory.Number(), Find(Item::QueueLimits).path);
    struct stat found = {};
    if (!file || fstat(file.Number(), &found) != 0)
        return CannotInspect(path);
    if ((found.st_mode & S_IROTH) == 0) {
        return Refused(path, "is not readable for everyone",
                       "If it contains the limits for jobs, set its mode to 664, otherwise remove "
                       "it; then run the setup again.");
    }
    std::array<char, largestLimits + 1> text = {};
    const ssize_t length = read(file.Number(), text.data(), text.size());
    if (length < 0 || length > largestLimits)
        return Refused(path, "is not a regular file of at most 64 KB", inspectAndRemove);
    if (write(staged, text.data(), static_cast<size_t>(length)) != length)
        return StagingFailed(path);
    return {};
}

class Filling {
public:
    Filling(const Descriptor& live, const std::string& installDir)
        : m_live(live), m_installDir(installDir) {}

    Failure StageEntry(const Entry& entry) const {
        const std::string path = PathOf(entry, m_installDir);
        const std::string name = NameOf(entry.path);
        const Descriptor directory = OpenParent(entry.path);
        struct stat found = {};
        if (!directory ||
            fstatat(directory.Number(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT ? Failure() : CannotInspect(path);
        if (entry.kind == Kind::Directory)
            return StageDirectory(entry, path, found);
        // The script replaces anything else, and the merge moves it aside.
        if (entry.kind == Kind::File && S_ISREG(found.st_mode))
            return StageFile(entry, directory, path, found);
        if (entry.item == Item::QueueLimits)
            return Refused(path, "is not a regular file of at most 64 KB", inspectAndRemove);
        return {};
    }

    // The script asks whether it is a directory, and otherwise copies the text of a link.
    Failure StageEarlierRepository() const {
        const std::string relative = earlierRepository;
        const std::string path = m_installDir + '/' + relative;
        const std::string staged = StagedPath(relative);
        const Descriptor directory = OpenParent(relative);
        const std::string name = NameOf(relative);
        struct stat found = {};
        if (!directory || fstatat(directory.Number(), name.c_str(), &found, 0) != 0)
            found.st_mode = 0;
        std::array<char, 4096> target = {};
        const ssize_t length = directory ? readlinkat(directory.Number(), name.c_str(),
                                                      target.data(), target.size() - 1)
                                         : -1;
        if (length > 0 && target[0] == '-')
            return Refused(path, "is a symbolic link whose target begins with \"-\"",
                           inspectAndRemove);
        if (!S_ISDIR(found.st_mode) && length <= 0)
            return {};
        std::error_code error;
        fs::create_directories(fs::path(staged).parent_path(), error);
        const bool made = S_ISDIR(found.st_mode) ? mkdir(staged.c_str(), 0755) == 0
                                                 : symlink(target.data(), staged.c_str()) == 0;
        return made ? Failure() : StagingFailed(path);
    }

    static std::string StagedPath(const std::string& relative) {
        return base + "/tree/" + relative;
    }

private:
    static std::string NameOf(const std::string& relative) {
        const std::string name = fs::path(relative).filename().string();
        return name.empty() ? "." : name;
    }

    Descriptor OpenParent(const std::string& relative) const {
        return OpenDirectory(m_live.Number(), fs::path(relative).parent_path().string());
    }

    static Failure StageDirectory(const Entry& entry, const std::string& path,
                                  const struct stat& found) {
        if (!S_ISDIR(found.st_mode))
            return Refused(path, "is not a directory", inspectAndRemove);
        if (entry.owner == Owner::Root && found.st_uid != 0)
            return Refused(path, "is not owned by root", inspectAndRemove);
        const std::string staged = StagedPath(entry.path);
        const mode_t mode = found.st_mode & 07777;
        if ((mkdir(staged.c_str(), mode) == 0 || errno == EEXIST) &&
            chmod(staged.c_str(), mode) == 0)
            return {};
        return StagingFailed(path);
    }

    static Failure StageFile(const Entry& entry, const Descriptor& directory,
                             const std::string& path, const struct stat& found) {
        const std::string staged = StagedPath(entry.path);
        const Descriptor file(open(staged.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!file || fchmod(file.Number(), found.st_mode & 07777) != 0)
            return StagingFailed(path);
        if (entry.item == Item::QueueLimits)
            return StageLimits(directory, path, file.Number());
        return {};
    }

    const Descriptor& m_live;
    const std::string& m_installDir;
};

Failure FillTree(const Descriptor& liveTree, const std::string& installDir) {
    const Entry& root = Find(Item::InstallDirectory);
    if (!liveTree) {
        if (chmod(Filling::StagedPath("").c_str(), root.rootMode) == 0)
            return {};
        return StagingFailed(installDir);
    }
    const Filling filling(liveTree, installDir);
    for (const Entry& entry : Entries()) {
        if (!IsInTree(entry) || !Applies(entry, entry.conditions & ~unsigned{AsUser}))
            continue;
        if (Failure failure = filling.StageEntry(entry))
            return failure;
    }
    return filling.StageEarlierRepository();
}

}  // namespace

QString PrivateMounts::Enter(Descriptor& liveTree, const QStringList& active) {
    if (unshare(CLONE_NEWNS) == 0 &&
        mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0 && OpenHere(liveTree) &&
        mount("tmpfs", base.c_str(), "tmpfs", MS_NOSUID, tmpfsOptions) == 0 &&
        BuildView(liveTree, active))
        return {};
    return QString::fromUtf8(std::strerror(errno));
}

Failure PrivateMounts::Fill(const Descriptor& liveTree, StagedMachine& staged) {
    const std::string installDir = staged.installDir.toStdString();
    if (Failure failure = FillTree(liveTree, installDir))
        return failure;
    staged.tree = Open(base + "/tree");
    staged.etc = Open(base + '/' + etcLayer.name);
    staged.bin = Open(base + '/' + binLayer.name);
    const std::string calls = base + "/tools/" + callsFile;
    staged.calls = Descriptor(open(calls.c_str(), O_RDONLY | O_CLOEXEC));
    if (staged.tree && staged.etc && staged.bin && staged.calls)
        return {};
    return StagingFailed(base);
}

void PrivateMounts::ShowScratchDirectory(const Descriptor& liveTree, const QString& path) {
    const std::string prefix = std::string(sharedDirectory) + '/';
    const std::string scratch = path.toStdString();
    if (!liveTree || !scratch.starts_with(prefix))
        return;
    const std::string relative = scratch.substr(prefix.size());
    const Descriptor directory = OpenDirectory(liveTree.Number(), relative);
    std::error_code error;
    const std::string staged = Filling::StagedPath(relative);
    if (directory && fs::create_directories(staged, error))
        Bind(PathOfOpened(directory), staged);
}

Failure PrivateMounts::CoverTemporaryFiles() {
    const std::string view = base + "/tmp.view";
    if (Bind(view, tmpLayer.path))
        return {};
    return StagingFailed(tmpLayer.path);
}
