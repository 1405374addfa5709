// Setups as root, staged and in place: plan, confirmation, titles, log and summary.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <cstdlib>
#include <filesystem>

#include "apps/JsonSchema.h"
#include "apps/Leaks.h"
#include "apps/RootSetup.h"
#include "apps/UserSetup.h"
#include "harness/Effort.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"
#include "harness/Terminal.h"
#include "machine/ThrowawayRoot.h"

namespace {

using hx_test::ExpectHolds;

// Job limit, memory limit, scratch directory, scratch limit, queue.
const std::string limitAnswers = "2\n600\n/tmp\n3\n1\n";

const std::string memberAnswers = limitAnswers + "ann,bob\n";

void ExpectParts(const std::string& text, const std::vector<const char*>& parts) {
    for (const char* part : parts)
        ExpectHolds(text, part);
}

// Runs cv_install on a terminal of the throwaway root, with a service that fails.
std::string ShownOnTerminal(const std::string& prefix = {}) {
    LayOutRootSetup();
    hx_test::WriteFile("/usr/bin/systemctl",
                       "#!/bin/sh\n[ \"$1\" = is-active ] && echo failed && exit 3\nexit 0\n");
    hx_test::WriteFile("/usr/bin/journalctl",
                       "#!/bin/sh\nprintf 'first message\\n\\033[31msecond message\\n'\n");
    Shell("chmod 755 /usr/bin/journalctl");
    Shell("mount -t devpts -o newinstance,ptmxmode=0666 devpts /dev/pts");
    hx_test::Terminal terminal(hx_test::Terminal::Mode::Bytes, [&] {
        setenv("LSAN_OPTIONS", LeakOptions(HX_LEAK_SUPPRESSIONS).c_str(), 1);
        const std::string command = prefix + "/opt/corvane26/cv_install --setup --yes";
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    });
    EXPECT_EQ(terminal.Finish(), 66) << terminal.Output();
    return terminal.Output();
}

const char* const summaryWithFailedService =
    "  Installed: /var/corvane\n  Service:   failed\n             first message\n"
    "             ?[31msecond message\n  Log:       /var/log/corvane26_setup.log\n"
    "cv_install: service \"corvane26_service.service\" is not running: failed\n"
    "    For details, run: journalctl --unit=corvane26_service.service\n"
    "    Log: /var/log/corvane26_setup.log\n";
const std::string closing = "Corvane'26 Installation script completed successfully!\n\n";

TEST(RootSetup, ShowsPlanWithoutScriptOutput) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const std::string out = ShownOnTerminal();
        ExpectParts(out,
                    {"\nValues in use:\n", "  Service account:   corvsrvc:corvsrvc\n",
                     "  Listeners:         HTTP on all addresses, port 8080 (not encrypted)\n",
                     "\nAccounts:\n  create group corvsrvc (GID ", "\n  create user corvsrvc (UID ",
                     "\nTree /var/corvane:\n  create directory /var/corvane\n",
                     "\nServices:\n  start corvane26_service.service\n", summaryWithFailedService});
        const std::string log = hx_test::ReadFile("/var/log/corvane26_setup.log");
        const std::string ofScript = "Wrote Corvane'26 run script, /var/corvane/corvane26\n";
        ExpectParts(log, {out.substr(out.find("Values in use:")).c_str(), ofScript.c_str()});
        ExpectHolds(log, closing);
        for (const std::string& text : {ofScript, closing})
            EXPECT_EQ(out.find(text), std::string::npos);
        EXPECT_EQ(out.find("machine changed"), std::string::npos);
        EXPECT_EQ(log.find("==> "), std::string::npos);
        EXPECT_EQ(Shell("ls /tmp | grep corvane26_commit"), "");
    });
}

