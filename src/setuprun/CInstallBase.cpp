// The start of a setup: access, environment, machine, limits of the previous setup, options.
#include "setuprun/CInstallBase.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "probes/cpu_memory.h"
#include "setuprun/CQueueLimits.h"
#include "setuprun/Environment.h"
#include "setuprun/Schedulers.h"
#include "support/COSRelease.h"

unsigned char g_hx_gui_installer = 0;

namespace {

constexpr const char* sharedDirectory = "/var/corvane";
constexpr const char* commandLink = "/usr/bin/corvane26";
constexpr std::string_view commandLinkTarget = "/var/corvane/corvane26";

enum AccessFlag { DirectoryWritable = 2, CommandLinkPresent = 4 };

bool CommandLinkIsOurs() {
    struct stat entry = {};
    if (lstat(commandLink, &entry) != 0 || !S_ISLNK(entry.st_mode))
        return false;
    std::array<char, 2048> target = {};
    const ssize_t length = readlink(commandLink, target.data(), target.size());
    return length >= 0 &&
           std::string_view(target.data(), static_cast<size_t>(length)) == commandLinkTarget;
}

bool SharedDirectoryIsWritable() {
    struct stat entry = {};
    return stat(sharedDirectory, &entry) == 0 && S_ISDIR(entry.st_mode) &&
           access(sharedDirectory, W_OK) == 0;
}

// Sets the access flags and the install directory. Does not return for a refused user.
void DecideAccess(CInstallBase& run) {
    if (getuid() == 0) {
        run.m_accessFlags = CInstallBase::RootAccess;
        run.m_installDir = QString::fromUtf8(sharedDirectory);
        return;
    }
    const bool link = CommandLinkIsOurs();
    const bool directory = SharedDirectoryIsWritable();
    run.m_accessFlags = (directory ? DirectoryWritable : 0) + (link ? CommandLinkPresent : 0);
    if (!run.m_allowNonRoot) {
        CInstallBase::InstallError(
            QStringLiteral("Installation must be run as root user.  Aborting"), 1, 0);
    }
    run.m_installDir = directory ? QString::fromUtf8(sharedDirectory) : run.m_binariesDir;
}

void SetEnvironment(const CInstallBase& run) {
    for (const hx::EnvironmentVariable& variable : hx::environmentVariables)
        setenv(variable.name, (run.*variable.value).toUtf8().constData(), 1);
}

void MeasureMachine(CInstallBase& run) {
    unsigned int cores = 0;
    run.m_coreCount = hx_cpu_count(&cores, 0) == -1 ? 1 : static_cast<int>(cores);
    run.m_ramMB = procRAM();
    if (run.m_ramMB <= 0) {
        CInstallBase::InstallError(
            QStringLiteral("Unable to determine amount of memory.  Aborting"), 2, 0);
    }
}

// Sets the default paths of the schedulers' commands. The submit command decides on the directory;
// the last directory is the default without a check.
void FindSchedulerCommands(CInstallBase& run) {
    for (const hx::Scheduler& scheduler : hx::schedulers) {
        QString& submit = run.*scheduler.commands.front().path;
        for (const char* directory : scheduler.directories) {
            submit = QLatin1String(directory) + QLatin1String(scheduler.commands.front().name);
            if (directory != scheduler.directories.back() &&
                access(submit.toUtf8().constData(), F_OK) == 0)
                break;
        }
        hx::SetCompanionCommands(run, scheduler);
    }
}

}  // namespace

CInstallBase::CInstallBase(bool allowNonRoot, int argc, char** argv)
    : m_allowNonRoot(allowNonRoot) {
    std::array<char, 2048> directory = {};
    if (CurrentDirectory(argv[0], directory.data(), static_cast<int>(directory.size())) == -1) {
        const int error = errno;
        InstallError(QStringLiteral("Unable to determine current working directory.  Aborting"), 14,
                     error);
    }
    m_binariesDir = QString::fromUtf8(directory.data());
    DecideAccess(*this);
    SetEnvironment(*this);
    MeasureMachine(*this);
    FindSchedulerCommands(*this);
    // Compatibility: before the options, so that -g and -u do not affect the discovery.
    DiscoverServiceUserGroup(m_serviceUser.toUtf8().constData(),
                             m_serviceGroup.toUtf8().constData());
    m_osRelease = new COSRelease(argc, argv);
    m_osName = m_osRelease->Name();
    PreserveSettings();
    ParseArgs(argc, argv);
}

CInstallBase::~CInstallBase() = default;

void CInstallBase::PreserveSettings() {
    const CQueueLimits limits(m_installDir.toUtf8().constData());
    if (limits.m_path.empty())
        return;
    m_prevJobLimit = limits.MaxThreads;
    m_prevMemoryLimitMB = limits.MemoryPerThreadMB;
    m_prevScratchLimitGB = limits.DiskPerThreadGB;
    m_prevScratchDir = QString::fromStdString(limits.Scratch);
    m_threadsPerMolecule = limits.ThreadsPerMolecule;
}

void CInstallBase::PromptQueueAllow() {}

void CInstallBase::VerifyCRuntime() {}
