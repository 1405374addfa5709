// --verify and --status: every attribute of an installation that is the setup's, damaged alone, is
// reported once, and nothing else is.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "apps/Damages.h"
#include "apps/JsonSchema.h"
#include "apps/Leaks.h"
#include "apps/RootSetup.h"
#include "apps/UserSetup.h"
#include "harness/Expect.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"
#include "undo/SavedStates.h"
#include "verify/InstalledFiles.h"
#include "verify/InstalledMachine.h"
#include "verify/StatusReport.h"
#include "verify/Verification.h"
#include "verify/VerifyReport.h"

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

Lines LinesOf(const VerifyResult& result) {
    Lines lines;
    for (const FoundDifference& difference : result.differences)
        lines.push_back(LineOf(difference).toStdString());
    for (const Unchecked& each : result.unchecked)
        lines.push_back("unchecked " + each.what.toStdString() + ": " + each.reason.toStdString());
    return lines;
}

// "PATH: ATTRIBUTE" of each difference.
Lines DifferencesOf(const RecordedInstallation& installation) {
    VerifyResult result;
    EXPECT_FALSE(CompareFiles(installation, result));
    EXPECT_TRUE(result.unchecked.empty());
    Lines found;
    for (const FoundDifference& each : result.differences)
        found.push_back(each.path.toStdString() + ": " + each.attribute);
    return found;
}

char programName[] = "/opt/corvane26/cv_install";

void ReadInstallation(RecordedInstallation& installation) {
    const Failure failure = FindInstallation(programName, installation);
    ASSERT_FALSE(failure) << failure->text.toStdString();
}

void ExpectEachDamage(const RecordedInstallation& installation) {
    EXPECT_EQ(DifferencesOf(installation), Lines());
    int count = 0;
    for (const Target& target : DamagedTargets()) {
        for (const Damage& damage : Damages()) {
            if (!damage.fits(target))
                continue;
            SCOPED_TRACE(damage.name);
            struct stat before = {};
            EXPECT_EQ(lstat(target.path.c_str(), &before), 0) << target.path;
            damage.put(target.path);
            EXPECT_EQ(DifferencesOf(installation), Lines{target.path + ": " + damage.attribute});
            damage.restore(target.path, before);
            ++count;
        }
    }
    EXPECT_GT(count, 150);
    EXPECT_EQ(DifferencesOf(installation), Lines());
}

struct Change {
    const char* command;
    const char* line;  // of the difference
};

// %u and %g are the numbers of the service account.
const Change changes[] = {
    {"usermod --shell /bin/sh corvsrvc", "user corvsrvc: shell: expected /bin/bash, found /bin/sh"},
    {"usermod --home /srv corvsrvc", "user corvsrvc: home: expected /var/corvane, found /srv"},
    {"sed -i 's/^corvsrvc:x:%u:/corvsrvc:x:4242:/' /etc/passwd",
     "user corvsrvc: uid: expected %u, found 4242"},
    {"sed -i 's/^corvsrvc:x:%u:%g:/corvsrvc:x:%u:4242:/' /etc/passwd",
     "user corvsrvc: gid: expected %g, found 4242"},
    {"sed -i '/^corvsrvc:/d' /etc/passwd", "user corvsrvc: kind: expected user, found missing"},
    {"sed -i 's/^corvsrvc:x:%g:/corvsrvc:x:4242:/' /etc/group",
     "group corvsrvc: gid: expected %g, found 4242"},
    {"sed -i '/^corvsrvc:/d' /etc/group", "group corvsrvc: kind: expected group, found missing"},
    {"gpasswd --add carl corvsrvc",
     "member carl: group: expected not in corvsrvc, found in corvsrvc"},
    {"gpasswd --delete ann corvsrvc",
     "member ann: group: expected in corvsrvc, found not in corvsrvc"},
    {"sed -i 's/^MaxThreads: .*/MaxThreads: 99/' /var/corvane/QueueLimits",
     "/var/corvane/QueueLimits: MaxThreads: expected 2, found 99"},
    {"sed -i '/^Scratch/d' /var/corvane/QueueLimits",
     "/var/corvane/QueueLimits: Scratch: expected /tmp, found missing"},
    {"rm /usr/local/bin/qdel", "/usr/local/bin/qdel: executable: expected yes, found no"},
    {"printf \"#!/bin/sh\\necho \\\"cv_install 27.1 (Corvane'26)\\\"\\n\" > "
     "/opt/corvane26/cv_install",
     "/opt/corvane26: version: expected 26.0.0, found 27.1"},
    {"mv /opt/corvane26 /opt/moved", "/opt/corvane26: kind: expected directory, found missing"},
    {"printf '#!/bin/sh\\necho ActiveState=failed\\n' > /usr/bin/systemctl",
     "service corvane26_service.service: state: expected active, found failed"},
};