TEST(RootSetup, ShowsPlanTitlesAndSummaryInPlace) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const CheckedLeaks leaks;
    HX_EXPECT_SCENARIO([] {
        const std::string out = ShownOnTerminal(withoutMounts);
        ExpectParts(out,
                    {"cv_install: warning: cannot prepare the setup in private: Operation not "
                     "permitted\n    The setup changes the machine step by step, and a failure "
                     "leaves the changes made so far.\n",
                     "\nValues in use:\n  Job limit:  ", "The setup will make these changes:\n",
                     "  Group      corvsrvc: create\n",
                     "  User       corvsrvc: create without a login shell\n",
                     "  Members    added: none\n  Members    removed: none\n",
                     "  Directory  /var/corvane: create (mode 775)\n",
                     "  Link       /usr/bin/corvane26: create\n",
                     "  Service    corvane26_service.service: install, enable, and start\n",
                     summaryWithFailedService});
        const std::string log = hx_test::ReadFile("/var/log/corvane26_setup.log");
        ExpectParts(log, {"\n\nCorvane", out.substr(0, out.find("  Installed: ")).c_str(),
                          closing.c_str(), summaryWithFailedService});
        EXPECT_EQ(out.find(closing), std::string::npos);
        EXPECT_EQ(Shell("ls /tmp | grep corvane26_commit"), "");
        EXPECT_EQ(Shell("grep -A1 --no-group-separator '^==> ' /var/log/corvane26_setup.log | "
                        "cut -d' ' -f1-4"),
                  "==> Service account\nCorvane Service Group created\n"
                  "==> Directories\nCreated directory /var/corvane/corvanerc\n"
                  "==> Web pages\nresources/\n"
                  "==> Run script\nWrote Corvane'26 run script,\n"
                  "==> Snapshot script\nWrote Corvane'26 snapshot run\n"
                  "==> Compute service\nWrote Corvane'26 service script,");
    });
}

// "su" without "-" keeps the caller's environment.
TEST(RootSetup, RunsNoProgramsOfCallersEnvironment) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell(
            "mkdir /srv/bin; printf '#!/bin/sh\ntouch /pwned\n' > /srv/bin/stat; "
            "chmod 755 /srv/bin/stat; cp /srv/bin/stat /srv/bin/df; "
            "cp /srv/bin/stat /srv/bin/systemctl; echo touch /pwned > /srv/before");
        const std::string path = std::string("/srv/bin:") + getenv("PATH");
        setenv("PATH", path.c_str(), 1);
        setenv("BASH_ENV", "/srv/before", 1);
        setenv("BASH_FUNC_stat%%", "() { touch /pwned; }", 1);
        setenv("TAR_OPTIONS", "--no-such-option", 1);
        const auto result = RunRootSetup({"--yes"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_FALSE(std::filesystem::exists("/pwned"));
    });
}

constexpr const char* state = "cat /etc/passwd /etc/group; ls /var; ls /tmp | grep commit";

TEST(RootSetup, ChangesNothingWithoutConfirmation) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const struct {
        RootMode mode;
        std::string input;
        const char* shown;
    } cases[] = {{RootMode::Staged, memberAnswers,
                  "  add ann to group corvsrvc\n  add bob to group corvsrvc\n"},
                 {RootMode::InPlace, memberAnswers, "  Script     /tmp/corvane26_commit_"}};
    HX_EXPECT_SCENARIO([&] {
        LayOutRootSetup();
        Shell(
            "mount -t tmpfs -o mode=1777 tmpfs /tmp; useradd --create-home ann; useradd "
            "--create-home bob");
        const std::string before = Shell(state);
        for (const auto& [mode, input, shown] : cases) {
            for (const std::string answer : {"n\n", "yonder\n", "\n", ""}) {
                const auto result = RunRootSetup({}, input + answer, mode);
                EXPECT_EQ(result.status, 9) << result.err;
                ExpectHolds(result.out, shown);
                ExpectHolds(result.out,
                            mode == RootMode::Staged ? "Continue? [y/N/d] " : "Continue? [y/N] ");
                EXPECT_TRUE(
                    result.err.ends_with("cv_install: setup canceled: plan not confirmed\n"
                                         "    No changes were made.\n" +
                                         logOfRoot))
                    << result.err;
                EXPECT_EQ(Shell(state), before);
            }
        }
    });
}

