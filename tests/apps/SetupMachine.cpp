#include "apps/SetupMachine.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iomanip>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "apps/Leaks.h"
#include "apps/RootSetup.h"
#include "harness/Pattern.h"
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
is-active|status)
    [ -e "active/$name" ] || { echo inactive; exit 3; }
    echo active;;
start|restart) : > "active/$name";;
stop) rm -f "active/$name";;
enable|disable) exec env SYSTEMD_OFFLINE=1 /usr/bin/systemctl.real "$@";;
esac
exit 0
)sh";

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
        // The setup repeats the job limit of the previous one, which the library does not offer.
        if (run.m_prevJobLimit > 0)
            run.m_coreCount = run.m_prevJobLimit;
        run.PromptJobLimit();
        run.InstallPause();
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

// Without the digest.
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

// `root` comes before the paths.
void AddDigests(MachineState& machine, const std::string& root) {
    std::vector<std::string> files;
    for (const auto& [path, state] : machine) {
        if (S_ISREG(state.mode))
            files.push_back(root + path);
    }
    for (const auto& [file, digest] : DigestsOf(files))
        machine[file.substr(root.size())].sha256 = digest;
}

// The states of paths before anything was written to them.
MachineState StatesInCopiedRoot(const std::vector<std::string>& paths) {
    const std::string root = CopiedRoot();
    MachineState machine;
    for (const std::string& path : paths)
        machine[path] = StateAt(root + path);
    AddDigests(machine, root);
    return machine;
}

const char* KindOf(mode_t mode) {
    return S_ISREG(mode)   ? "file"
           : S_ISDIR(mode) ? "directory"
           : S_ISLNK(mode) ? "link"
                           : "special";
}

// Paths in which a setup differs from the bare script.
struct ExceptedPaths {
    const char* pattern;
    const char* reason;
};
const ExceptedPaths exceptedPaths[] = {
    {"/etc/corvane26(/service)?", "the setup records the service account"},
    {"/var/lib/corvane26(/.*)?", "the setup records its answers"},
    {"/var/corvane/qchemrc(/.*)?", "the setup writes Q-Chem files before the script"},
    {"/var/corvane/corvane26_(samba|ssh)", "the setup writes these scripts before the script"},
    {"/etc/(passwd|group|shadow|gshadow|subuid|subgid)-",
     "backups hold the state before the last "
     "of several account tools"},
    {"/etc/(passwd|group|shadow|gshadow)", "compared line by line, without dates"},
};

bool IsExcepted(const std::string& path) {
    return std::any_of(std::begin(exceptedPaths), std::end(exceptedPaths),
                       [&](const ExceptedPaths& row) { return IsMatch(path, row.pattern); });
}

}  // namespace

// Answers: job limit, memory limit, scratch directory, scratch limit, queue, members.
const SetupKind internalQueue = {"InternalQueue", {"--internal-default-queue"}};
const SetupKind slurm = {"Slurm", {"-p", "chem"}};
const SetupKind torqueWithSubmissionScripts = {"TorqueWithSubmissionScripts",
                                               {"-q", "batch", "--submission-scripts"}};
const SetupKind clusterNode = {"ClusterNode", {"--cluster-node"}};
const SetupKind withMembers = {"Members", {}, "2\n600\n/tmp\n3\n1\nann,bob\n"};
const SetupKind withOtherMembers = {"OtherMembers", {}, "2\n600\n/tmp\n3\n1\nbob,carl\n"};

namespace {

const SetupKind otherAnswers = {"OtherAnswers", {}, "1\n500\n/srv\n2\n1\nann,bob\n"};

constexpr const char* earlierVersion = R"sh(
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

}  // namespace

void AddProgram(const std::string& path, const std::string& text) {
    fs::remove(path);
    WriteFile(path, text);
    fs::permissions(path, fs::perms(0755));
}

static void LayOutMachine() {
    LayOutRootSetup();
    // Without the files, the first change below a directory would change its times.
    Shell(
        "rm -rf /etc/systemd/system/*.wants/corvane* /var/log/corvane26* /run/corvane26*;"
        "useradd -m ann; useradd -m bob; useradd -m carl;"
        "touch /var/log/corvane26 /run/corvane26; rm /var/log/corvane26 /run/corvane26;"
        "for name in qsub qdel qsig; do ln -sf /bin/true /usr/local/bin/$name; done");
    fs::remove_all(runningServices);
    fs::create_directories(runningServices + "/active");
    TakeServiceCalls();
    fs::rename("/usr/bin/systemctl", "/usr/bin/systemctl.real");
    AddProgram("/usr/bin/systemctl", serviceTool);
    AddProgram("/usr/sbin/service", serviceTool);
}

