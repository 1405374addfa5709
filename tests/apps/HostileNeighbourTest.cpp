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
        EXPECT_NE(result.err.find("Nothing has been changed."), std::string::npos) << result.err;
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
        "the scratch directory of the last installation");
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
                      "the service group member \"" + name + "\" cannot be used");
    }
}

TEST(HostileNeighbour, GivesHostileOptions) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectRefusal([] {}, 4, "the service user \"x;touch /pwned\"", {"-u", "x;touch /pwned"});
    ExpectRefusal([] {}, 4, "the service group \"$(touch /pwned)\"", {"-g", "$(touch /pwned)"});
}

TEST(HostileNeighbour, PlantsALinkWhereRootWrites) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const char* name : {"corvane26", "corvane26_snapshot", "QueueLimits", "QueueEntries",
                             "corvanerc/corvane26server/resources", "corvanerc"}) {
        const std::string path = std::string("/var/corvane/") + name;
        ExpectRefusal(
            [&] { AsMallory("mv " + path + " " + path + ".old; ln -s /etc/shadow " + path); }, 8,
            "\"" + path + "\" is a symbolic link that root did not make");
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
        8, "\"/var/corvane/QueueEntries\" is neither a file nor a directory");
    ExpectRefusal([] { Shell("ln -f /etc/shadow /var/corvane/QueueEntries"); }, 8,
                  "\"/var/corvane/QueueEntries\" has a second name");
}

TEST(HostileNeighbour, PlantsWhatCannotBeReadToItsEnd) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectRefusal([] { AsMallory("cd /var/corvane; rm QueueLimits; mkfifo QueueLimits"); }, 8,
                  "\"/var/corvane/QueueLimits\" is neither a file nor a directory");
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
        8, "\"/var/corvane/QueueEntries\" is a symbolic link in a directory that others may write");
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

TEST(HostileNeighbour, PlantsALinkForTheLog) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        const std::string passwords = Shell("md5sum /etc/passwd");
        Shell("cp /etc/passwd /srv/target; ln -s /srv/target /var/log/corvane26_setup.log");
        const auto result = RunRootSetup({"--yes"});
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(result.err.find("there will be no log"), std::string::npos);
        EXPECT_EQ(Shell("md5sum < /srv/target"), passwords.substr(0, 32) + "  -");
    });
}

}  // namespace