TEST(RootSetup, ShowsScriptWhileItAsksInPlace) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell("mount -t tmpfs -o mode=1777 tmpfs /tmp; mkdir -p \"${TMPDIR:-/tmp}\"");
        const std::string before = Shell(state);
        const auto result = hx_test::Run(
            {"bash", "-c",
             "mkfifo /srv/in; " + withoutMounts +
                 "/opt/corvane26/cv_install --setup --json /srv/report < /srv/in > /srv/out & "
                 "exec 3> /srv/in; printf '2\\n600\\n/tmp\\n3\\n1\\n\\n' >&3; "
                 "until grep -qs 'Continue' /srv/out; do sleep 0.05; done; "
                 "ls /tmp/corvane26_commit_*; kill -TERM $!; wait $!; echo $?"},
            {.env = {{"LSAN_OPTIONS", "detect_leaks=0"}}});
        EXPECT_TRUE(result.out.starts_with("/tmp/corvane26_commit_")) << result.out << result.err;
        EXPECT_TRUE(result.out.ends_with("\n143\n")) << result.out;
        ExpectReport(hx_test::ReadFile("/srv/report"), R"({"status": 143})");
        ExpectHolds(result.err,
                    "cv_install: setup stopped by signal Terminated\n    No changes were made.\n");
        EXPECT_EQ(Shell(state), before);
    });
}

// The first change is one that the programs of Corvane make while jobs run.
TEST(RootSetup, AsksAgainAfterChangesSinceStaging) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const auto first = RunRootSetup({"--yes", "--json", "/srv/report"});
        ASSERT_EQ(first.status, 0) << first.err;
        ExpectReport(hx_test::ReadFile("/srv/report"),
                     R"({"action": "setup", "status": 0, "install_dir": "/var/corvane",
                         "warnings": [], "problem": null, "log": "/var/log/corvane26_setup.log"})");
        ExpectHolds(first.out, "  Service:   not started (the service manager is not running)\n");
        const auto result = hx_test::Run(
            {"bash", "-c",
             "mkfifo /srv/in; "
             "/opt/corvane26/cv_install --setup < /srv/in > /srv/out 2>&1 & exec 3> /srv/in; "
             "until grep -qs 'Job thread limit' /srv/out; do sleep 0.05; done; "
             "echo 'ThreadsPerMolecule: 1' >> /var/corvane/QueueLimits; "
             "echo >> /var/corvane/corvane26; printf \"$1\" >&3; wait $!; echo $?; cat /srv/out",
             "bash", limitAnswers + "\ny\nn\n"},
            {.env = {{"LSAN_OPTIONS", "detect_leaks=0"}}});
        EXPECT_TRUE(result.out.starts_with("9\n")) << result.out << result.err;
        ExpectHolds(result.out,
                    "machine changed meanwhile: /var/corvane/corvane26\n"
                    "Values in use:\n");
        ExpectHolds(result.out.substr(result.out.find("machine changed")), "Continue? [y/N/d] ");
    });
}

TEST(RootSetup, AppliesConfirmedPlanAndShowsPlanOfUpgrade) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const CheckedLeaks leaks;
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell("useradd --create-home ann; useradd --create-home bob");
        const auto first = RunRootSetup({}, memberAnswers + "y\nleft over\n");
        ASSERT_EQ(first.status, 0) << first.out << first.err;
        ExpectParts(first.out, {"  Memory in total:   2 threads x 600 MB = 1200 of ",
                                "  Scratch in total:  2 threads x 3 GB = 6 GB\n"});
        EXPECT_EQ(Shell("getent group corvsrvc | cut -d: -f4"), "ann,bob");
        EXPECT_EQ(Shell("cat /var/corvane/QueueLimits"),
                  "MaxThreads: 2\nMemoryPerThreadMB: 600\nScratch: /tmp\nDiskPerThreadGB: 3");

        Shell("echo unit > /etc/systemd/system/corvane24_service.service");
        Shell("ln -sf /opt/elsewhere /usr/bin/corvane26_snapshot");
        const std::string upgrade = limitAnswers + "bob,root\nd\nn\n";
        const auto declined = RunRootSetup({}, upgrade);
        EXPECT_EQ(declined.status, 9) << declined.err;
        EXPECT_EQ(declined.out.find("create"), std::string::npos) << declined.out;
        ExpectParts(declined.out,
                    {"  add root to group corvsrvc\n  remove ann from group corvsrvc\n",
                     "  delete file /etc/systemd/system/corvane24_service.service\n",
                     "  change /usr/bin/corvane26_snapshot: /opt/elsewhere -> "
                     "/var/corvane/corvane26_snapshot\n",
                     "Continue? [y/N/d] --- /etc/systemd/system/corvane24_service.service\n"
                     "+++ /dev/null\n@@ -1 +0,0 @@\n-unit\nContinue? [y/N/d] "});
    });
}

