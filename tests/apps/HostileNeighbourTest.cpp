// Others can write to places that a setup by root reads: it runs nothing of theirs, and says so.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

// An installation by root, then `plant`, then a second setup that must refuse with `status` and a
// message that holds `reason`, and must neither run planted code nor write a script.
void ExpectRefusal(const std::function<void()>& plant, int status, const std::string& reason,
                   const std::vector<std::string>& options = {}) {
    HX_EXPECT_SCENARIO([&] {
        LayOutRootSetup();
        ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
        Shell("rm /tmp/corvane26_commit_*; useradd --create-home mallory");
        plant();
        const std::string passwords = Shell("md5sum /etc/shadow");
        std::vector<std::string> arguments = {"--yes"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const auto result = RunRootSetup(arguments);
        EXPECT_EQ(result.status, status) << result.out << result.err;
        EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
        EXPECT_NE(result.err.find("No changes were made."), std::string::npos) << result.err;
        EXPECT_FALSE(std::filesystem::exists("/pwned"));
        EXPECT_EQ(Shell("ls /tmp | grep corvane26_commit"), "");
        EXPECT_EQ(Shell("md5sum /etc/shadow"), passwords);
    });
}

void AsMallory(const std::string& command) {
    Shell("setpriv --reuid=mallory --regid=corvsrvc --clear-groups sh -c '" + command + "'");
}

class HostileNeighbour : public testing::TestWithParam<const char*> {};

TEST_P(HostileNeighbour, WritesCodeIntoTheScratchLine) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string scratch = GetParam();
    ExpectRefusal(
        [&] { hx_test::WriteFile("/var/corvane/QueueLimits", "Scratch: " + scratch + "\n"); }, 4,
        "invalid scratch directory of the previous setup");
}

INSTANTIATE_TEST_SUITE_P(Code, HostileNeighbour,
                         testing::Values("$(touch /pwned)", "`touch /pwned`",
                                         "\" ; touch /pwned ; \"", "/tmp\\", "/tmp\r", "/\x1b[2J",
                                         "/\xc2\x9b"
                                         "2J"));

TEST(HostileNeighbour, WritesOddLinesThatDoNoHarm) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string& text :
         {std::string("MaxThreads: 2; touch /pwned\nMemoryPerThreadMB: $(touch /pwned)\n"),
          "Scratch: /tmp/" + std::string(400, 'x') + "$(touch /pwned)\n",
          std::string("Scratch: /tmp\0$(touch /pwned)\n", 31)}) {
        HX_EXPECT_SCENARIO([&text] {
            LayOutRootSetup();
            ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
            hx_test::WriteFile("/var/corvane/QueueLimits", text);
            EXPECT_EQ(RunRootSetup({"--yes"}).status, 0);
            EXPECT_FALSE(std::filesystem::exists("/pwned"));
        });
    }
}

TEST(HostileNeighbour, HasANameInTheGroupDatabase) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const std::string name : {"x;touch$IFS/pwned", "$(touch /pwned)", "-x", "a*"}) {
        ExpectRefusal([&] { Shell("sed -i '/^corvsrvc:/s|$|" + name + "|' /etc/group"); }, 4,
                      "invalid service group member \"" + name + "\": ");
    }
}

TEST(HostileNeighbour, GivesHostileOptions) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectRefusal([] {}, 4, "invalid service user \"x;touch /pwned\"", {"-u", "x;touch /pwned"});
    ExpectRefusal([] {}, 4, "invalid service group \"$(touch /pwned)\"", {"-g", "$(touch /pwned)"});
}

TEST(HostileNeighbour, PlantsALinkWhereRootWrites) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const char* name : {"corvane26", "corvane26_snapshot", "QueueLimits", "QueueEntries",
                             "corvanerc/corvane26server/resources", "corvanerc"}) {
        const std::string path = std::string("/var/corvane/") + name;
        ExpectRefusal(
            [&] { AsMallory("mv " + path + " " + path + ".old; ln -s /etc/shadow " + path); }, 8,
            "\"" + path + "\" is a symbolic link not owned by root");
    }
}

