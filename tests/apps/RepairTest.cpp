// cv_install --repair against the machine as it was before the damage.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <regex>

#include "apps/Damages.h"
#include "apps/JsonSchema.h"
#include "apps/RootSetup.h"
#include "apps/SetupMachine.h"
#include "apps/TracedSetup.h"
#include "harness/Effort.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

namespace fs = std::filesystem;

using namespace hx_test;

using TextLines = std::vector<std::string>;

const SetupKind repairedKind = {
    "Repaired",
    {"-q", "batch", "--submission-scripts", "--job-limit=2", "-d", "/tmp", "--members=ann"}};

ProcessResult RunAction(const TextLines& words) {
    TextLines command = {"/opt/corvane26/cv_install"};
    command.insert(command.end(), words.begin(), words.end());
    ProcessOptions options;
    options.workingDirectory = "/";
    return Run(command, options);
}

// A manager that also reports properties. The file "failed" is the state of the service then.
void ReportServiceProperties() {
    Shell("mv /usr/bin/systemctl /usr/bin/systemctl.calls");
    AddProgram("/usr/bin/systemctl",
               "#!/bin/sh\ncd /run/hx_services\n"
               "[ \"$1\" = show ] || exec /usr/bin/systemctl.calls \"$@\"\n"
               "STATE=inactive\n[ ! -e active/corvane26_service ] || STATE=active\n"
               "[ ! -e failed ] || STATE=failed\n"
               "printf 'ActiveState=%s\\nResult=success\\nUnitFileState=enabled\\n' $STATE\n");
}

void SetUpForRepair() {
    PrepareMachine(repairedKind, Before::Nothing);
    ReportServiceProperties();
    const auto setup = RunSetup(repairedKind);
    ASSERT_EQ(setup.status, 0) << setup.out << setup.err;
    ASSERT_EQ(RunAction({"--verify"}).status, 0);
    TakeServiceCalls();
}

// In what paths and accounts differ from the state before the damage, in lines.
class RepairedState {
public:
    TextLines Differences() const {
        static const std::regex ignored(
            "/etc/(passwd|group|shadow|gshadow|subuid|subgid)-?|/etc/\\.pwd\\.lock|.*\\.aside(/"
            ".*)?|"
            "/var/lib/corvane26/(verification|private/states(/.*)?)|/run/hx_services/.*|/tmp/.*");
        TextLines lines = DifferingLines(JoinLines(m_accounts), JoinLines(AccountLines()));
        for (const PathChange& change : ChangesBetween(m_paths, StateOfTouchedPaths())) {
            if (!std::regex_match(change.path, ignored) &&
                change.before.Text() != change.after.Text())
                lines.push_back(change.path + ": " + change.before.Text() + " => " +
                                change.after.Text());
        }
        return lines;
    }

private:
    const MachineState m_paths = StateOfTouchedPaths();
    const TextLines m_accounts = AccountLines();
};

const TextLines noDifferences;

// The calls that control the service or its manager.
std::string Calls() {
    TextLines calls = TakeServiceCalls();
    std::erase_if(calls, [](const std::string& call) {
        return call.find("is-active") != std::string::npos ||
               call.find(" enable ") != std::string::npos;
    });
    return JoinLines(calls);
}

// The record must be readable to repair anything.
bool DamagesRecord(const Target& target, const Damage& damage) {
    const std::string attribute = damage.attribute;
    const std::string name = damage.name;
    const bool isTrusted = attribute != "kind" && attribute != "owner";
    return (target.item == Item::Manifest && !isTrusted) ||
           (target.item == Item::Record && !isTrusted) ||
           (target.item == Item::RecordPrivate && !isTrusted && name != "Missing");
}

// An edited page goes aside under a dated name, and so does a file that may have jobs or lines of
// users but cannot be read by everyone or has another owner.
std::string DatedFiles() {
    return Shell(
        "find /var/corvane -name '*.20[0-9][0-9][0-9][0-9][0-9][0-9]-*' -prune -print "
        "-exec rm -r '{}' + | sed "
        "'s/20[0-9].*//'");
}