TEST(RootSetup, ShowsPlanOfUpgradeInPlace) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        ASSERT_EQ(RunRootSetup({"--yes"}, {}, RootMode::InPlace).status, 0);
        Shell("touch /etc/systemd/system/corvane24_service.service; useradd ann");
        Shell("ln -sf /opt/elsewhere /usr/bin/corvane26_snapshot");
        const auto upgrade = RunRootSetup({}, limitAnswers + "ann\nn\n", RootMode::InPlace);
        EXPECT_EQ(upgrade.status, 9) << upgrade.err;
        ExpectParts(
            upgrade.out,
            {"  Memory limit:      600 MB per thread (was: ",
             "  Group      corvsrvc: keep (exists)\n", "  User       corvsrvc: keep (exists)\n",
             "  Members    added: ann\n  Members    removed: none\n",
             "  Directory  /var/corvane: keep (exists)\n",
             "  Link       /usr/bin/corvane26: keep (exists)\n",
             "  Link       /usr/bin/corvane26_snapshot: replace (points to /opt/elsewhere)\n",
             "  Service    /etc/systemd/system/corvane24_service.service: stop and remove\n",
             "restart; replace unit file if it differs\n"});

        // Members could interfere.
        Shell("usermod --append --groups corvsrvc ann");
        const auto refused =
            RunRootSetup({"--yes", "--json", "/srv/report"}, {}, RootMode::InPlace);
        EXPECT_EQ(refused.status, 8);
        const std::string report = hx_test::ReadFile("/srv/report");
        ExpectReport(report, R"({"status": 8, "changes": []})");
        ExpectHolds(report, "cannot prepare the setup in private: Operation not permitted");
        for (const char* option : {"--dry-run", "--if-needed"}) {
            const auto dry = RunRootSetup({"--yes", option}, {}, RootMode::InPlace);
            EXPECT_EQ(dry.status, 67) << dry.err;
        }
        ExpectHolds(refused.err,
                    "cv_install: cannot change the machine step by step: group corvsrvc has "
                    "members\n");
        ExpectHolds(refused.err, "    No changes were made.\n");
    });
}

QJsonValue ChangesIn(const std::string& report) {
    return QJsonDocument::fromJson(QByteArray::fromStdString(report))["changes"];
}

// Install directory and record are on file systems of their own.
TEST(RootSetup, DoesNothingWithoutNeed) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell(
            "mount -t tmpfs -o mode=755 tmpfs /var; mkdir /var/log /var/lib /var/corvane; "
            "mount -t tmpfs -o mode=755 tmpfs /var/corvane");
        std::string report;
        const auto setUp = [&](const char* option, const char* expected) {
            const auto result =
                RunRootSetup({"--yes", "--if-needed", option, "--json", "/srv/report"});
            EXPECT_EQ(result.status, 0) << result.err;
            report = hx_test::ReadFile("/srv/report");
            ExpectReport(report, expected);
            return result.out;
        };
        const char* listing = "find /var -printf '%p %m %u %g %T@ %C@ %s\\n'; cat /etc/passwd";
        const std::string before = Shell(listing);
        setUp("--dry-run", R"({"changed": true})");
        EXPECT_EQ(Shell(listing), before);
        const QJsonValue planned = ChangesIn(report);
        ExpectHolds(setUp("--setup", R"({"changed": true})"), "  Next step: ");
        EXPECT_EQ(ChangesIn(report), planned);
        EXPECT_GT(planned.toArray().size(), 10);

        const std::string after = Shell(listing);
        EXPECT_EQ(setUp("--quiet", R"({"changed": false, "changes": [], "log": null})"),
                  "Nothing to do.\n");
        EXPECT_EQ(Shell(listing), after);
        // The default, but chosen: only the record changes.
        const std::string chosen = setUp("--http-port=8080", R"({"changed": true, "changes": []})");
        ExpectParts(chosen, {"No changes.\n", "  Next step: "});
    });
}

