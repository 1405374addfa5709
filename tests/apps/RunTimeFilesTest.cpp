// The files that cv_install writes itself, before the commit script.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "apps/RootSetup.h"
#include "apps/UserSetup.h"
#include "harness/Expect.h"
#include "machine/ThrowawayRoot.h"

namespace {

namespace fs = std::filesystem;
using hx_test::ExpectHolds;

const std::string separator = std::string(60, '-') + "\n";

class RunTimeFiles : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    hx_test::ProcessResult Run(std::vector<std::string> further = {}) {
        further.insert(further.begin(), {"--setup", "--user-mode", "--yes"});
        return m_setup.Run(further);
    }

    std::string WithoutError(const std::vector<std::string>& arguments) {
        const auto result = Run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out;
    }

    UserSetup m_setup;
};

TEST_F(RunTimeFiles, GiveAnswersToQChem) {
    const std::string out = WithoutError({"-m", "777", "-s", "5", "-d", "/tmp/a b"});
    ExpectHolds(
        out,
        separator + "  Scratch limit per job: 5 GB\n" + separator +
            "  Memory limit per job: 777 MB\n" + separator +
            "  Scratch storage directory: /tmp/a b\nStarting Corvane'26 Installation script\n");
    EXPECT_EQ(m_setup.File("qchemrc/qchemrc"),
              "$rem\nAO2MO_DISK        5\nMEM_TOTAL       777\n$end\n");
    EXPECT_EQ(m_setup.File("qchemrc/qcscratch"), "/tmp/a b");

    // A later setup, on a compute node too, writes the new answers.
    WithoutError({"--cluster-node", "-m", "888", "-s", "5"});
    EXPECT_EQ(m_setup.File("qchemrc/qchemrc"),
              "$rem\nAO2MO_DISK        5\nMEM_TOTAL       888\n$end\n");
}

TEST_F(RunTimeFiles, WriteSubmissionScriptsOnlyOnRequest) {
    WithoutError({});
    EXPECT_FALSE(m_setup.Has("corvane26_samba"));
    EXPECT_FALSE(m_setup.Has("corvane26_ssh"));
    for (const auto& [edited, done] :
         {std::pair{"corvane26_samba", "created"}, std::pair{"corvane26_ssh", "updated"}}) {
        const std::string out = WithoutError({"--submission-scripts"});
        for (const std::string name : {"corvane26_samba", "corvane26_ssh"}) {
            EXPECT_TRUE(m_setup.File(name).ends_with(
                hx_test::ReadFile(HX_EXPECTED_DIR "/generated/" + name + ".tail")));
            ExpectHolds(out, "  " + m_setup.Inside(name) + " script " + done + "...\n");
        }
        hx_test::WriteFile(m_setup.Outside(edited), "edited");
        WithoutError({});
        EXPECT_EQ(m_setup.File(edited), "edited");
    }
}

// Of a setup in place that cannot start its commit script, the modes remain that cv_install itself
// sets. A staged one changes nothing.
TEST(RootRunTimeFiles, GiveNewInstallDirectoryItsModeAtOnce) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const struct {
        RootMode mode;
        const char* prepare;
        const char* permissions;
    } cases[] = {{RootMode::Staged, "true", ""},
                 {RootMode::Staged, "mkdir --mode=755 /var/corvane", "755"},
                 {RootMode::InPlace, "true", "775"},
                 {RootMode::InPlace, "mkdir --mode=755 /var/corvane", "755"},
                 {RootMode::InPlace, "mkdir --mode=700 /var/corvane", "700"}};
    HX_EXPECT_SCENARIO([&] {
        LayOutRootSetup();
        Shell("chmod a-x /bin/bash");
        for (const auto& [mode, prepare, permissions] : cases) {
            Shell(std::string("rm -rf /var/corvane; ") + prepare);
            umask(077);
            const auto result = RunRootSetup({"--yes"}, {}, mode);
            EXPECT_EQ(result.status, 6) << result.out;
            EXPECT_EQ(Shell("stat -c %a /var/corvane"), permissions);
            EXPECT_EQ(Shell("ls /var/corvane/qchemrc") == "", mode == RootMode::Staged);
            ExpectHolds(result.err, "cv_install: cannot start the commit script: ");
            EXPECT_TRUE(result.err.ends_with(
                "    Make sure that /bin/bash is executable, then run the setup again.\n" +
                std::string(mode == RootMode::Staged
                                ? "    No changes were made.\n"
                                : "    At most, Q-Chem files and submission scripts were "
                                  "changed.\n") +
                logOfRoot))
                << result.err;
        }
    });
}

}  // namespace
