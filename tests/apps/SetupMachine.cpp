#include "apps/SetupMachine.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iomanip>
#include <regex>
#include <set>
#include <sstream>

#include "apps/Leaks.h"
#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"
#include "setuprun/CInstallBase.h"

namespace fs = std::filesystem;

namespace hx_test {
namespace {

// Stands for systemctl and service. Exit statuses are those of systemctl.
constexpr const char* serviceTool = R"sh(#!/bin/sh
cd /run/hx_services || exit 1
echo "${0##*/} $*" >> calls
verb=$1
for unit
do
    name=${unit%.service}
done
case ${0##*/} in
service)
    name=$1
    verb=$2;;
esac
case $verb in
is-active|status) [ -e "active/$name" ] || exit 3;;
start|restart) : > "active/$name";;
stop) rm -f "active/$name";;
enable|disable) exec env SYSTEMD_OFFLINE=1 /usr/bin/systemctl.real "$@";;
esac
exit 0
)sh";

void AddProgram(const std::string& path, const std::string& text) {
    fs::remove(path);
    WriteFile(path, text);
    fs::permissions(path, fs::perms(0755));
}

// In a process of its own, as in cv_install.
void WriteBareScript(const SetupKind& kind, const std::string& answers, const std::string& path) {
    const pid_t child = fork();
    if (child == 0) {
        EXPECT_NE(std::freopen(answers.c_str(), "r", stdin), nullptr);
        EXPECT_NE(std::freopen("/dev/null", "w", stdout), nullptr);
        umask(022);
        std::vector<std::string> words = {"/opt/corvane26/cv_install", "--setup"};
        words.insert(words.end(), kind.options.begin(), kind.options.end());
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        CInstallBase run(false, static_cast<int>(words.size()), argv.data());
        run.m_interactive = *kind.answers != '\0';
        if (!run.m_interactive && run.m_queueType == CInstallBase::QueueUnset)
            run.m_queueType = CInstallBase::QueueInternal;
        run.PromptJobLimit();
        run.PromptMemoryLimit();
        run.PromptScratchDirectory();
        run.PromptScratchLimit();
        run.PromptQueueType();
        run.PromptComputeServiceGroupMembers();
        QString script;
        const bool written = run.WriteCommitScript(script, false);
        if (written)
            fs::rename(script.toStdString(), path);
        _exit(written ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

bool IsIgnored(const std::string& path) {
    static const std::set<std::string> ignored = {
        "/run/corvane26_setup.lock", "/var/log/corvane26_setup.log", runningServices + "/calls"};
    return ignored.contains(path);
}

PathState StateAt(const std::string& path) {
    struct stat found = {};
    if (lstat(path.c_str(), &found) != 0)
        return {};
    PathState state;
    state.mode = found.st_mode;
    state.owner = found.st_uid;
    state.group = found.st_gid;
    if (S_ISLNK(found.st_mode))
        state.target = fs::read_symlink(path);
    std::ostringstream times;
    times << found.st_mtim.tv_sec << '.' << found.st_mtim.tv_nsec << ' ' << found.st_ctim.tv_sec
          << '.' << found.st_ctim.tv_nsec;
    state.times = times.str();
    return state;
}

// Digests by path.
std::map<std::string, std::string> DigestsOf(const std::vector<std::string>& files) {
    ProcessOptions options;
    for (const std::string& file : files)
        options.input += file + '\0';
    const std::string out = Run({"xargs", "-0r", "/usr/bin/sha256sum", "-z", "--"}, options).out;
    std::map<std::string, std::string> digests;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line, '\0');)
        digests[line.substr(66)] = line.substr(0, 64);
    return digests;
}

const char* KindOf(mode_t mode) {
    return S_ISREG(mode)   ? "file"
           : S_ISDIR(mode) ? "directory"
           : S_ISLNK(mode) ? "link"
                           : "special";
}

}  // namespace

const char* const earlierVersion = R"sh(
set -e
umask 022
groupadd corvsrvc
useradd --system --gid corvsrvc --home-dir /var/corvane --shell /sbin/nologin corvsrvc
cd /var && mkdir -p corvane/corvanerc/corvane24server/CorvaneServerRepository/jobs
printf '1 chem waiting\n' > corvane/QueueEntries
printf 'MaxThreads: 1\nMemoryPerThreadMB: 512\nScratch: /srv\nDiskPerThreadGB: 1\nThreadsPerMolecule: 1\n' \
    > corvane/QueueLimits
printf 'old run script\n' > corvane/corvane26
chmod 666 corvane/QueueEntries
chmod 664 corvane/QueueLimits
chmod 755 corvane/corvane26
chown -R corvsrvc:corvsrvc corvane
ln -s /opt/corvane24/corvane /usr/bin/corvane26
mkdir -p /etc/init.d
printf '#!/bin/sh\nexit 0\n' > /etc/init.d/corvane_service
chmod 755 /etc/init.d/corvane_service
for version in 20 24
do
    printf '[Service]\nExecStart=/bin/true\n[Install]\nWantedBy=multi-user.target\n' \
        > /etc/systemd/system/corvane${version}_service.service
    systemctl enable corvane${version}_service.service 2> /dev/null
done
systemctl start corvane24_service.service
service corvane_service start
)sh";