// The group is not the default one.
TEST(RootSetup, RepeatsChosenAnswersAfterUpgrade) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell("useradd ann; useradd bob");
        const auto first = RunRootSetup(
            {"--yes", "-p", "chem", "-m", "700", "-s", "1", "-d", "/srv", "--members", "ann,bob"});
        ASSERT_EQ(first.status, 0) << first.out << first.err;
        const auto again = RunRootSetup({"--yes"});
        ExpectParts(again.out, {"Partition:         chem\n", "700 MB per thread\n", "No changes."});
        const auto other = RunRootSetup({"--yes", "-p", "normal", "-m", "800"});
        ExpectParts(other.out, {"Partition:         normal (was: chem)\n",
                                "800 MB per thread (was: 700 MB per thread)\n"});
        EXPECT_EQ(Shell("/var/corvane/corvane26 --printenv CORV_PARTITION_NAME"), "normal");
        ExpectParts(hx_test::ReadFile("/var/lib/corvane26/private/commit_script"),
                    {"#!/bin/bash\n", "normal", "\nexit 0\n"});
        // As setups before there were records left it.
        Shell("rm -r /var/lib/corvane26");
        const auto unrecorded = RunRootSetup({"--yes"});
        ExpectParts(unrecorded.out, {"Partition:         normal\n", "No changes."});
        EXPECT_EQ(Shell("getent group corvsrvc | cut -d: -f4"), "ann,bob");
    });
}

// The product gets a page, loses one, and has others of the same names.
constexpr const char* newPages =
    "cd /opt/corvane26/docroot; rm -rf /srv/pages; mkdir /srv/pages; cd /srv/pages;"
    "tar -xf /opt/corvane26/docroot/resources.tar; cd resources; mkdir js;"
    "echo new > index.html; echo new > new.html; echo new > js/new.js; mv style.css ../;"
    "cd ..; tar -cf /opt/corvane26/docroot/resources.tar resources";

TEST(RootSetup, ReplacesPagesOfEarlierProduct) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string resources = "/var/corvane/corvanerc/corvane26server/resources";
    const std::string pages = "cd " + resources + "; ";
    for (const RootMode mode : {RootMode::Staged, RootMode::InPlace}) {
        for (const bool isEdited : {false, true}) {
            if (isEdited != (mode == RootMode::InPlace) && !hx_test::TriesEveryFault())
                continue;
            HX_EXPECT_SCENARIO([&] {
                LayOutRootSetup();
                EXPECT_EQ(RunRootSetup({"--yes"}, {}, mode).status, 0);
                Shell(pages + "echo own > own.html; chown corvsrvc:corvsrvc own.html");
                if (isEdited)
                    Shell(pages + "echo edited > index.html; echo edited > style.css");
                Shell(newPages);
                const auto upgrade = RunRootSetup({"--yes"}, {}, mode);
                EXPECT_EQ(upgrade.status, 0) << upgrade.out;
                EXPECT_EQ(upgrade.err.find("\"index.html\" was replaced; what was there is now \"" +
                                           resources + "/index.html.") != std::string::npos,
                          isEdited)
                    << upgrade.err;
                std::string files =
                    "./index.html 644 corvsrvc\n./js/new.js 644 corvsrvc\n"
                    "./new.html 644 corvsrvc\n./own.html 644 corvsrvc";
                if (isEdited)
                    files += "\n./style.css 644 corvsrvc";
                EXPECT_EQ(Shell(pages + "find . -type f ! -name 'index.html.*' -printf '%p %m %u\n'"
                                        " | LC_ALL=C sort"),
                          files);
                EXPECT_EQ(Shell(pages + "cat index.html new.html js/new.js own.html"),
                          "new\nnew\nnew\nown");
                EXPECT_EQ(Shell(pages + "cat index.html.*; true"), isEdited ? "edited" : "");
                const auto again = RunRootSetup({"--yes"}, {}, mode);
                EXPECT_EQ(again.status, 0);
                EXPECT_EQ(again.err.find("index.html"), std::string::npos) << again.err;
                EXPECT_EQ(Shell("/opt/corvane26/cv_install --verify > /dev/null; echo $?"), "0");
            });
        }
    }
}