// What is no difference: what users and the service change, and what an administrator may.
const Change harmlessChanges[] = {
    {"echo 'job 1' >> /var/corvane/QueueEntries", ""},
    {"echo 'ThreadsPerMolecule: 2' >> /var/corvane/QueueLimits", ""},
    {"echo '# edited' >> /var/corvane/corvane26_samba", ""},
    {"touch /var/corvane/corvanerc/corvane26/result /var/corvane/foreign", ""},
    {"mkdir /etc/systemd/system/corvane26_service.service.d; "
     "echo [Service] > /etc/systemd/system/corvane26_service.service.d/override.conf",
     ""},
    {"rm /var/log/corvane26_setup.log /run/corvane26_setup.lock", ""},
};

std::string WithNumbers(std::string text) {
    static const std::string uid = Shell("id -u corvsrvc");
    static const std::string gid = Shell("id -g corvsrvc");
    text = hx_test::ReplaceMatches(text, "%u", uid);
    return hx_test::ReplaceMatches(text, "%g", gid);
}

// Runs a command and puts back what it changed.
Lines LinesAfter(const RecordedInstallation& installation, const std::string& command) {
    const std::string places =
        "etc/passwd etc/group etc/gshadow var/corvane/QueueLimits usr/local/bin/qdel "
        "usr/bin/systemctl";
    Shell("tar -C / -cf /srv/saved.tar " + places + " && " + command);
    VerifyResult result;
    EXPECT_FALSE(FindInstalledDifferences(installation, result));
    Shell(
        "[ ! -e /opt/moved ] || mv /opt/moved /opt/corvane26; "
        "cp -f /srv/cv_install /opt/corvane26/; tar -C / -xpf /srv/saved.tar");
    return LinesOf(result);
}

void ExpectEachChange(const RecordedInstallation& installation) {
    WithNumbers("");
    EXPECT_EQ(LinesAfter(installation, "true"), Lines());
    for (const auto& [command, line] : changes)
        EXPECT_EQ(LinesAfter(installation, WithNumbers(command)), Lines{WithNumbers(line)});
    for (const Change& change : harmlessChanges)
        EXPECT_EQ(LinesAfter(installation, change.command), Lines()) << change.command;
}

hx_test::ProcessResult RunProgram(const std::string& options, const std::string& prefix = {}) {
    hx_test::ProcessOptions how;
    how.workingDirectory = "/";
    how.env["LSAN_OPTIONS"] = LeakOptions(HX_LEAK_SUPPRESSIONS);
    return hx_test::Run({"/bin/sh", "-c", prefix + programName + ' ' + options}, how);
}

