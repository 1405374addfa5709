// Setups as root, their repair, undo and removal while others change the machine: another setup,
// users who submit jobs, and members of the service group who exchange files.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <random>
#include <thread>
#include <tuple>

#include "apps/RootSetup.h"
#include "apps/SetupMachine.h"
#include "harness/Effort.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

using namespace hx_test;

// A child of the test that runs `body` as a user until it is stopped.
class OtherUser {
public:
    OtherUser(const char* name, const std::function<void()>& body) {
        const passwd* user = getpwnam(name);
        m_process = fork();
        if (m_process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (user == nullptr || initgroups(name, user->pw_gid) != 0 ||
                setgid(user->pw_gid) != 0 || setuid(user->pw_uid) != 0)
                _exit(1);
            body();
            _exit(0);
        }
    }
    ~OtherUser() { Stop(); }
    OtherUser(const OtherUser&) = delete;
    OtherUser& operator=(const OtherUser&) = delete;

    void Stop() {
        if (m_process > 0) {
            kill(m_process, SIGKILL);
            Wait();
        }
    }

    int Wait() {
        int status = -1;
        waitpid(m_process, &status, 0);
        m_process = -1;
        return status;
    }

private:
    pid_t m_process = -1;
};

std::string ResultOf(const std::vector<SetupKind>& setups) {
    return ResultInRoot([&] {
        PrepareMachine(internalQueue, Before::EarlierVersion);
        for (const SetupKind& setup : setups)
            EXPECT_EQ(RunSetup(setup).status, 0);
        return WholeMachine();
    });
}

struct AtOnce {
    int waiting;  // seconds
    std::multiset<int> statuses;
};

TEST(StagedRaces, OneOfTwoSetupsEndsOrWaits) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const AtOnce ways[] = {{0, {0, 64}}, {60, {0, 0}}};
    for (const AtOnce& way : TriedRows(ways)) {
        const bool both = way.waiting > 0;
        const std::vector<std::string> wait = {"--wait", std::to_string(way.waiting)};
        const std::string one =
            ResultOf(both ? std::vector{internalQueue, slurm} : std::vector{slurm});
        const std::string other =
            ResultOf(both ? std::vector{slurm, internalQueue} : std::vector{internalQueue});
        for (int round = 0; round < RaceRounds(); ++round) {
            const std::string result = ResultInRoot([&] {
                PrepareMachine(internalQueue, Before::EarlierVersion);
                int second = -1;
                std::thread thread([&] { second = RunSetup(slurm, wait).status; });
                const int first = RunSetup(internalQueue, wait).status;
                thread.join();
                EXPECT_EQ((std::multiset<int>{first, second}), way.statuses);
                return WholeMachine();
            });
            EXPECT_TRUE(result == one || result == other)
                << JoinLines(DifferingLines(one, result)) << "or\n"
                << JoinLines(DifferingLines(other, result));
        }
    }
}

const std::string queueEntries = "/var/corvane/QueueEntries";