// A removal keeps edited pages, and directories with other files.
TEST(RootSetup, UnpacksMissingPagesAgainAfterRemoval) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string pages = "cd /var/corvane/corvanerc/corvane26server; ";
    const std::string list = pages + "find resources icons -type f | LC_ALL=C sort";
    for (const RootMode mode : {RootMode::Staged, RootMode::InPlace}) {
        if (mode == RootMode::InPlace && !hx_test::TriesEveryFault())
            continue;
        HX_EXPECT_SCENARIO([&] {
            LayOutRootSetup();
            EXPECT_EQ(RunRootSetup({"--yes"}, {}, mode).status, 0);
            const std::string all = Shell(list);
            Shell(pages +
                  "echo edited > resources/index.html; touch icons/own.svg; "
                  "/opt/corvane26/cv_install --remove --yes");
            EXPECT_EQ(Shell(list), "icons/own.svg\nresources/index.html");
            const auto again = RunRootSetup({"--yes"}, {}, mode);
            EXPECT_EQ(again.status, 0) << again.out;
            EXPECT_NE(again.err.find("\"index.html\" was replaced; what was there is now "),
                      std::string::npos)
                << again.err;
            EXPECT_EQ(Shell(pages + "mv resources/index.html.* /srv/edited; cat /srv/edited"),
                      "edited");
            EXPECT_EQ(Shell(pages + "rm icons/own.svg; " + list.substr(pages.size())), all);
            EXPECT_EQ(Shell("/opt/corvane26/cv_install --verify > /dev/null; echo $?"), "0");
        });
    }
}

TEST(RootSetup, HasMembersExactlyAsAnswered) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell(
            "sed -i 's/^\\(passwd\\|group\\):.*/& extrausers/' /etc/nsswitch.conf;"
            "mkdir -p /var/lib/extrausers;"
            "echo remote:x:70001:70000::/:/bin/sh > /var/lib/extrausers/passwd;"
            "echo far:x:70002:remote > /var/lib/extrausers/group;"
            "useradd ann; groupadd --system lab; useradd --gid lab --groups lab only;"
            "gpasswd --members ann,only,remote lab");
        const struct {
            const char* answer;
            RootMode mode;
            const char* shown;
            const char* members;
        } cases[] = {
            {"remote", RootMode::Staged, "[ann,only,remote]: ", "remote"},
            {"none", RootMode::Staged, "remove remote from group lab\n", ""},
            {"ann,remote", RootMode::InPlace, "added: ann remote\n", "ann,remote"},
        };
        for (const auto& [answer, mode, shown, members] : cases) {
            const auto result = RunRootSetup({"-g", "lab"}, limitAnswers + answer + "\ny\n", mode);
            EXPECT_EQ(result.status, 0) << result.out << result.err;
            ExpectHolds(result.out, shown);
            EXPECT_EQ(Shell("getent group lab | cut -d: -f4"), members);
        }
        EXPECT_EQ(Shell("id -Gn ann"), "ann lab");
        const auto refused = RunRootSetup({"-g", "far", "--members", "ann"}, limitAnswers);
        EXPECT_EQ(refused.status, 65);
        ExpectHolds(refused.err, "cannot change the members of group \"far\": it is not in");
    });
}

TEST(RootSetup, ReportsAllFailedChecksAndChangesNothing) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        Shell(
            "mount -t tmpfs -o mode=1777 tmpfs /tmp; useradd corvsrvc; touch /usr/bin/corvane26;"
            "for name in sbatch scancel; do ln -sf /bin/true /usr/bin/$name; done;"
            "rm -f /usr/bin/sinfo; printf '#!/bin/sh\\necho long\\n' > /usr/bin/sinfo;"
            "chmod 755 /usr/bin/sinfo");
        const std::string before = Shell(state);
        const std::string uid = Shell("id -u corvsrvc");
        const std::string findings =
            "cv_install: warning: scratch directory \"/tmp\" is in memory: its files leave less "
            "for "
            "jobs\n    Specify another directory with --scratch-directory.\n"
            "cv_install: service user \"corvsrvc\" is not a system account: its UID is " +
            uid +
            "\n    Specify a system account with --service-user, or confirm this one with "
            "--service-user corvsrvc.\n"
            "cv_install: \"/usr/bin/corvane26\" is in the way of a symbolic link\n"
            "    Move it away, then run the setup again.\n"
            "cv_install: unknown partition of Slurm: \"chem\"\n    Use one of these: long.\n"
            "cv_install: 3 checks failed\n    No changes were made.\n" +
            logOfRoot;
        const struct {
            const char* option;
            RootMode mode;
        } cases[] = {{"--yes", RootMode::Staged},
                     {"--cluster-node", RootMode::Staged},
                     {"--yes", RootMode::InPlace}};
        for (const auto& [option, mode] : cases) {
            const auto result = RunRootSetup({option, "-p", "chem", "-s", "1"}, {}, mode);
            EXPECT_EQ(result.status, 65) << option;
            EXPECT_TRUE(result.err.ends_with(findings)) << result.err;
            EXPECT_EQ(Shell(state), before);
        }
        Shell("rm /usr/bin/corvane26");
        const auto named = RunRootSetup(
            {"--yes", "-u", "corvsrvc", "-p", "long", "--dry-run", "--diff", "--quiet"});
        EXPECT_EQ(named.status, 0) << named.err;
        EXPECT_TRUE(named.out.starts_with("--- /dev/null\n+++ /var/corvane/corvane26\n@@ -0,0 +1,"))
            << named.out;
        ExpectParts(named.out, {"\n--- /dev/null\n+++ /usr/bin/corvane26_service_script\n",
                                "\ncv_install: changes of a setup: "});
    });
}

