// Other users can write to files that a setup as root reads. None of them makes root write
// elsewhere or run commands.
#include <gtest/gtest.h>

#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/Effort.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

// For shell commands in the install directory: $1 as a member of the service group.
const std::string asMallory =
    "cd /var/corvane; mallory() { setpriv --reuid=mallory --regid=corvsrvc --clear-groups "
    "sh -c \"$1\"; }; ";

const std::string linkOfOthers = " is a symbolic link not owned by root";

struct Plant {
    std::string command;
    int status;
    std::string message;
    std::vector<std::string> options = {};
};

// An installation that Restore can restore, and a user who attacks it. /tmp hides the files of
// other tests.
void LayOutInstallation() {
    LayOutRootSetup();
    Shell("mount -t tmpfs -o mode=1777 tmpfs /tmp");
    ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
    Shell("useradd --create-home mallory; cp -a /var/corvane /etc/group /srv");
}

void Restore() {
    Shell(
        "rm -rf /var/corvane /var/away; cp -a /srv/corvane /var; cp -a /srv/group /etc; "
        "chmod 755 /var; chmod 1777 /tmp; chown root /tmp; rm -f /tmp/corvane26_commit_*");
}

// A second setup must refuse each plant with its status and message. It must neither run planted
// code nor write a commit script.
void ExpectRefusals(const std::vector<Plant>& plants, RootMode mode) {
    HX_EXPECT_SCENARIO([&] {
        LayOutInstallation();
        const std::string passwords = Shell("md5sum /etc/shadow");
        for (const auto& [command, status, message, options] : plants) {
            SCOPED_TRACE(command + message);
            Shell(asMallory + command);
            std::vector<std::string> arguments = {"--yes"};
            arguments.insert(arguments.end(), options.begin(), options.end());
            const auto result = RunRootSetup(arguments, {}, mode);
            EXPECT_EQ(result.status, status) << result.out << result.err;
            hx_test::ExpectHolds(result.err, message);
            hx_test::ExpectHolds(result.err, "No changes were made.");
            EXPECT_FALSE(std::filesystem::exists("/pwned"));
            EXPECT_EQ(Shell("ls /tmp | grep corvane26_commit"), "");
            EXPECT_EQ(Shell("md5sum /etc/shadow"), passwords);
            Restore();
        }
    });
}

TEST(HostileTree, RefusesCodeInValues) {
    HX_REQUIRE_THROWAWAY_ROOT();
    std::vector<Plant> plants;
    for (const char* scratch : {"$(touch /pwned)", "`touch /pwned`", "\" ; touch /pwned ; \"",
                                "/tmp\\\\", "/tmp\\r", "/\\033[2J", "/\\302\\2332J"}) {
        plants.push_back({"printf 'Scratch: " + std::string(scratch) + "\\n' > QueueLimits", 4,
                          "    Correct \"Scratch\" in QueueLimits in the install directory.\n"});
    }
    for (const std::string name : {"x;touch$IFS/pwned", "$(touch /pwned)", "-x", "a*"}) {
        plants.push_back({"sed -i '/^corvsrvc:/s|$|" + name + "|' /etc/group", 4,
                          "invalid service group member \"" + name + "\": "});
    }
    plants.push_back({":", 4, "invalid service user \"x;touch /pwned\"", {"-u", "x;touch /pwned"}});
    plants.push_back(
        {":", 4, "invalid service group \"$(touch /pwned)\"", {"-g", "$(touch /pwned)"}});
    ExpectRefusals(plants, RootMode::Staged);
}

// What a plant leads to. Each name of a file changes the time of its last status change.
std::string StateOf(const std::string& victim) {
    return Shell("find " + victim +
                 " ! -type f -printf '%p %y %m %U:%G %T@ %C@\\n' -o -links 1 "
                 "-printf '%p %m %U:%G %T@ %C@\\n' -o -printf '%p %m %U:%G %T@\\n' | sort; "
                 "find " +
                 victim + " -type f -exec md5sum {} +");
}

