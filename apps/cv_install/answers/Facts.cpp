#include "answers/Facts.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/magic.h>
#include <pwd.h>
#include <shadow.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "answers/Listeners.h"
#include "answers/SchedulerQueues.h"
#include "answers/StartRun.h"
#include "installation/SetupRun.h"
#include "merge/Accounts.h"
#include "setuprun/Schedulers.h"

namespace {

constexpr std::uint64_t allocationUnit = 4096;

constexpr const char* installAgain = "Install the product again, then run the setup again.";
constexpr const char* makeReadable =
    "Make sure that it exists and that the service account can read it.";

// Below the product directory; empty for an entry that is not made from one of its files.
QString ProductFileOf(const Entry& entry) {
    return QLatin1String(entry.check == Check::Archive ? entry.reference : entry.source);
}

QString SystemText(int error) {
    return QString::fromUtf8(std::strerror(error));
}

// What follows the setup's own rules for its log, its lock and the commit script.
bool IsPlaceChecked(const Entry& entry) {
    switch (entry.item) {
        case Item::CommitScript:
        case Item::RootLog:
        case Item::UserLog:
        case Item::RootLock:
        case Item::UserLock:
        case Item::PrivateDirectory:
            return false;
        default:
            return entry.kind == Kind::Directory || entry.kind == Kind::File ||
                   entry.kind == Kind::Link;
    }
}

std::string NearestDirectory(std::string path) {
    struct stat found = {};
    while (path.size() > 1 && (stat(path.c_str(), &found) != 0 || !S_ISDIR(found.st_mode)))
        path.resize(std::max<size_t>(path.rfind('/'), 1));
    return path;
}

EntryPlace ReadDirectoryPlace(const std::string& directory) {
    EntryPlace place;
    place.directory = NearestDirectory(directory);
    const char* path = place.directory.c_str();
    if (access(path, W_OK | X_OK) != 0)
        place.error = errno;
    struct stat found = {};
    struct statfs system = {};
    if (stat(path, &found) == 0)
        place.device = found.st_dev;
    // Without an answer, the space counts as enough.
    place.free = UINT64_MAX;
    if (statfs(path, &system) == 0) {
        const auto blocks = getuid() == 0 ? system.f_bfree : system.f_bavail;
        place.free = std::uint64_t{blocks} * static_cast<std::uint64_t>(system.f_bsize);
    }
    return place;
}

// What root finds there, without following links in the install tree.
State::Kind KindForRoot(const Entry& entry, int liveTree) {
    const Descriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const int base = IsInTree(entry) ? liveTree : root.Number();
    const std::optional<State> state =
        base == -1
            ? std::nullopt
            : ReadStateAt(base, IsInTree(entry) ? entry.path : entry.path + 1, Reading::Nothing);
    return state ? state->kind : State::Kind::Missing;
}

// What a regular user finds; only whether something is there matters.
State::Kind KindForUser(const std::string& path) {
    struct stat found = {};
    return lstat(path.c_str(), &found) == 0 ? State::Kind::File : State::Kind::Missing;
}

std::uint64_t BytesFor(const Entry& entry, const EntryPlace& place, const QString& product) {
    const bool exists = place.kind != State::Kind::Missing;
    if (entry.kind == Kind::Link || (exists && entry.kind == Kind::Directory))
        return 0;
    const QString file = ProductFileOf(entry);
    struct stat found = {};
    if (file.isEmpty() || stat((product + u'/' + file).toUtf8().constData(), &found) != 0)
        return allocationUnit;
    return (static_cast<std::uint64_t>(found.st_size) + allocationUnit - 1) / allocationUnit *
           allocationUnit;
}

// One target for each directory that cannot be written to, and one for each file system.
std::vector<MachineFacts::Target> FindTargets(const CInstallBase& run, unsigned conditions,
                                              const EntryPlaces& places) {
    std::map<std::string, int> unwritable;
    std::map<dev_t, MachineFacts::Target> systems;
    for (const auto& [entry, place] : places) {
        if (!Applies(*entry, conditions))
            continue;
        // A regular user writes existing files in place.
        const bool isWritten = (conditions & AsUser) == 0 || place.kind == State::Kind::Missing;
        if (place.error != 0 && isWritten) {
            unwritable[place.directory] = place.error;
        }
        if (place.error != 0)
            continue;
        MachineFacts::Target& target = systems[place.device];
        const QString directory = QString::fromStdString(place.directory);
        if (target.path.isEmpty() || IsInTree(*entry))
            target.path = directory;
        target.free = place.free;
        target.needed += BytesFor(*entry, place, run.m_binariesDir);
    }
    std::vector<MachineFacts::Target> targets;
    targets.reserve(unwritable.size() + systems.size());
    for (const auto& [directory, error] : unwritable)
        targets.push_back({.path = QString::fromStdString(directory), .error = error});
    for (const auto& [device, target] : systems)
        targets.push_back(target);
    return targets;
}

QStringList FindObstacles(unsigned conditions, const EntryPlaces& places) {
    QStringList obstacles;
    for (const auto& [entry, place] : places) {
        if (Applies(*entry, conditions) && entry->kind == Kind::Link && !IsInTree(*entry) &&
            place.kind != State::Kind::Missing && place.kind != State::Kind::Link)
            obstacles.append(QLatin1String(entry->path));
    }
    obstacles.sort();
    return obstacles;
}

// Why a file of the product cannot be read; empty if it can.
QString ReasonAgainstFile(const QString& path) {
    const Descriptor file(
        open(path.toUtf8().constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat found = {};
    char first = 0;
    if (!file || fstat(file.Number(), &found) != 0)
        return SystemText(errno);
    if (!S_ISREG(found.st_mode))
        return QStringLiteral("it is not a regular file");
    const ssize_t length = read(file.Number(), &first, 1);
    return length < 0 ? SystemText(errno) : length == 0 ? QStringLiteral("it is empty") : QString();
}

void AddProductFiles(const CInstallBase& run, unsigned conditions, const EntryPlaces& places,
                     MachineFacts& facts) {
    QStringList names;
    for (const auto& [entry, place] : places) {
        // Web pages that exist are kept.
        const bool isKept = entry->check == Check::Archive && place.kind != State::Kind::Missing;
        if (Applies(*entry, conditions) && !isKept)
            names.append(ProductFileOf(*entry));
    }
    names.sort();
    names.removeAll(QString());
    names.removeDuplicates();
    for (const QString& name : names) {
        const QString path = run.m_binariesDir + u'/' + name;
        const QString reason = ReasonAgainstFile(path);
        if (!reason.isEmpty())
            facts.unusableFiles.push_back({"file of the product", path, reason, installAgain});
    }
}

bool AllowsLogin(const QString& shell) {
    const QString name = shell.mid(shell.lastIndexOf(u'/') + 1);
    return shell.isEmpty() || (name != u"nologin" && name != u"false" &&
                               access(shell.toUtf8().constData(), X_OK) == 0);
}

// An account without a password can be used by everyone.
bool IsPassword(const char* field) {
    return field != nullptr && field[0] != '!' && field[0] != '*' && std::strcmp(field, "x") != 0;
}

uid_t FirstUserUid() {
    constexpr uid_t usual = 1000;
    std::ifstream settings("/etc/login.defs");
    for (std::string line; std::getline(settings, line);) {
        std::istringstream words(line);
        std::string key;
        std::string value;
        if (words >> key >> value && key == "UID_MIN")
            return static_cast<uid_t>(std::strtoul(value.c_str(), nullptr, 0));
    }
    return usual;
}

// By an option of this setup, or because an earlier one accepted the choice.
bool IsUserNamed(const Answers& answers) {
    const Answer* user = answers.Find(AnswerId::ServiceUser);
    return user != nullptr && (user->source == AnswerSource::CommandLine ||
                               (user->source == AnswerSource::Record && user->chosen));
}

void AddAccount(const CInstallBase& run, bool isUserNamed, MachineFacts& facts) {
    facts.serviceGroup = run.m_serviceGroup;
    facts.firstUserUid = FirstUserUid();
    if (const passwd* user = getpwnam(run.m_serviceUser.toUtf8().constData())) {
        const QString shell = QString::fromUtf8(user->pw_shell);
        facts.user = {.name = run.m_serviceUser,
                      .uid = user->pw_uid,
                      .shell = shell,
                      .hasShell = AllowsLogin(shell),
                      .hasPassword = IsPassword(user->pw_passwd),
                      .isNamed = isUserNamed};
        if (const spwd* shadow = getspnam(run.m_serviceUser.toUtf8().constData()))
            facts.user->hasPassword = IsPassword(shadow->sp_pwdp);
    }
    if (const group* found = getgrnam(run.m_serviceGroup.toUtf8().constData())) {
        facts.group = {.gid = found->gr_gid, .localMembers = {}};
        ReadLocalMembers(run.m_serviceGroup.toStdString(), facts.group->localMembers);
    }
}

void AddMembers(const CInstallBase& run, const MemberChanges& members, MachineFacts& facts) {
    facts.members = members;
    for (const QString& name : run.m_serviceMembers) {
        if (getpwnam(name.toUtf8().constData()) == nullptr)
            facts.unknownMembers.append(name);
    }
}

// A name without a directory is searched for by its caller.
bool CanExecute(const QString& command) {
    return !command.contains(u'/') || access(command.toUtf8().constData(), X_OK) == 0;
}

void AddScheduler(const CInstallBase& run, MachineFacts& facts) {
    const hx::Scheduler* scheduler = hx::FindScheduler(run);
    if (run.m_queueType != CInstallBase::QueueExternal || scheduler == nullptr)
        return;
    MachineFacts::Scheduler& found = facts.scheduler.emplace();
    found.label = QLatin1String(scheduler->label);
    found.setting = QLatin1String(scheduler->queueSetting);
    bool isComplete = true;
    for (const hx::SchedulerCommand& command : scheduler->commands) {
        if (CanExecute(run.*command.path))
            continue;
        // Not every scheduler with Torque's commands can send signals to jobs.
        const bool isNeeded = command.path != &CInstallBase::m_qsigCmd;
        found.missingCommands.push_back({QLatin1String(command.name), run.*command.path, isNeeded});
        isComplete = isComplete && !isNeeded;
    }
    if (!isComplete)
        return;
    found.queue = run.*scheduler->queue;
    if (!found.queue.isEmpty())
        found.knownQueues = FindKnownQueues(run, found.reason);
}

struct Listening {
    const char* protocol;
    QString CInstallBase::*address;
    int CInstallBase::*port;
};
constexpr Listening listenings[] = {
    {"HTTP", &CInstallBase::m_compSrvcHttpAddr, &CInstallBase::m_compSrvcHttpPort},
    {"HTTPS", &CInstallBase::m_compSrvcHttpsAddr, &CInstallBase::m_compSrvcHttpsPort},
};

void AddPorts(const CInstallBase& run, MachineFacts& facts) {
    const uid_t serviceUser = facts.user ? facts.user->uid : static_cast<uid_t>(-1);
    for (const Listening& listening : listenings) {
        if (!HasProtocol(run, listening.protocol))
            continue;
        const int port = run.*listening.port;
        const std::string holder =
            FindPortHolder((run.*listening.address).toStdString(), port, serviceUser);
        if (!holder.empty()) {
            facts.takenPorts.push_back({QString(QLatin1String(listening.protocol)).toLower(), port,
                                        QString::fromStdString(holder)});
        }
    }
}

// Returns the error number of an access to a regular file, or 0. Runs in a process of its own.
// `account` is empty if only its existence matters.
int TryFile(const std::string& path, const passwd* account, gid_t groupId) {
    if (account != nullptr && (initgroups(account->pw_name, account->pw_gid) != 0 ||
                               setgid(groupId) != 0 || setuid(account->pw_uid) != 0))
        return errno;
    struct stat found = {};
    if (stat(path.c_str(), &found) != 0)
        return errno;
    if (!S_ISREG(found.st_mode))
        return EINVAL;
    return access(path.c_str(), account == nullptr ? F_OK : R_OK) == 0 ? 0 : errno;
}

// As TryFile, with `directory` as the working directory unless it is -1. A file server may not
// answer, so a child process waits for it.
int TryFileWithin10Seconds(const std::string& path, int directory, const passwd* account,
                           gid_t groupId) {
    const pid_t child = fork();
    if (child == -1)
        return errno;
    if (child == 0)
        _exit(directory != -1 && fchdir(directory) != 0 ? errno : TryFile(path, account, groupId));
    int status = 0;
    constexpr int mostTries = 1000;
    for (int i = 0; waitpid(child, &status, WNOHANG) == 0; ++i) {
        if (i == mostTries) {
            kill(child, SIGKILL);
            return ETIMEDOUT;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : EIO;
}

void AddCertificate(const CInstallBase& run, int liveTree, MachineFacts& facts) {
    if (!HasProtocol(run, "HTTPS"))
        return;
    const passwd* account =
        facts.user && facts.group ? getpwnam(facts.user->name.toUtf8().constData()) : nullptr;
    const gid_t groupId = facts.group ? facts.group->gid : 0;
    const std::pair<const char*, QString> files[] = {{"certificate file", run.m_compSrvcCert},
                                                     {"key file", run.m_compSrvcKey}};
    for (const auto& [kind, name] : files) {
        // The service runs in the top directory.
        const QString path = name.startsWith(u'/') ? name : u'/' + name;
        const QString inside = run.m_installDir + u'/';
        const bool isInside = path.startsWith(inside) && liveTree != -1;
        const int error =
            TryFileWithin10Seconds((isInside ? path.mid(inside.size()) : path).toStdString(),
                                   isInside ? liveTree : -1, account, groupId);
        if (error != 0) {
            facts.unusableFiles.push_back(
                {kind, path,
                 error == EINVAL ? QStringLiteral("it is not a regular file") : SystemText(error),
                 makeReadable});
        }
    }
}

void AddScratch(const CInstallBase& run, MachineFacts& facts) {
    facts.scratchDirectory = run.m_scratchDir;
    struct statfs system = {};
    if (statfs(run.m_scratchDir.toUtf8().constData(), &system) != 0)
        return;
    facts.scratch.isInMemory = system.f_type == TMPFS_MAGIC || system.f_type == RAMFS_MAGIC;
    facts.scratch.size =
        std::uint64_t{system.f_blocks} * static_cast<std::uint64_t>(system.f_bsize);
    facts.scratch.promised =
        (static_cast<std::uint64_t>(std::max(run.m_scratchLimitGB, 0)) << 30U) *
        static_cast<std::uint64_t>(std::max(run.m_jobLimit, 0));
}

}  // namespace

EntryPlaces ReadEntryPlaces(const std::string& installDir, int liveTree) {
    EntryPlaces places;
    std::map<std::string, EntryPlace> directories;
    const bool isRoot = getuid() == 0;
    for (const Entry& entry : Entries()) {
        // A user's record is optional.
        if (!IsPlaceChecked(entry) || entry.path[0] == '~')
            continue;
        const std::string path = PathOf(entry, installDir);
        // Root places everything in the install tree through its top directory.
        const std::string directory = IsInTree(entry) && (isRoot || path == installDir)
                                          ? installDir
                                          : path.substr(0, path.rfind('/'));
        const auto [at, isNew] = directories.try_emplace(directory);
        if (isNew)
            at->second = ReadDirectoryPlace(directory);
        places[&entry] = at->second;
        places[&entry].kind = isRoot ? KindForRoot(entry, liveTree) : KindForUser(path);
    }
    return places;
}

MachineFacts FindFacts(const CInstallBase& run, const Answers& answers,
                       const MemberChanges& members, const EntryPlaces& places, int liveTree) {
    const unsigned conditions = ConditionsOf(run, answers);
    MachineFacts facts;
    if (IsRootSetup(run)) {
        AddAccount(run, IsUserNamed(answers), facts);
        AddMembers(run, members, facts);
        facts.obstacles = FindObstacles(conditions, places);
    }
    facts.targets = FindTargets(run, conditions, places);
    AddProductFiles(run, conditions, places, facts);
    AddScheduler(run, facts);
    if (Applies(Find(Item::Unit), conditions)) {
        AddPorts(run, facts);
        AddCertificate(run, liveTree, facts);
    }
    AddScratch(run, facts);
    return facts;
}