void PrepareMachine(const SetupKind& kind, Before before) {
    LayOutMachine();
    if (before == Before::SameSetup)
        RunBareScript(kind);
    if (before == Before::OtherAnswers)
        RunBareScript(otherAnswers);
    if (before == Before::EarlierVersion) {
        EXPECT_EQ(Shell(std::string("exec 2>&1;") + earlierVersion), "");
    }
    TakeServiceCalls();
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
        options.input = std::string(kind.answers) + "y\n";
    return Run(SetupCommand(kind, more), options);
}

void RunBareScript(const SetupKind& kind) {
    const std::string script = "/run/hx_bare_script";
    const std::string answers = "/run/hx_answers";
    // The library pauses after each answer.
    WriteFile(answers, ReplaceMatches(kind.answers, "\n", "\n\n"));
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
    for (const std::string& path : TouchedPaths()) {
        if (!IsIgnored(path))
            machine[path] = StateAt(path);
    }
    AddDigests(machine, "");
    return machine;
}

std::vector<PathChange> ChangesBetween(const MachineState& before, const MachineState& after) {
    std::vector<std::string> firstTouched;
    for (const auto& [path, is] : after) {
        if (!before.contains(path))
            firstTouched.push_back(path);
    }
    MachineState all = StatesInCopiedRoot(firstTouched);
    all.insert(before.begin(), before.end());
    std::vector<PathChange> changes;
    for (const auto& [path, is] : after)
        changes.push_back({path, all[path], is});
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

void WaitForOtherProcesses() {
    for (int i = 0; i < 1000 && !OtherProcesses().empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

std::vector<std::string> TracesOf(const MachineState& before,
                                  const std::set<std::string>& directories) {
    std::vector<std::string> lines;
    for (const PathChange& change : ChangesBetween(before, StateOfTouchedPaths())) {
        if (directories.contains(change.path) && change.before.Text() == change.after.Text())
            continue;
        for (const PathState& state : {change.before, change.after})
            lines.push_back(change.path + ' ' + state.Text() + ' ' + state.times);
    }
    for (const std::string& process : OtherProcesses())
        lines.push_back("process " + process);
    return lines;
}

std::vector<std::string> AccountLines() {
    std::vector<std::string> lines;
    for (const std::string name : {"passwd", "group", "gshadow", "shadow"}) {
        for (const std::string& line : LinesOf(ReadFile("/etc/" + name)))
            lines.push_back("/etc/" + name + ' ' +
                            (name == "shadow"
                                 ? ReplaceMatches(line, "^([^:]*:[^:]*:)[0-9]*:", "$1DATE:")
                                 : line));
    }
    return lines;
}

std::string WholeMachine() {
    std::vector<std::string> lines = AccountLines();
    for (const PathChange& change : ChangesBetween({}, StateOfTouchedPaths())) {
        if (!IsExcepted(change.path) && change.before.Text() != change.after.Text())
            lines.push_back(change.path + ' ' + change.after.Text());
    }
    return JoinLines(lines);
}

std::vector<std::string> DifferingLines(const std::string& expected, const std::string& found) {
    const auto one = LinesOf(expected);
    const auto other = LinesOf(found);
    std::multiset<std::string> missing(one.begin(), one.end());
    std::multiset<std::string> surplus(other.begin(), other.end());
    for (const std::string& line : one) {
        if (const auto at = surplus.find(line); at != surplus.end()) {
            surplus.erase(at);
            missing.erase(missing.find(line));
        }
    }
    std::vector<std::string> lines;
    for (const std::string& line : missing)
        lines.push_back("missing: " + line);
    for (const std::string& line : surplus)
        lines.push_back("surplus: " + line);
    return lines;
}

std::vector<std::string> DifferencesFrom(const WholeState& before) {
    static const std::regex accountFile("/etc/(passwd|group|shadow|gshadow|subuid|subgid)-?");
    std::vector<std::string> lines =
        DifferingLines(JoinLines(before.accounts), JoinLines(AccountLines()));
    for (const PathChange& change : ChangesBetween(before.paths, StateOfTouchedPaths())) {
        if (!std::regex_match(change.path, accountFile) &&
            change.before.Text() != change.after.Text())
            lines.push_back(change.path + ": " + change.before.Text() + " => " +
                            change.after.Text());
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