void ExpectRepaired(const RepairedState& before, const ProcessResult& repair) {
    EXPECT_EQ(repair.status, 0) << repair.out << repair.err;
    DatedFiles();
    EXPECT_EQ(before.Differences(), noDifferences) << repair.out << repair.err;
    const auto verified = RunAction({"--verify"});
    EXPECT_EQ(verified.status, 0) << verified.out;
}

void ExpectOneRepair(const Target& target, const Damage& damage, const RepairedState& before) {
    SCOPED_TRACE(target.path + ' ' + damage.name);
    struct stat found = {};
    ASSERT_EQ(lstat(target.path.c_str(), &found), 0);
    damage.put(target.path);
    const auto repair = RunAction({"--repair"});
    if (DamagesRecord(target, damage)) {
        EXPECT_EQ(repair.status, 68) << repair.out << repair.err;
        damage.restore(target.path, found);
    }
    if (!DamagesRecord(target, damage))
        ExpectRepaired(before, repair);
    fs::remove_all(Aside(target.path));
    const bool changesService = Calls().find("restart") != std::string::npos;
    const std::string attribute = damage.attribute;
    const bool isAttribute = attribute == "mode" || attribute == "owner" || attribute == "group";
    EXPECT_FALSE(isAttribute && changesService);
}

void ExpectRepairOfEach(const RepairedState& before) {
    int count = 0;
    for (const Target& target : DamagedTargets()) {
        for (const Damage& damage : Damages()) {
            if (!damage.fits(target))
                continue;
            ExpectOneRepair(target, damage, before);
            ++count;
        }
    }
    EXPECT_GT(count, 150);
}

// A damage of its own for each row. What is below a directory of another kind is not damaged.
void DamageAll() {
    size_t number = 0;
    for (const Target& target : DamagedTargets()) {
        std::vector<const Damage*> possible;
        for (const Damage& damage : Damages()) {
            const bool isKind = std::string(damage.attribute) == "kind";
            if (damage.fits(target) && !DamagesRecord(target, damage) &&
                (!isKind || target.kind != Kind::Directory))
                possible.push_back(&damage);
        }
        possible[number++ % possible.size()]->put(target.path);
    }
}

struct RepairedChange {
    const char* command;  // damages the machine
    const char* shown;    // by the repair
    const char* calls;    // of the service manager
};

const RepairedChange repairedChanges[] = {
    {"usermod --shell /bin/sh corvsrvc; usermod --home /srv corvsrvc; gpasswd --add carl corvsrvc;"
     "sed -i 's/^MaxThreads: .*/# mine\\nmaxthreads: 99/' /var/corvane/QueueLimits;"
     "sed -i 's/^\\(corvsrvc:x:[0-9]*\\):[0-9]*:/\\1:100:/' /etc/passwd;"
     "gpasswd --delete ann corvsrvc",
     "  change QueueLimits: MaxThreads: 99 -> 2\n",
     "systemctl.calls daemon-reload\n"
     "systemctl.calls restart corvane26_service.service\n"},
    {"touch /run/hx_services/failed", "  start corvane26_service.service\n",
     "systemctl.calls reset-failed corvane26_service.service\n"
     "systemctl.calls start corvane26_service.service\n"},
    {"sed -i '/^corvsrvc:/d' /etc/passwd", "  create user corvsrvc (UID ", ""},
    {"sed -i '/^corvsrvc:/d' /etc/group", "  create group corvsrvc (GID ", ""},
    {"systemctl disable corvane26_service.service; rmdir "
     "/etc/systemd/system/multi-user.target.wants",
     "  create link /etc/systemd/system/multi-user.target.wants/corvane26_service.service to ",
     "systemctl.calls daemon-reload\n"},
};

// A line of users, and the key as they wrote it, stay.
void TakeOwnLineFromLimits() {
    Shell("sed -i -e '/^# mine$/d' -e 's/^maxthreads/MaxThreads/' /var/corvane/QueueLimits");
}

void ExpectRepairOfEachChange(const RepairedState& before) {
    for (const RepairedChange& row : repairedChanges) {
        SCOPED_TRACE(row.command);
        Shell(row.command);
        Calls();
        const auto repair = RunAction({"--repair"});
        TakeOwnLineFromLimits();
        Shell("rm -f /run/hx_services/failed");
        EXPECT_EQ(Calls(), row.calls);
        ExpectHolds(repair.out, row.shown);
        ExpectRepaired(before, repair);
        Calls();
    }
}