// Every line is appended by an open of its own, as a run script does.
void AppendLines(size_t count, const char* tag) {
    for (size_t i = 0; i < count; ++i) {
        const std::string line = std::string(tag) + ' ' + std::to_string(i) + '\n';
        const int file = open(queueEntries.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        if (file == -1 ||
            write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            _exit(2);
        close(file);
        if (i % 100 == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

TEST(StagedRaces, LoseNoLineOfQueueEntries) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine(internalQueue, Before::SameSetup);
        const int setups = RaceRounds();
        const size_t lines = 2500 * static_cast<size_t>(setups);
        size_t expected = 0;
        for (int round = 0; round < setups; ++round) {
            OtherUser ann("ann", [] { AppendLines(1250, "ann"); });
            OtherUser bob("bob", [] { AppendLines(1250, "bob"); });
            // Every second one gives the file another mode first, which the setup sets again.
            if (round % 2 == 1)
                Shell("chmod 646 " + queueEntries);
            const auto setup = RunSetup(internalQueue, {"-m", std::to_string(600 + round)});
            EXPECT_EQ(setup.status, 0) << setup.out << setup.err;
            EXPECT_EQ(ann.Wait(), 0);
            EXPECT_EQ(bob.Wait(), 0);
            expected += 2500;
        }
        EXPECT_EQ(expected, lines);
        EXPECT_EQ(Shell("cat /var/corvane/QueueEntries* | grep -c '^ann [0-9]*$'"),
                  std::to_string(lines / 2));
        EXPECT_EQ(Shell("cat /var/corvane/QueueEntries* | grep -c '^bob [0-9]*$'"),
                  std::to_string(lines / 2));
        EXPECT_EQ(Shell("ls /var/corvane | grep -c QueueEntries"), "1");
        EXPECT_EQ(Shell("stat -c %a " + queueEntries), "666");
    });
}

struct Attack {
    const char* name;
    std::vector<const char*> files;  // relative to the install directory
    const char* planted;             // shell commands that make "$1", a new name in it
};

const Attack attacks[] = {
    {"Unit",
     {"corvane26_service.service"},
     "echo \"[Service]\nExecStart=/hostile\" > \"$1\"; chmod 666 \"$1\""},
    {"LinksToVictim",
     {"corvane26", "corvane26_snapshot", "corvane26_service.service", "QueueLimits"},
     "ln -s /srv/victim \"$1\""},
    {"LinkToVictimAsQueueEntries", {"QueueEntries"}, "ln -s /srv/victim \"$1\""},
    {"Pipes", {"corvane26", "QueueLimits", "QueueEntries"}, "mkfifo \"$1\""},
    {"LinkToVictimsDirectory", {"corvanerc"}, "ln -s /srv/private \"$1\""},
};

// Puts a planted entry in the place of each of the files, whenever something happens in the tree.
void ExchangeForever(const Attack& attack) {
    const int events = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(events, "/var/corvane",
                      IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ATTRIB | IN_MODIFY |
                          IN_CLOSE_WRITE | IN_OPEN);
    alignas(inotify_event) std::array<char, 8192> buffer = {};
    for (int number = 0;; ++number) {
        if (read(events, buffer.data(), buffer.size()) <= 0)
            return;
        for (const char* file : attack.files) {
            const std::string target = std::string("/var/corvane/") + file;
            const std::string planted = "/var/corvane/planted" + std::to_string(number % 64) + file;
            // Prepared, because a race is won by a single call.
            if (renameat2(AT_FDCWD, planted.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) !=
                0)
                rename(planted.c_str(), target.c_str());
        }
    }
}

void PlantEntries(const Attack& attack) {
    std::string files;
    for (const char* file : attack.files)
        files += std::string(" ") + file;
    Shell(
        "setpriv --reuid=ann --regid=ann --init-groups sh -c 'cd /var/corvane; "
        "for number in $(seq 0 63); do for file in" +
        files + "; do set -- planted$number$file; " + attack.planted + "; done; done'");
}

// What root does meanwhile, after a setup.
struct AttackedAction {
    const char* name;
    const char* prepares;  // shell commands
    const char* option;    // of the action; null: another setup
    bool removesUnit = false;
};

constexpr const char* damages =
    "cd /var/corvane && rm corvane26_snapshot corvane26_service.service && echo >> corvane26 && "
    "chmod 600 QueueLimits qchemrc && chown -R ann corvanerc/corvane26server/icons && "
    "chmod 640 /etc/systemd/system/corvane26_service.service";

const AttackedAction attackedActions[] = {
    {"Setup", ":", nullptr},
    {"Repair", damages, "--repair"},
    {"Undo", ":", "--undo"},
    {"Removal", ":", "--remove", true},
};

using AttackNumbers = std::tuple<size_t, size_t>;

class ExchangedFiles : public testing::TestWithParam<AttackNumbers> {};

// Returns the exit status.
int RunAttacked(const Attack& attack, const AttackedAction& action) {
    ProcessOptions options;
    options.workingDirectory = "/";
    OtherUser member("ann", [&] { ExchangeForever(attack); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto began = std::chrono::steady_clock::now();
    const ProcessResult result =
        action.option == nullptr
            ? RunSetup(internalQueue, {"-m", "999"})
            : Run({"/opt/corvane26/cv_install", action.option, "--yes"}, options);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(60));
    return result.status;
}

TEST_P(ExchangedFiles, ReachNothingOutsideTree) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const Attack& attack = attacks[std::get<0>(GetParam())];
    const AttackedAction& action = attackedActions[std::get<1>(GetParam())];
    const std::string path = "/etc/systemd/system/corvane26_service.service";
    const int rounds = (RaceRounds() + 1) / 2;
    const std::string completed = ResultInRoot([&] {
        PrepareMachine(withMembers, Before::SameSetup);
        Shell(
            "echo secret > /srv/victim; chmod 640 /srv/victim; mkdir -m 700 /srv/private; "
            "echo secret > /srv/private/file");
        int count = 0;
        for (int round = 0; round < rounds; ++round) {
            const auto setup = RunSetup(internalQueue, {"-m", std::to_string(700 + round)});
            EXPECT_EQ(setup.status, 0) << setup.out << setup.err;
            const std::string unit = ReadFile(path);
            EXPECT_NE(unit, "");
            PlantEntries(attack);
            EXPECT_EQ(Shell(std::string("exec 2>&1; ") + action.prepares), "");
            const MachineState before = StateOfTouchedPaths();
            count += RunAttacked(attack, action) == 0 ? 1 : 0;
            for (const PathChange& change : ChangesBetween(before, StateOfTouchedPaths())) {
                const bool victim = change.path.starts_with("/srv/");
                EXPECT_FALSE(victim) << change.path << ' ' << change.after.Text() << ' '
                                     << change.before.times << ' ' << change.after.times;
            }
            const std::string left = ReadFile(path);
            EXPECT_TRUE(left == unit || (left.empty() && action.removesUnit)) << left;
            EXPECT_EQ(OtherProcesses(), std::vector<std::string>{});
            // The next round begins with a complete installation.
            Shell("rm -rf /var/corvane");
        }
        return std::to_string(count);
    });
    std::printf("%s during %s: %d rounds, %s of them completed\n", attack.name, action.name, rounds,
                completed.c_str());
}

std::vector<AttackNumbers> AllAttacks() {
    std::vector<AttackNumbers> all;
    for (size_t attack = 0; attack < std::size(attacks); ++attack) {
        for (size_t action = 0; action < std::size(attackedActions); ++action)
            all.emplace_back(attack, action);
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Attacks, ExchangedFiles, testing::ValuesIn(TriedRows(AllAttacks())),
                         [](const auto& test) {
                             return std::string(attacks[std::get<0>(test.param)].name) + "During" +
                                    attackedActions[std::get<1>(test.param)].name;
                         });

TEST(StagedRaces, KilledDryRunsLeaveNothing) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine(internalQueue, Before::EarlierVersion);
        const MachineState before = StateOfTouchedPaths();
        const std::string mounts = ReadFile("/proc/self/mountinfo");
        std::mt19937 random(26);
        for (int round = 0; round < RaceRounds(); ++round) {
            const auto delay = std::chrono::milliseconds(random() % 400);
            const pid_t setup = fork();
            if (setup == 0) {
                setpgid(0, 0);
                dup2(open("/dev/null", O_RDWR), STDOUT_FILENO);
                execl("/opt/corvane26/cv_install", "cv_install", "--setup", "--yes", "--dry-run",
                      nullptr);
                _exit(127);
            }
            std::this_thread::sleep_for(delay);
            // Alternately the process alone and with its group.
            kill(round % 2 == 0 ? setup : -setup, SIGKILL);
            waitpid(setup, nullptr, 0);
            WaitForOtherProcesses();
            EXPECT_EQ(TracesOf(before), std::vector<std::string>{}) << delay.count() << " ms";
            EXPECT_EQ(ReadFile("/proc/self/mountinfo"), mounts);
        }
    });
}

}  // namespace
