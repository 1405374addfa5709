// A regular user's commit script: what it creates in a private copy, and nothing elsewhere.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "harness/Child.h"
#include "harness/TempDir.h"
#include "machine/Installation.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

// The private copy is in an existing directory, with the binaries.
CInstallBase& NewUserRun(const std::string& directory) {
    CInstallBase& run = NewSetupRun(directory, directory);
    run.m_accessFlags = 0;
    run.m_prevJobLimit = -1;
    return run;
}

void ExpectAsUser(const std::function<void(const std::string& directory)>& body) {
    const TempDir directory;
    const auto result = RunInChild(World{.identity = World::Identity::User}, [&] {
        umask(022);
        LayOutProduct(directory.path());
        body(directory.path());
    });
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

std::string Expected(const std::string& text, const std::string& directory) {
    std::string result;
    for (const char c : text)
        result += c == '@' ? directory : std::string(1, c);
    return result;
}

// The umask has no influence on the modes.
TEST(UserRun, CreatesInstallDirectoryWithItsModes) {
    HX_REQUIRE_NAMESPACES();
    ExpectAsUser([](const std::string& directory) {
        umask(077);
        CInstallBase& run = NewUserRun(directory);
        run.m_installDir = QString::fromStdString(directory + "/tree");
        Complete(run);
        const auto list = hx_test::Run(
            {"sh", "-c", "cd \"$0\" && stat -c '%a %n' . corvanerc corvanerc/* corvane26* Queue*",
             directory + "/tree"});
        EXPECT_EQ(list.out,
                  "755 .\n755 corvanerc\n755 corvanerc/corvane26\n755 corvanerc/corvane26server\n"
                  "755 corvane26\n755 corvane26_snapshot\n644 QueueEntries\n644 QueueLimits\n");
    });
}

TEST(UserRun, FillsPrivateCopyAndPrintsItsSteps) {
    HX_REQUIRE_NAMESPACES();
    const auto links = [] {
        return fs::exists(fs::symlink_status(commandLink)) +
               2 * fs::exists(fs::symlink_status(snapshotLink));
    };
    const int before = links();
    ExpectAsUser([](const std::string& directory) {
        EXPECT_EQ(Complete(NewUserRun(directory)),
                  Expected(R"(Starting Corvane'26 Installation script

Created directory @/corvanerc

Created directory @/corvanerc/corvane26

Created directory @/corvanerc/corvane26server

resources/
resources/resources.txt
Unpacked resources @/corvanerc/corvane26server/resources

icons/
icons/icons.txt
Unpacked icons @/corvanerc/corvane26server/icons

Wrote Corvane'26 run script, @/corvane26

Updating @/corvane26: 644 -> 755
Wrote Corvane'26 snapshot run script, @/corvane26_snapshot

Updating @/corvane26_snapshot: 644 -> 755
@/QueueEntries already has mode 644. Skipping.
@/QueueLimits already has mode 644. Skipping.
Corvane'26 Installation script completed successfully!

)",
                           directory));
        EXPECT_EQ(ReadFile(directory + "/corvane26"),
                  RunScript(RunScriptValues(directory, directory)));
        EXPECT_EQ(ReadFile(directory + "/corvane26_snapshot"),
                  SnapshotScript(directory, directory));
        EXPECT_EQ(ReadFile(directory + "/corvanerc/corvane26server/icons/icons.txt"),
                  "content of icons\n");
        EXPECT_EQ(ReadFile(directory + "/QueueLimits"), QueueLimits());
        const std::string uid = std::to_string(getuid());
        const std::string gid = std::to_string(getgid());
        EXPECT_EQ(hx_test::Run({"find", directory, "!", "-uid", uid, "-o", "!", "-gid", gid}).out,
                  "");
    });
    EXPECT_EQ(links(), before);
}

TEST(UserRun, KeepsDirectoriesAndQueueOnRerun) {
    HX_REQUIRE_NAMESPACES();
    ExpectAsUser([](const std::string& directory) {
        Complete(NewUserRun(directory));
        fs::permissions(directory + "/corvanerc", fs::perms::owner_all);
        WriteFile(directory + "/QueueEntries", "1 chem waiting\n");
        fs::permissions(directory + "/QueueEntries", fs::perms::all);
        EXPECT_EQ(Complete(NewUserRun(directory)),
                  Expected(R"(Starting Corvane'26 Installation script

Wrote Corvane'26 run script, @/corvane26

@/corvane26 already has mode 755. Skipping.
Wrote Corvane'26 snapshot run script, @/corvane26_snapshot

@/corvane26_snapshot already has mode 755. Skipping.
Updating @/QueueEntries: 777 -> 644
@/QueueLimits already has mode 644. Skipping.
Corvane'26 Installation script completed successfully!

)",
                           directory));
        EXPECT_EQ(Mode(directory + "/corvanerc"), "700");
        EXPECT_EQ(ReadFile(directory + "/QueueEntries"), "1 chem waiting\n");
    });
}

}  // namespace
