// A machine for complete setups as root, its state before and after, and what the bare commit
// script makes of it. For bodies of RunInThrowawayRoot.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "harness/Process.h"

namespace hx_test {

// A command line of a setup as root, and the answers on its standard input.
struct SetupKind {
    const char* name;
    std::vector<std::string> options;
    const char* answers = "";  // with answers, the setup is interactive
};

extern const SetupKind internalQueue, slurm, torqueWithSubmissionScripts, clusterNode, withMembers,
    withOtherMembers;

// What was on the machine before: nothing of Corvane, or what the bare script makes, or an earlier
// version with jobs, limits, and services, two of them active.
enum class Before { Nothing, SameSetup, OtherAnswers, EarlierVersion };

// Lays out a machine. Stand-ins for systemctl and service keep in `runningServices` what is active;
// units are enabled by the real systemctl. The product is in /opt/corvane26; there are users ann
// and bob.
void PrepareMachine(const SetupKind& kind, Before before);
inline const std::string runningServices = "/run/hx_services";

void AddProgram(const std::string& path, const std::string& text);

// Calls of the stand-ins so far, such as "systemctl daemon-reload". Clears them.
std::vector<std::string> TakeServiceCalls();

// The command line of a setup, without its answers.
std::vector<std::string> SetupCommand(const SetupKind& kind,
                                      const std::vector<std::string>& more = {});
ProcessResult RunSetup(const SetupKind& kind, const std::vector<std::string>& more = {});

// Lets the library write the commit script for the same answers, and runs it with bash.
void RunBareScript(const SetupKind& kind);

// What is at a path.
struct PathState {
    mode_t mode = 0;  // with the kind; 0: missing
    uid_t owner = 0;
    gid_t group = 0;
    std::string target;  // of a link
    std::string sha256;  // of a file, by the tool sha256sum
    std::string times;   // of the last modification and the last change of the inode

    // In one line, without the times.
    std::string Text() const;
};
using MachineState = std::map<std::string, PathState>;

// The state of every path that was written to since the throwaway root was made, except the log and
// the lock of setups, and the calls of the stand-ins.
MachineState StateOfTouchedPaths();

struct PathChange {
    std::string path;
    PathState before;
    PathState after;
};

// The paths whose state or times differ. Paths that `before` lacks were as in the copied root.
std::vector<PathChange> ChangesBetween(const MachineState& before, const MachineState& after);

// The processes of the throwaway root except this one, as in /proc/PID/stat.
std::vector<std::string> OtherProcesses();

// Waits until there are none, for at most 10 seconds.
void WaitForOtherProcesses();

// What an operation that must leave nothing has left: changed paths, also only in times, and
// processes. Leaves out the times of some directories.
std::vector<std::string> TracesOf(const MachineState& before,
                                  const std::set<std::string>& directories = {});

// Where a setup that fails leaves its lock and its log.
inline const std::set<std::string> logDirectories = {"/run", "/var/log"};

// Everything on the machine that differs from the copied root, in lines, without times. Leaves out
// in what setups always differ from the bare script.
std::string WholeMachine();

// The lines that only one of two texts has.
std::vector<std::string> DifferingLines(const std::string& expected, const std::string& found);

// Every line of passwd, group, gshadow and shadow, without the dates of shadow.
std::vector<std::string> AccountLines();

// Everything that a setup, its undo or its removal can touch.
struct WholeState {
    MachineState paths = StateOfTouchedPaths();
    std::vector<std::string> accounts = AccountLines();
};

// In what the machine differs from `before`, in lines that begin with a path and a colon, or are
// about an account. The account tools replace their files, and keep the former ones.
std::vector<std::string> DifferencesFrom(const WholeState& before);

// Runs the body in a throwaway root and returns what it returned.
std::string ResultInRoot(const std::function<std::string()>& body);

std::vector<std::string> LinesOf(const std::string& text);
std::string JoinLines(const std::vector<std::string>& lines);

}  // namespace hx_test