// Kinds, modes and owners of what a setup creates.
std::string StateOfInstallation() {
    return Shell(
        "cd /var/corvane; find corvane26 corvane26_snapshot corvane26_service.service QueueEntries "
        "QueueLimits -printf '%p %y %m %u:%g %n\\n'; "
        "find corvanerc qchemrc -maxdepth 2 -printf '%p %y %m %u:%g\\n'");
}

struct HostileEntry {
    std::string plant;
    int status;
    std::string message;         // of a staged setup that refuses the entry
    std::string messageInPlace;  // with status 8; empty where no setup in place is run
    std::string victim = "/etc/shadow";
};

std::vector<HostileEntry> HostileEntries() {
    const std::string limits = "\"/var/corvane/QueueLimits\"";
    const std::string entries = "\"/var/corvane/QueueEntries\"";
    const std::string notLimits = limits + " is not a regular file of at most 64 KB";
    const std::string notFile = " is not a regular file or directory";
    const std::string hardLink = " has more than one hard link";
    const std::string pages = "/var/corvane/corvanerc/corvane26server/icons";
    const std::string jobs = "/var/corvane/corvanerc/corvane26";
    const std::string repository = "corvanerc/corvane24server/CorvaneServerRepository";
    const std::string writable = "others own or can write to \"/var/corvane/";
    std::vector<HostileEntry> all = {
        {"mallory 'rm QueueEntries; mkfifo QueueEntries'", 0, "", entries + notFile},
        {"ln -f /etc/shadow QueueEntries", 0, "", entries + hardLink},
        {"mallory 'rm QueueLimits; mkfifo QueueLimits'", 8, notLimits, limits + notFile},
        {"mallory 'rm QueueLimits; ln -s /dev/zero QueueLimits'", 8, notLimits,
         limits + linkOfOthers},
        {"mallory 'truncate --size=200G QueueLimits'", 8, notLimits, notLimits},
        {"ln -f /etc/shadow QueueLimits", 8, limits + " is not readable for everyone",
         limits + hardLink},
        // The setup gives each page to the service account.
        {"mkdir " + pages + "/deep; ln /etc/shadow " + pages + "/deep/page", 8,
         '"' + pages + "/deep/page\"" + hardLink, '"' + pages + "/deep/page\"" + hardLink},
        // A file name must not reach the terminal as an escape sequence.
        {"ln /etc/shadow \"" + pages + "/$(printf 'a\\033[2J')\"", 8, "/icons/a?[2J\"" + hardLink,
         "/icons/a?[2J\"" + hardLink},
        {"cd " + pages +
             "; ln /etc/shadow z; for _ in $(seq 300); do mkdir -p dddddddddddddddd && "
             "cd dddddddddddddddd; done",
         8, "too many files or levels of directories in directory \"" + pages, pages},
        // The script would pass the target to ln as an option.
        {"mallory 'mv corvanerc/corvane26server away; mkdir corvanerc/corvane24server; "
         "ln -s -- -t/etc/cron.daily " +
             repository + "'",
         8, "\"/var/corvane/" + repository + "\" is a symbolic link whose target begins with \"-\"",
         "the target of symbolic link \"/var/corvane/" + repository + "\" begins with \"-\"",
         "/etc/cron.daily"},
        {"chmod 777 /var", 8, "unsafe directory \"/var\": others can replace the install directory",
         "unsafe directory \"/var\""},
        {"mallory 'mv corvanerc/corvane26 away; mkdir corvanerc/corvane26'", 8,
         "directory \"" + jobs + "\" is owned by another user", writable},
        // What root hides from others is not given to others.
        {"mv corvanerc/corvane26 away; mkdir --mode=700 corvanerc/corvane26; echo private > "
         "corvanerc/corvane26/file",
         8, "other users cannot read directory \"" + jobs + '"', "", jobs},
    };
    for (const std::string path : {"corvane26", "corvane26_snapshot", "QueueEntries"}) {
        const std::string quoted = "\"/var/corvane/" + path + "\"";
        all.push_back({"mallory 'mv " + path + " .old; ln -s /etc/shadow " + path + "'", 0, "",
                       quoted + linkOfOthers});
        all.push_back({"mallory 'mv " + path +
                           " .old; /usr/bin/python3 -c \"import socket; "
                           "socket.socket(socket.AF_UNIX).bind(\\\"" +
                           path + "\\\")\"'",
                       0, "", quoted + notFile});
        all.push_back({"rm " + path + "; mknod " + path + " c 1 5", 0, "", quoted + notFile});
        all.push_back({"mallory 'mv " + path + " .old; mkdir " + path + "; echo > " + path + "/x'",
                       0, "", writable});
    }
    for (const std::string path : {"corvanerc/corvane26server/resources", "corvanerc"}) {
        const std::string quoted = "\"/var/corvane/" + path + "\"";
        const std::string moved = "mallory 'mv " + path + " " + path + ".old; ";
        all.push_back({moved + "ln -s /etc/default " + path + "'", 8,
                       quoted + " is not a directory", quoted + linkOfOthers, "/etc/default"});
        all.push_back(
            {moved + "mkfifo " + path + "'", 8, quoted + " is not a directory", writable});
    }
    return all;
}

