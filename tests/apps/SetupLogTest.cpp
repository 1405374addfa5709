// The log of setups as root: what each of them adds, and a log that is moved meanwhile.
#include <gtest/gtest.h>

#include "apps/RootSetup.h"
#include "harness/Expect.h"
#include "machine/ThrowawayRoot.h"

namespace {

using hx_test::ExpectHolds;

// Without time and host.
std::string OutcomesIn(const std::string& logs) {
    return Shell("grep --no-filename '^===' " + logs +
                 " | sed -E 's/^=== [0-9-]+T[0-9:]+[+-][0-9]{4} [^ ]+ /=== /'");
}

TEST(SetupLog, KeepsHeadersAndOutcomesOfAllSetups) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const std::string log = "/var/log/corvane26_setup.log";
        LayOutRootSetup();
        Shell("rm -f " + log);
        EXPECT_EQ(RunRootSetup({}, "2\n\n\n\n1\n\nn\n").status, 9);
        EXPECT_EQ(RunRootSetup({"--cluster-node", "-m", "700"}).status, 0);
        EXPECT_EQ(RunRootSetup({"--no-such"}).status, 3);
        EXPECT_EQ(RunRootSetup({"--dry-run", "--no-such"}).status, 3);
        EXPECT_EQ(RunRootSetup({"--dry-run", "--cluster-node"}).status, 0);
        Shell("flock /run/corvane26_setup.lock /opt/corvane26/cv_install --setup --yes");
        EXPECT_EQ(RunRootSetup({"--cluster-node"}).status, 0);
        const std::string header = "=== cv_install 26.0.0, user root";
        const std::string completed = header + "\n=== exit status 0: setup completed\n";
        EXPECT_EQ(OutcomesIn(log) + '\n',
                  header + ": exit status 9: setup canceled: plan not confirmed\n" + completed +
                      header + ": exit status 3: unknown option \"--no-such\"\n" + header +
                      ": exit status 64: another setup is running\n" + completed);
        const std::string text = hx_test::ReadFile(log);
        ExpectHolds(text, "\nCommand: /opt/corvane26/cv_install --setup --cluster-node -m 700\n");
        ExpectHolds(text, "\nMemory limit: 700 MB");
    });
}

TEST(SetupLog, IsWrittenAgainAfterItIsMoved) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        LayOutRootSetup();
        // Called when the setup begins, and after the merge. The parent is the setup.
        hx_test::WriteFile("/usr/bin/systemctl",
                           "#!/bin/sh\n[ \"$1\" = is-active ] || exit 0\necho active\n"
                           "mv /var/log/corvane26_setup.log /var/log/moved.$$\n"
                           "[ ! -e /usr/bin/corvane26 ] || kill -TERM $PPID\n");
        Shell("rm -f /var/log/moved.*");
        const auto result = RunRootSetup({"--yes"});
        EXPECT_EQ(result.status, 0) << result.err;
        ExpectHolds(result.err, "received signal Terminated too late to stop the setup\n");
        ExpectHolds(result.err,
                    "log \"/var/log/corvane26_setup.log\" was moved or removed during the setup\n");
        EXPECT_EQ(OutcomesIn("/var/log/moved.*"),
                  "=== cv_install 26.0.0, user root\n=== exit status 0: setup completed");
    });
}

}  // namespace