TEST(HostileNeighbour, PlantsAPipeOrASecondName) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectRefusal(
        [] {
            AsMallory(
                "rm /var/corvane/QueueLimits; mkfifo /var/corvane/QueueEntries2; "
                "mv /var/corvane/QueueEntries2 /var/corvane/QueueEntries");
        },
        8, "\"/var/corvane/QueueEntries\" is not a regular file or directory");
    ExpectRefusal([] { Shell("ln -f /etc/shadow /var/corvane/QueueEntries"); }, 8,
                  "\"/var/corvane/QueueEntries\" has more than one hard link");
}

// The script gives the pages to the service account, one by one.
TEST(HostileNeighbour, PlantsASecondNameBelowThePages) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string name = "/var/corvane/corvanerc/corvane26server/icons/deep/page";
    ExpectRefusal(
        [&] { Shell("mkdir " + name.substr(0, name.rfind('/')) + " && ln /etc/shadow " + name); },
        8, "\"" + name + "\" has more than one hard link");
}

// The script would hand the text to ln, as an option.
TEST(HostileNeighbour, RefusesRepositoryLinkThatIsAnOption) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string link = "corvanerc/corvane24server/CorvaneServerRepository";
    ExpectRefusal(
        [&] {
            AsMallory(
                "cd /var/corvane; mv corvanerc/corvane26server away; "
                "mkdir corvanerc/corvane24server; ln -s -- -t/etc/cron.daily " +
                link);
        },
        8, "the target of symbolic link \"/var/corvane/" + link + "\" begins with \"-\"");
}

TEST(HostileNeighbour, RefusesQueueLimitsThatIsTooLarge) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectRefusal([] { AsMallory("truncate --size=200G /var/corvane/QueueLimits"); }, 8,
                  "\"/var/corvane/QueueLimits\" is not a regular file of at most 64 KB");
}

TEST(HostileNeighbour, RefusesTemporaryDirectoryOfOthers) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const char* change : {"chmod 0777 /tmp", "chown mallory /tmp"})
        ExpectRefusal([&] { Shell(change); }, 5, "unsafe directory \"/tmp\"");
}

// A path that is too long for the check may contain a hard link.
TEST(HostileNeighbour, RefusesTreeThatCannotBeWalked) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectRefusal(
        [] {
            Shell(
                "cd /var/corvane/corvanerc/corvane26server/icons; for _ in $(seq 300); do "
                "mkdir -p dddddddddddddddd && cd dddddddddddddddd; done");
        },
        8, "cannot check \"/var/corvane/corvanerc/corvane26server/icons");
}

// Answers the limits, the queue, the members and the plan, but runs $1 before it answers the plan,
// and $2, if there is one, at the first pause behind it.
constexpr const char* slowAnswers = R"(
await() {
    for _ in $(seq 200); do
        grep --quiet --no-messages "$1" /var/log/corvane26_setup.log && return
        sleep 0.05
    done
}
rm /var/log/corvane26_setup.log
{
    printf '\n\n\n\n\n\n\n1\n\n\n\n'
    await 'Continue?'
    eval "$1"
    echo y
    [ -z "$2" ] || { await 'Continue? .*---'; eval "$2"; printf '\n\n\n'; }
} | /opt/corvane26/cv_install --setup
)";

// An installation by root and a second one, at whose waits the commands are run.
void ExpectSecondLook(const std::string& atPlan, const std::string& atPause,
                      const std::string& changed) {
    HX_EXPECT_SCENARIO([&] {
        LayOutRootSetup();
        ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
        Shell("rm /tmp/corvane26_commit_*");
        const std::string passwords = Shell("md5sum /etc/shadow");
        const auto result = hx_test::Run({"bash", "-c", slowAnswers, "bash", atPlan, atPause},
                                         {.env = {{"LSAN_OPTIONS", "detect_leaks=0"}}});
        EXPECT_EQ(result.status, 8) << result.out << result.err;
        EXPECT_EQ(
            result.err,
            "cv_install: unsafe path: \"/var/corvane/corvane26\" is a symbolic link not owned by "
            "root\n    Root would write through it. Inspect it, remove it, then run the setup "
            "again.\n    " +
                changed + "\n");
        EXPECT_EQ(Shell("ls /tmp | grep corvane26_commit"), "");
        EXPECT_EQ(Shell("md5sum /etc/shadow"), passwords);
    });
}