void ExpectStagedOutcome(const HostileEntry& entry, const std::string& expected) {
    const auto result = RunRootSetup({"--yes"});
    EXPECT_EQ(result.status, entry.status) << result.out << result.err;
    if (entry.status == 0) {
        EXPECT_EQ(StateOfInstallation(), expected);
        return;
    }
    hx_test::ExpectHolds(result.err, entry.message);
    hx_test::ExpectHolds(result.err, "No changes were made.");
}

TEST(HostileTree, ReplacesOrRefusesHostileEntry) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutInstallation();
        const std::string expected = StateOfInstallation();
        for (const HostileEntry& entry : hx_test::TriedRows(HostileEntries())) {
            SCOPED_TRACE(entry.plant);
            Shell(asMallory + entry.plant);
            const std::string victim = StateOf(entry.victim);
            ExpectStagedOutcome(entry, expected);
            EXPECT_EQ(StateOf(entry.victim), victim);
            Restore();
        }
    });
}

TEST(HostileTree, RefusesUnsafePathsInPlace) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string repository = "corvanerc/corvane24server/CorvaneServerRepository";
    std::vector<Plant> plants = {
        // Root created this link, and whoever can write to the tree chose its target.
        {"mallory 'mv corvanerc/corvane26server away; mkdir corvanerc/corvane24server; "
         "ln -s /srv/evil " +
             repository +
             "'; cd /; LSAN_OPTIONS=detect_leaks=0 /opt/corvane26/cv_install --setup --yes; cd "
             "/var/corvane; "
             "mallory 'rm "
             "QueueEntries; mv corvanerc/corvane26server/CorvaneServerRepository QueueEntries'",
         8, "QueueEntries\" is a symbolic link in a directory that other users can write to"},
        {"chmod 0777 /tmp", 5, "unsafe directory \"/tmp\""},
        {"chown mallory /tmp", 5, "unsafe directory \"/tmp\""},
    };
    for (const HostileEntry& entry : hx_test::TriedRows(HostileEntries())) {
        if (!entry.messageInPlace.empty())
            plants.push_back({entry.plant, 8, entry.messageInPlace});
    }
    ExpectRefusals(plants, RootMode::InPlace);
}

// Answers the limits, the queue, the members and the plan, but runs $1 before it answers the plan.
const std::string slowAnswers = R"(
await() {
    for _ in $(seq 200); do
        grep --quiet --no-messages "$1" /srv/out && return
        sleep 0.05
    done
}
{
    printf '\n\n\n\n1\n\n'
    await 'Continue?'
    eval "$1"
    echo y
} | )" + withoutMounts + "/opt/corvane26/cv_install --setup > /srv/out";