// What a member of the service group can put in place of entries.
constexpr const char* entriesOfMember = R"sh(
mkdir /srv/victims /srv/victims/pages /srv/victims/qchemrc
for name in script snapshot limits queue pages/index.html qchemrc/qchemrc
do
    echo "$name" > /srv/victims/$name
    chmod 640 /srv/victims/$name
done
cd /var/corvane
rm corvane26_samba
mkdir corvane26_samba
touch corvane26_samba/file
ln -sf /srv/victims/script corvane26
ln -f /srv/victims/snapshot corvane26_snapshot
ln -f /srv/victims/limits QueueLimits
ln -f /srv/victims/queue QueueEntries
rm corvane26_ssh
echo attack > corvane26_ssh
chown ann corvane26_ssh
chmod 755 corvane26_ssh
rm -r corvanerc/corvane26
mkdir corvanerc/corvane26
touch corvanerc/corvane26/result
chown -R ann corvanerc/corvane26
mv qchemrc /srv/qchemrc.aside
ln -s /srv/victims/qchemrc qchemrc
cd corvanerc/corvane26server
rm -r resources
ln -s /srv/victims/pages resources
)sh";

std::string VictimsOfRepair() {
    return Shell(
        "cd /srv/victims && find . -printf '%p %i %m %u %g %s %t\\n' | sort; "
        "find . -type f -exec cat '{}' +");
}

void ExpectNothingWrittenThroughPlanted(const RepairedState& before) {
    EXPECT_EQ(Shell(std::string("exec 2>&1;") + entriesOfMember), "");
    const std::string untouched = VictimsOfRepair();
    const auto repair = RunAction({"--repair"});
    EXPECT_EQ(VictimsOfRepair(), untouched);
    EXPECT_EQ(Shell("cat /var/corvane/QueueEntries.2*"), "queue");
    EXPECT_EQ(Shell("ls /var/corvane/corvane26_samba.2*"), "file");
    EXPECT_EQ(Shell("cat /var/corvane/corvane26_ssh.2*"), "attack");
    EXPECT_EQ(Shell("cd /var/corvane; stat -c '%U %a' corvane26.2*; ls corvane26.2*"),
              "ann 755\nresult");
    Shell(
        "rm -r /srv/victims /srv/qchemrc.aside /var/corvane/corvane26_samba.2* "
        "/var/corvane/corvane26.2*");
    ExpectRepaired(before, repair);
}

void ExpectNothingToRepair() {
    Calls();
    const auto further = RunAction({"--repair", "--json", "/tmp/report"});
    EXPECT_EQ(further.status, 0);
    EXPECT_EQ(further.out, "Nothing to repair.\n");
    EXPECT_EQ(Calls(), "");
    EXPECT_EQ(RunAction({"--repair", "--job-limit=3"}).status, 3);
    ExpectReport(ReadFile("/tmp/report"),
                 R"({"action": "repair", "status": 0, "changed": false, "changes": [],
                     "differences": []})");
}

void ExpectDryRun() {
    const RepairedState damaged;
    const auto shown = RunAction({"--repair", "--dry-run", "--diff", "--json", "/tmp/report"});
    EXPECT_EQ(shown.status, 0) << shown.err;
    ExpectHolds(shown.out, "  change corvane26: content\n");
    ExpectHolds(shown.out, "\n--- /var/corvane/corvane26\n+++ /var/corvane/corvane26\n");
    EXPECT_EQ(damaged.Differences(), noDifferences);
    ExpectReport(ReadFile("/tmp/report"),
                 R"({"action": "repair", "status": 0, "changed": true, "differences": []})");
}

TEST(Repair, RestoresDamagesOfAllRows) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        SetUpForRepair();
        const RepairedState before;
        DamageAll();
        Shell(repairedChanges[0].command);
        ExpectDryRun();
        const auto repair = RunAction({"--repair"});
        TakeOwnLineFromLimits();
        ExpectRepaired(before, repair);
        ExpectNothingToRepair();
        ExpectNothingWrittenThroughPlanted(before);
        if (TriesEveryFault()) {
            ExpectRepairOfEachChange(before);
            ExpectRepairOfEach(before);
        }
    });
}