void ExpectOutput(const std::string& time) {
    const std::string setup = "the setup of \"/var/corvane\" at " + time;
    auto found = RunProgram("--verify --json /srv/report");
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.out + found.err, "No differences from " + setup + ", version 26.0.0\n");
    ExpectReport(hx_test::ReadFile("/srv/report"),
                 R"({"action": "verify", "status": 0, "changed": false, "differences": [],
                     "unchecked": [], "problem": null})");
    const std::string pages = std::string(sharedDirectory) + '/' + pagesParent + "/icons";
    Shell("chmod 700 " + pages + "; gpasswd --add carl corvsrvc");
    found = RunProgram("--verify --json /srv/report");
    EXPECT_EQ(found.status, 1);
    const std::string lines = pages + ": mode: expected 0755, found 0700\n" +
                              "member carl: group: expected not in corvsrvc, found in corvsrvc\n";
    EXPECT_EQ(found.out, lines);
    EXPECT_TRUE(found.err.starts_with("cv_install: differences from " + setup + ": 2\n    To "))
        << found.err;
    ExpectReport(hx_test::ReadFile("/srv/report"),
                 R"({"action": "verify", "status": 1, "changes": [], "differences": [
                     {"path": ")" +
                     pages + R"(", "kind": "directory", "attribute": "mode", "expected": "0755",
                      "found": "0700"},
                     {"name": "carl", "kind": "member", "attribute": "group",
                      "expected": "not in corvsrvc", "found": "in corvsrvc"}]})");
    EXPECT_EQ(RunProgram("--verify --quiet").out, lines);
}

// What others cannot read is named, and leaves the exit status as it is.
void ExpectOutputForUser() {
    const auto found = RunProgram("--verify", "setpriv --reuid=4321 --regid=4321 --clear-groups ");
    EXPECT_EQ(found.status, 1);
    hx_test::ExpectHolds(found.out, "member carl: group: expected not in corvsrvc");
    for (const char* name : {"answers", "commit_script"}) {
        hx_test::ExpectHolds(found.out, "Not checked: /var/lib/corvane26/private/" +
                                            std::string(name) + ": Permission denied\n");
    }
}

void ExpectStatus(const std::string& time) {
    const auto found = RunProgram("--status --json /srv/report");
    EXPECT_EQ(found.status, 0) << found.err;
    for (const std::string& line :
         {std::string("  Installed:      /var/corvane\n"),
          std::string("  Version:        26.0.0\n"),
          std::string("  Product:        /opt/corvane26\n  Its version:    26.0.0\n"),
          "  Set up:         " + time + " by root\n",
          std::string("  Previous setup: complete\n  Service:        active, enabled\n"),
          std::string("  Last verified:  less than a minute ago ("),
          std::string(", differences: 2\n"), std::string("Answers:\n  Job limit: 2 threads\n"),
          std::string("  Queue: Torque/OpenPBS\n")})
        hx_test::ExpectHolds(found.out, line);
    ExpectReport(hx_test::ReadFile("/srv/report"),
                 R"({"action": "status", "status": 0, "install_dir": "/var/corvane",
                     "answers": {"job-limit": {"value": 2}},
                     "installation": {"version": "26.0.0", "user": "root", "time": ")" +
                     time + R"(", "product_dir": "/opt/corvane26", "product_version": "26.0.0",
                     "service": "active, enabled", "running": false, "unfinished": false,
                     "last_verification": {"differences": 2}}})");
    const std::string unfinished = "  Previous setup: did not run to its end; run it again\n";
    hx_test::WriteFile("/run/corvane26_setup.lock", "x");
    hx_test::ExpectHolds(RunProgram("--status").out, unfinished);
    // As after a reboot.
    Shell("rm /run/corvane26_setup.lock");
    hx_test::ExpectHolds(RunProgram("--status").out, "  Previous setup: complete\n");
    {
        const QString installDir = QStringLiteral("/var/corvane");
        Differences change;
        change.members.push_back({::Change::Create, "nobody_here", "corvsrvc"});
        SavedStates states(installDir);
        EXPECT_FALSE(states.Begin(FactsOf({}, installDir), change, -1));
        hx_test::ExpectHolds(RunProgram("--status").out, unfinished);
        hx_test::ExpectHolds(RunProgram("--verify").err,
                             "cv_install: warning: the previous setup, undo, removal or repair did "
                             "not run to its end\n");
        states.Discard();
    }
}