void LayOutMachine() {
    LayOutRootSetup();
    Shell(
        "rm -rf /etc/corvane26 /etc/systemd/system/*.wants/corvane* /var/log/corvane26* "
        "/run/corvane26*; useradd -m ann; useradd -m bob");
    fs::remove_all(runningServices);
    fs::create_directories(runningServices + "/active");
    TakeServiceCalls();
    fs::rename("/usr/bin/systemctl", "/usr/bin/systemctl.real");
    AddProgram("/usr/bin/systemctl", serviceTool);
    AddProgram("/usr/sbin/service", serviceTool);
}

std::vector<std::string> TakeServiceCalls() {
    const std::string path = runningServices + "/calls";
    std::vector<std::string> calls = LinesOf(ReadFile(path));
    WriteFile(path, "");
    return calls;
}

std::vector<std::string> SetupCommand(const SetupKind& kind, const std::vector<std::string>& more) {
    std::vector<std::string> command = {"/opt/corvane26/cv_install", "--setup"};
    if (*kind.answers == '\0')
        command.emplace_back("--yes");
    command.insert(command.end(), kind.options.begin(), kind.options.end());
    command.insert(command.end(), more.begin(), more.end());
    return command;
}

ProcessResult RunSetup(const SetupKind& kind, const std::vector<std::string>& more) {
    ProcessOptions options;
    options.workingDirectory = "/";
    options.env["LSAN_OPTIONS"] = LeakOptions(HX_LEAK_SUPPRESSIONS);
    if (*kind.answers != '\0')
        options.input = std::string(kind.answers) + "\n\n\ny\n";  // pauses and the confirmation
    return Run(SetupCommand(kind, more), options);
}

void RunBareScript(const SetupKind& kind) {
    const std::string script = "/run/hx_bare_script";
    const std::string answers = "/run/hx_answers";
    WriteFile(answers, kind.answers);
    // The library does not know this option.
    SetupKind bare = kind;
    std::erase(bare.options, "--submission-scripts");
    WriteBareScript(bare, answers, script);
    ProcessOptions options;
    options.workingDirectory = "/";
    const auto result =
        Run({"env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "/bin/bash", script}, options);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    fs::remove(script);
    fs::remove(answers);
}

std::string PathState::Text() const {
    if (mode == 0)
        return "missing";
    std::ostringstream text;
    text << KindOf(mode) << ' ' << std::oct << (mode & 07777U) << std::dec << ' ' << owner << ':'
         << group;
    if (!target.empty())
        text << " -> " << target;
    if (!sha256.empty())
        text << ' ' << sha256;
    return text.str();
}

MachineState StateOfTouchedPaths() {
    MachineState machine;
    std::vector<std::string> files;
    for (const std::string& path : TouchedPaths()) {
        if (IsIgnored(path))
            continue;
        const PathState& state = machine[path] = StateAt(path);
        if (S_ISREG(state.mode))
            files.push_back(path);
    }
    for (const auto& [path, digest] : DigestsOf(files))
        machine[path].sha256 = digest;
    return machine;
}

PathState StateInCopiedRoot(const std::string& path) {
    const std::string copied = CopiedRoot() + path;
    PathState state = StateAt(copied);
    if (S_ISREG(state.mode))
        state.sha256 = DigestsOf({copied})[copied];
    return state;
}

std::vector<PathChange> ChangesBetween(const MachineState& before, const MachineState& after) {
    std::vector<PathChange> changes;
    for (const auto& [path, is] : after) {
        const auto found = before.find(path);
        changes.push_back(
            {path, found == before.end() ? StateInCopiedRoot(path) : found->second, is});
    }
    // What was created and removed again leaves no trace.
    for (const auto& [path, was] : before) {
        if (!after.contains(path))
            changes.push_back({path, was, {}});
    }
    std::erase_if(changes, [](const PathChange& change) {
        return change.before.Text() == change.after.Text() &&
               change.before.times == change.after.times;
    });
    return changes;
}

std::vector<std::string> OtherProcesses() {
    std::vector<std::string> processes;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string number = entry.path().filename();
        if (number.find_first_not_of("0123456789") != std::string::npos ||
            number == std::to_string(getpid()))
            continue;
        // The first process does not wait for all.
        const std::string text = ReadFile(entry.path() / "stat");
        if (!text.empty() && text.find(") Z ") == std::string::npos)
            processes.push_back(text);
    }
    return processes;
}

std::vector<std::string> TracesOf(const MachineState& before) {
    std::vector<std::string> lines;
    for (const PathChange& change : ChangesBetween(before, StateOfTouchedPaths())) {
        for (const PathState& state : {change.before, change.after})
            lines.push_back(change.path + ' ' + state.Text() + ' ' + state.times);
    }
    for (const std::string& process : OtherProcesses())
        lines.push_back("process " + process);
    return lines;
}

std::vector<std::string> AccountLines() {
    static const std::regex date("^([^:]*:[^:]*:)[0-9]*:");
    std::vector<std::string> lines;
    for (const std::string name : {"passwd", "group", "gshadow", "shadow"}) {
        for (const std::string& line : LinesOf(ReadFile("/etc/" + name)))
            lines.push_back("/etc/" + name + ' ' +
                            (name == "shadow" ? std::regex_replace(line, date, "$1DATE:") : line));
    }
    return lines;
}

std::string ResultInRoot(const std::function<std::string()>& body) {
    const int file = memfd_create("result", 0);
    ExpectScenario([&] {
        const std::string result = body();
        EXPECT_EQ(write(file, result.data(), result.size()), static_cast<ssize_t>(result.size()));
    });
    const std::string result = ReadFile("/proc/self/fd/" + std::to_string(file));
    close(file);
    return result;
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string JoinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + '\n';
    return text;
}

}  // namespace hx_test