struct LeftDamage {
    const char* breaks;  // shell commands
    const char* restores;
    int status;
    const char* message;
};

const LeftDamage leftDamages[] = {
    {"mv /usr/bin/gpasswd /usr/bin/gpasswd.real; ln -s /bin/false /usr/bin/gpasswd; "
     "sed -i 's/^\\(corvsrvc:.*\\):ann$/\\1:/' /etc/group; chmod 777 "
     "/usr/bin/corvane26_service_script",
     "mv /usr/bin/gpasswd.real /usr/bin/gpasswd; sed -i 's/^\\(corvsrvc:.*\\):$/\\1:ann/' "
     "/etc/group; chmod 755 /usr/bin/corvane26_service_script",
     2, "    Fix the cause, then repair again.\n"},
    {"groupmod --gid 4242 corvsrvc", "groupmod --gid $(stat -c %g /var/corvane) corvsrvc", 0,
     "  group corvsrvc: gid: expected "},
    {"rm /usr/local/bin/qdel", "ln -s /bin/true /usr/local/bin/qdel", 0,
     "  /usr/local/bin/qdel: executable: expected yes, found no (it is not part of the "
     "installation)\n"},
    {"chmod 700 /var/corvane/corvanerc/corvane26; touch /var/corvane/corvanerc/corvane26/result",
     "chmod 775 /var/corvane/corvanerc/corvane26; rm /var/corvane/corvanerc/corvane26/result", 0,
     "  /var/corvane/corvanerc/corvane26: mode: expected 0775, found 0700 (it may be another "
     "user's private directory)\n"},
    {"echo >> /var/corvane/corvane26; sed -i 's/Corvane/Corvanne/' "
     "/opt/corvane26/corvane26.template",
     "sed -i '$d' /var/corvane/corvane26; sed -i 's/Corvanne/Corvane/' "
     "/opt/corvane26/corvane26.template",
     65, "cv_install: cannot restore \"/var/corvane/corvane26\": the content that this product "},
    {"cd /var/lib/corvane26; cp -p manifest kept; truncate -s -1 manifest",
     "cd /var/lib/corvane26; mv kept manifest", 68,
     "cv_install: cannot use record \"/var/lib/corvane26/manifest\": it is damaged\n"},
};

TEST(Repair, CompletesOnRerunAfterKill) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const size_t first = TriesEveryFault() ? 1 : 150;
    const size_t step = TriesEveryFault() ? 1 : 10000;
    const std::string points = ResultInRoot([&] {
        SetUpForRepair();
        const RepairedState before;
        size_t call = first;
        for (bool isStruck = true; isStruck; call += step) {
            SCOPED_TRACE("call " + std::to_string(call));
            DamageAll();
            const auto killed = RunTraced({"/opt/corvane26/cv_install", "--repair"},
                                          {SetupProcess::Parent, call, SIGKILL});
            isStruck = !killed.struckCall.empty();
            WaitForOtherProcesses();
            ExpectRepaired(before, RunAction({"--repair"}));
        }
        return std::to_string((call - first) / step - 1);
    });
    EXPECT_NE(points, "0");
    std::printf("kills of a repair: %s\n", points.c_str());
}

TEST(Repair, KeepsForeignEntries) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        SetUpForRepair();
        // The state of what is touched later is known only of files that were touched before.
        Shell("chmod 4755 /usr/bin/gpasswd; touch /opt/corvane26/corvane26.template");
        const RepairedState before;
        for (const LeftDamage& row : leftDamages) {
            if (&row != std::begin(leftDamages) && !TriesEveryFault())
                break;
            SCOPED_TRACE(row.breaks);
            EXPECT_EQ(Shell(std::string("exec 2>&1;") + row.breaks), "");
            const RepairedState damaged;
            const auto repair = RunAction({"--repair"});
            EXPECT_EQ(repair.status, row.status) << repair.out << repair.err;
            ExpectHolds(repair.out + repair.err, row.message);
            EXPECT_EQ(damaged.Differences(), noDifferences) << repair.out;
            EXPECT_EQ(Calls(), "");
            EXPECT_EQ(Shell(std::string("exec 2>&1;") + row.restores), "");
            EXPECT_EQ(before.Differences(), noDifferences);
        }
    });
}

}  // namespace