TEST(HostileNeighbour, PlantsALinkWhileRootReads) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string plant =
        "setpriv --reuid=corvsrvc --regid=corvsrvc --clear-groups "
        "ln -sf /etc/shadow /var/corvane/corvane26";
    ExpectSecondLook(plant, "", "No changes were made.");
    ExpectSecondLook(":", plant, "At most, Q-Chem files and submission scripts were changed.");
}

TEST(HostileNeighbour, PlantsWhatCannotBeReadToItsEnd) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectRefusal([] { AsMallory("cd /var/corvane; rm QueueLimits; mkfifo QueueLimits"); }, 8,
                  "\"/var/corvane/QueueLimits\" is not a regular file or directory");
    ExpectRefusal([] { AsMallory("cd /var/corvane; rm QueueLimits; ln -s /dev/zero QueueLimits"); },
                  8, "\"/var/corvane/QueueLimits\" is a symbolic link");
}

// The repository's link is root's, and whoever may write to the tree says where it points.
TEST(HostileNeighbour, MovesALinkThatRootMade) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectRefusal(
        [] {
            AsMallory(
                "cd /var/corvane/corvanerc; mv corvane26server away; mkdir corvane24server; "
                "ln -s /srv/evil corvane24server/CorvaneServerRepository");
            ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
            Shell("rm /tmp/corvane26_commit_*");
            AsMallory(
                "cd /var/corvane; rm QueueEntries; "
                "mv corvanerc/corvane26server/CorvaneServerRepository QueueEntries");
            ASSERT_EQ(Shell("stat -c %U /var/corvane/QueueEntries"), "root");
        },
        8,
        "\"/var/corvane/QueueEntries\" is a symbolic link in a directory that other users can "
        "write to");
    ASSERT_FALSE(std::filesystem::exists("/srv/evil"));
}

TEST(HostileNeighbour, AFollowedLinkOfRootIsFine) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        ASSERT_EQ(RunRootSetup({"--yes"}).status, 0);
        Shell("mv /var/corvane /srv/corvane; ln -s /srv/corvane /var/corvane");
        EXPECT_EQ(RunRootSetup({"--yes"}).status, 0);
    });
}

TEST(HostileNeighbour, PlantsSomethingForTheLog) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string log = "/var/log/corvane26_setup.log";
    struct Trap {
        std::string plant;
        const char* reason;
    };
    for (const Trap& trap :
         {Trap{"ln -s /var/log/target " + log, "Too many levels of symbolic links"},
          Trap{"ln /var/log/target " + log, "Operation not permitted"},
          Trap{"mkfifo " + log, "No such device or address"},
          Trap{"install --owner=nobody /dev/null " + log, "Operation not permitted"}}) {
        HX_EXPECT_SCENARIO([&] {
            LayOutRootSetup();
            hx_test::WriteFile("/var/log/target", "target");
            Shell("rm -f " + log + "; " + trap.plant);
            const std::string before = Shell("stat -c '%a %U %h' " + log);
            const auto result = RunRootSetup({"--yes"});
            EXPECT_EQ(result.status, 0);
            EXPECT_EQ(result.err.find("cv_install: warning: cannot open log \"" + log +
                                      "\": " + trap.reason + "\n"),
                      0)
                << result.err;
            EXPECT_EQ(hx_test::ReadFile("/var/log/target"), "target");
            EXPECT_EQ(Shell("stat -c '%a %U %h' " + log), before);
        });
    }
}

TEST(HostileNeighbour, CannotReadALogThatWasThereBefore) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        hx_test::WriteFile("/var/log/corvane26_setup.log", std::string(100000, 'x'));
        Shell("chmod 644 /var/log/corvane26_setup.log");
        EXPECT_EQ(RunRootSetup({"--yes"}).status, 0);
        EXPECT_EQ(Shell("stat -c %a /var/log/corvane26_setup.log"), "600");
        EXPECT_EQ(Shell("grep -c --extended-regexp x{100} /var/log/corvane26_setup.log"), "0");
    });
}

}  // namespace