TEST(RootSetup, AsksNothingOnComputeNodeAndRefusesUserThere) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const auto quiet = RunRootSetup({"--cluster-node", "--dry-run"});
        EXPECT_EQ(quiet.status, 0) << quiet.err;
        EXPECT_TRUE(quiet.out.starts_with("cv_install: changes of a setup: ")) << quiet.out;
        const auto result = RunRootSetup({"--cluster-node", "--verbose", "-p"});
        ASSERT_EQ(result.status, 0) << result.err;
        ExpectParts(result.out, {", shell /bin/bash)\n", "\nWrote Corvane'26 run script, "});
        for (const char* absent : {"corvane26_service", "Services", "Continue?"})
            EXPECT_EQ(result.out.find(absent), std::string::npos) << absent;
        const auto inPlace = RunRootSetup({"--cluster-node"}, {}, RootMode::InPlace);
        EXPECT_EQ(inPlace.out, "cv_install: set up \"/var/corvane\"\n");
        ExpectParts(hx_test::ReadFile("/var/log/corvane26_setup.log"),
                    {"  Service    corvane26_service.service: not installed on a compute node\n",
                     "\nWrote Corvane'26 run script, "});

        // A user who can write to the tree cannot set the mode of root's run scripts.
        Shell("chmod 777 /var/corvane");
        const auto user = hx_test::Run(
            {"env", "LSAN_OPTIONS=detect_leaks=0", "setpriv", "--reuid=4321", "--regid=4321",
             "--clear-groups", "/opt/corvane26/cv_install", "--setup", "--user-mode", "--yes"});
        EXPECT_EQ(user.status, 8);
        EXPECT_EQ(WithoutLogPath(user.err),
                  "cv_install: cannot change the mode of \"/var/corvane/corvane26\": owned by "
                  "another user\n    Run the setup as root.\n    No changes were made.\n");
    });
}

TEST(RootSetup, ReportsOwnerThatWasNotSet) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        hx_test::WriteFile("/usr/bin/chown", "#!/bin/sh\nexit 1\n");
        const auto result = RunRootSetup({"--yes"});
        EXPECT_EQ(result.status, 10);
        ExpectHolds(result.err,
                    "cv_install: the owner of \"/var/corvane\" is root:root, expected "
                    "corvsrvc:corvsrvc\n");
    });
}

TEST(RootSetup, ReportsWhereSetupWouldFailInDryRun) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const struct {
        const char* tool;
        const char* script;
        int status;
        const char* error;
    } cases[] = {
        {"/usr/bin/touch", "echo 'touch: no inodes' >&2; exit 7", 1,
         "commit script ends with exit status 1: Error, creating /var/corvane/QueueEntries\n"
         "    Cause: touch: no inodes. Fix it, then run the setup.\n    No changes were made.\n"},
        {"/usr/bin/chown", "exit 1", 10,
         "the owner of \"/var/corvane\" is root:root, expected corvsrvc:corvsrvc\n"}};
    HX_EXPECT_SCENARIO([&] {
        LayOutRootSetup();
        for (const auto& [tool, script, status, error] : cases) {
            const std::string path = tool;
            Shell("cp " + path + " /srv/kept");
            hx_test::WriteFile(path, std::string("#!/bin/sh\n") + script + "\n");
            const auto result = RunRootSetup({"--yes", "--dry-run"});
            Shell("cp /srv/kept " + path);
            EXPECT_EQ(result.status, status);
            ExpectHolds(result.err, std::string("cv_install: a setup would fail here: ") + error);
            EXPECT_EQ(result.out.find("Error,"), std::string::npos) << result.out;
        }
    });
}

}  // namespace