struct Unverifiable {
    const char* command;
    const char* message;
};

void ExpectNotVerified() {
    const Unverifiable records[] = {
        {"sed -i 's/mode=0775/mode=0777/' /var/lib/corvane26/manifest",
         "cannot use record \"/var/lib/corvane26/manifest\": it is damaged"},
        {"truncate -s 100 /var/lib/corvane26/manifest",
         "cannot use record \"/var/lib/corvane26/manifest\": it is damaged"},
        {"chmod 666 /var/lib/corvane26/manifest",
         "cannot use record \"/var/lib/corvane26/manifest\": other users can write to it"},
        {"rm /var/lib/corvane26/manifest; mkfifo /var/lib/corvane26/manifest",
         "cannot use record \"/var/lib/corvane26/manifest\": it is not a regular file"},
        {"rm /var/lib/corvane26/manifest", "no setup of \"/var/corvane\" is recorded"}};
    for (const auto& [command, message] : records) {
        Shell("[ -f /srv/record/manifest ] || cp -a /var/lib/corvane26 /srv/record");
        Shell(command);
        const auto verified = RunProgram("--verify");
        EXPECT_EQ(verified.status, 2);
        hx_test::ExpectHolds(verified.err, std::string("cv_install: ") + message + '\n');
        EXPECT_EQ(RunProgram("--status").status, 68);
        Shell("rm -r /var/lib/corvane26; cp -a /srv/record /var/lib/corvane26");
    }
}

TEST(Verification, ReportsEachDamageOnceByName) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell(
            "for name in qsub qdel qsig; do ln -sf /bin/true /usr/local/bin/$name; done; "
            "cp /opt/corvane26/cv_install /srv/; useradd ann; useradd carl");
        hx_test::WriteFile("/usr/bin/systemctl.new",
                           "#!/bin/sh\n[ \"$1\" = is-active ] && echo active\n[ \"$1\" = show ] && "
                           "printf 'ActiveState=active\\nUnitFileState=enabled\\n'\nexit 0\n");
        // The setup enables the unit with the real program.
        const auto setup = RunRootSetup({"--yes", "-q", "batch", "--submission-scripts",
                                         "--job-limit=2", "-d", "/tmp", "--members=ann"});
        EXPECT_TRUE(setup.status == 0) << setup.out << setup.err;
        Shell("chmod 755 /usr/bin/systemctl.new; mv /usr/bin/systemctl.new /usr/bin/systemctl");
        RecordedInstallation installation;
        ReadInstallation(installation);
        if (testing::Test::HasFailure())
            return;
        const std::string time = installation.manifest.facts.time.toStdString();
        ExpectEachDamage(installation);
        ExpectEachChange(installation);
        ExpectOutput(time);
        ExpectOutputForUser();
        ExpectStatus(time);
        ExpectNotVerified();
    });
}

TEST(Verification, ComparesPrivateCopyAndItsRecord) {
    UserSetup user;
    ASSERT_EQ(user.Run({"--setup", "--user-mode", "--yes"}).status, 0);
    const std::string record = "/state/corvane26/tmp-product";
    const auto verify = [&] { return user.Run({"--verify"}); };
    EXPECT_TRUE(verify().out.starts_with("No differences from the setup of \"/tmp/product\""));
    const std::string script = user.Outside("corvane26");
    const std::string answers = user.Root() + record + "/private/answers";
    struct stat before = {};
    EXPECT_EQ(stat(script.c_str(), &before), 0);
    // The user cannot read it then.
    EXPECT_EQ(chmod(script.c_str(), 0), 0);
    EXPECT_EQ(verify().out, "/tmp/product/corvane26: mode: expected 0755, found 0000\n");
    EXPECT_EQ(chmod(script.c_str(), before.st_mode & 07777), 0);
    const std::string text = hx_test::ReadFile(answers);
    hx_test::WriteFile(answers, hx_test::ReplaceMatches(text, "a", "b"));
    const auto found = verify();
    EXPECT_EQ(found.status, 1);
    EXPECT_TRUE(found.out.starts_with("/tmp" + record + "/private/answers: content: expected "))
        << found.out;
    EXPECT_EQ(chmod(answers.c_str(), 0644), 0);
    hx_test::ExpectHolds(verify().out,
                         "/tmp" + record + "/private/answers: mode: expected 0600, found 0644\n");
}