TEST(HostileTree, RefusesLinkPlantedDuringSetupInPlace) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string plant =
        "setpriv --reuid=corvsrvc --regid=corvsrvc --clear-groups "
        "ln -sf /etc/shadow /var/corvane/corvane26";
    HX_EXPECT_SCENARIO([&] {
        LayOutInstallation();
        const std::string passwords = Shell("md5sum /etc/shadow");
        const auto result = hx_test::Run({"bash", "-c", slowAnswers, "bash", plant},
                                         {.env = {{"LSAN_OPTIONS", "detect_leaks=0"}}});
        EXPECT_EQ(result.status, 8) << result.out << result.err;
        EXPECT_TRUE(result.err.ends_with(
            "cv_install: unsafe path: \"/var/corvane/corvane26\"" + linkOfOthers +
            "\n    Root would write through it. Inspect it, remove it, then run the setup "
            "again.\n    No changes were made.\n" +
            logOfRoot))
            << result.err;
        EXPECT_EQ(Shell("ls /tmp | grep corvane26_commit"), "");
        EXPECT_EQ(Shell("md5sum /etc/shadow"), passwords);
    });
}

TEST(HostileTree, AcceptsHarmlessChanges) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string texts[] = {
        "MaxThreads: 2; touch /pwned\nMemoryPerThreadMB: $(touch /pwned)\n",
        "Scratch: /tmp/" + std::string(400, 'x') + "$(touch /pwned)\n",
        std::string("Scratch: /tmp\0$(touch /pwned)\n", 31)};
    HX_EXPECT_SCENARIO([&] {
        LayOutInstallation();
        for (const std::string& text : texts) {
            hx_test::WriteFile("/var/corvane/QueueLimits", text);
            EXPECT_EQ(RunRootSetup({"--cluster-node"}).status, 0);
            EXPECT_FALSE(std::filesystem::exists("/pwned"));
        }
        // Root's own link in place of the install directory.
        Shell("mv /var/corvane /srv/moved; ln -s /srv/moved /var/corvane");
        EXPECT_EQ(RunRootSetup({"--cluster-node"}).status, 0);
    });
}

TEST(HostileTree, AppendsToOwnLogOnly) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string log = "/var/log/corvane26_setup.log";
    const struct {
        std::string plant;
        const char* reason;
    } cases[] = {
        {"ln -s /var/log/target " + log, "it is a symbolic link"},
        {"ln /var/log/target " + log, "it has more than one hard link"},
        {"mkfifo " + log, "it is not a regular file"},
        {"install --owner=nobody /dev/null " + log, "it is owned by user nobody"},
    };
    HX_EXPECT_SCENARIO([&] {
        LayOutRootSetup();
        hx_test::WriteFile("/var/log/target", "target");
        for (const auto& [plant, reason] : cases) {
            Shell("rm -f " + log + "; " + plant);
            const std::string before = Shell("stat -c '%a %U %h' " + log);
            const auto result = RunRootSetup({"--cluster-node"});
            EXPECT_EQ(result.status, 0);
            EXPECT_EQ(result.err, "cv_install: warning: cannot open log \"" + log +
                                      "\": " + reason +
                                      "\n    Remove it before you run the next setup. The setup "
                                      "continues without a log.\n");
            EXPECT_EQ(hx_test::ReadFile("/var/log/target"), "target");
            EXPECT_EQ(Shell("stat -c '%a %U %h' " + log), before);
        }
        Shell("rm " + log);
        hx_test::WriteFile(log, std::string(100000, 'x'));
        Shell("chmod 644 " + log);
        EXPECT_EQ(RunRootSetup({"--cluster-node"}).status, 0);
        EXPECT_EQ(Shell("stat -c %a " + log), "600");
        EXPECT_EQ(Shell("grep -c --extended-regexp 'x{100}|exit status 0' " + log), "2");
    });
}

}  // namespace