struct ServiceCase {
    const char* properties;
    const char* found;  // as a difference; empty without one
};

TEST(Verification, TakesAStoppedServiceAsStopped) {
    const ServiceCase cases[] = {
        {"ActiveState=active", ""},
        {"ActiveState=activating SubState=start", ""},
        {"ActiveState=reloading", ""},
        {"ActiveState=inactive Result=success UnitFileState=disabled", ""},
        {"ActiveState=inactive Result=success UnitFileState=enabled "
         "InactiveEnterTimestampMonotonic=7",
         ""},
        {"ActiveState=inactive Result=exit-code UnitFileState=disabled", "inactive"},
        {"ActiveState=failed Result=exit-code", "failed"},
        {"ActiveState=activating SubState=auto-restart", "restarting after a failure"}};
    for (const auto& [properties, found] : cases) {
        VerifyResult result;
        CompareService(QString::fromUtf8(properties).split(u' '), result);
        EXPECT_EQ(result.differences.empty(), *found == '\0') << properties;
        for (const FoundDifference& difference : result.differences)
            EXPECT_EQ(difference.found, QString::fromUtf8(found)) << properties;
        EXPECT_TRUE(result.unchecked.empty());
    }
    VerifyResult result;
    CompareService({}, result);
    EXPECT_EQ(LinesOf(result), Lines{"unchecked corvane26_service.service: the service manager is "
                                     "not running"});
}

// Odd names are written as mtree(5) defines them, and read again.
TEST(Manifest, KeepsOddNames) {
    Manifest manifest;
    manifest.top = "/a b";
    manifest.tree = "c#d";
    ManifestEntry file{"p=q\\r\n*\xc3\xbc", {}, true};
    file.state.kind = State::Kind::File;
    file.state.mode = 02755;
    file.state.digest = std::string(64, 'a');
    file.state.size = 5;
    ManifestEntry link{"to here", {}, true};
    link.state.kind = State::Kind::Link;
    link.state.target = "x y";
    manifest.entries = {file, link};
    const QByteArray text = WriteManifest(manifest);
    EXPECT_TRUE(text.contains("\n./p\\075q\\134r\\012\\052\\303\\274 type=file mode=02755 uid=0 "))
        << text.toStdString();
    EXPECT_TRUE(text.contains("\n./to\\040here type=link ")) << text.toStdString();
    EXPECT_TRUE(text.contains(" link=x\\040y\n")) << text.toStdString();
    const std::optional<Manifest> parsed = ParseManifest(text);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->top, manifest.top);
    EXPECT_EQ(parsed->tree, manifest.tree);
    EXPECT_EQ(parsed->entries, manifest.entries);
    EXPECT_EQ(parsed->entries[0].state.size, 5);
}

TEST(Status, ShowsAgeInLargestUnit) {
    const QString now = QStringLiteral("2026-11-22T14:05:09Z");
    const std::pair<const char*, const char*> ages[] = {
        {"2026-11-22T14:05:00Z", "less than a minute ago"},
        {"2026-11-22T14:04:09Z", "1 minute ago"},
        {"2026-11-22T12:05:09Z", "2 hours ago"},
        {"2026-11-21T14:05:09Z", "1 day ago"},
        {"2026-10-23T14:05:09Z", "30 days ago"}};
    for (const auto& [time, age] : ages)
        EXPECT_EQ(AgeOf(QString::fromUtf8(time), now), QString::fromUtf8(age)) << time;
}

}  // namespace
