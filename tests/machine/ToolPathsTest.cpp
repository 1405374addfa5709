// Which paths the script finds for its tools, on a machine whose /bin is a directory of its own.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "harness/TempDir.h"
#include "machine/Installation.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

// Directories /bin and /sbin of links into /usr, without those of `missing`.
void TakeApart(const std::set<std::string>& missing) {
    for (const std::string directory : {"/bin", "/sbin"}) {
        const std::string away = "/taken_apart" + directory;
        fs::create_directories(away);
        for (const auto& entry : fs::directory_iterator("/usr" + directory)) {
            const std::string name = entry.path().filename();
            if (!missing.contains(name))
                fs::create_symlink(entry.path(), away + "/" + name);
        }
        if (fs::is_symlink(directory))
            fs::remove(directory);
        else
            fs::rename(directory, directory + ".was");
        fs::rename(away, directory);
    }
}

// What the script's variables hold when it ends: it is sourced, and a trap of ours tells them.
std::string ToolsAtTheEnd(const std::string& names) {
    QString path;
    EXPECT_TRUE(NewRootRun().WriteCommitScript(path, false));
    std::string tell = "echo";
    for (size_t at = 0; at < names.size();) {
        const size_t end = std::min(names.find(' ', at), names.size());
        tell += " ${" + names.substr(at, end - at) + "_CMD}";
        at = end + 1;
    }
    const auto result = hx_test::Run(
        {"/usr/bin/bash", "-c", "trap '" + tell + "' EXIT; . \"$0\"", path.toStdString()});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    const size_t last = result.out.rfind('\n', result.out.size() - 2);
    return result.out.substr(last + 1);
}

TEST(ToolPaths, TheFirstPathsAreTakenWhereTheyAreExecutable) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        TakeApart({});
        for (const std::string tool : {"/sbin/service", "/bin/systemctl"}) {
            fs::remove(tool);
            fs::create_symlink("/usr/bin/true", tool);
        }
        EXPECT_EQ(ToolsAtTheEnd("LN AWK TOUCH GREP TAR SERVICE SYSTEMCTL"),
                  "/bin/ln /bin/awk /bin/touch /bin/grep /bin/tar /sbin/service /bin/systemctl\n");
    });
}

TEST(ToolPaths, MissingToolsAreLookedForBelowUsr) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        TakeApart({"ln", "awk", "touch", "grep", "tar", "service", "systemctl"});
        ASSERT_FALSE(fs::exists("/bin/ln"));
        EXPECT_EQ(ToolsAtTheEnd("LN AWK TOUCH GREP TAR SERVICE SYSTEMCTL"),
                  "/usr/bin/ln /usr/bin/awk /usr/bin/touch /usr/bin/grep /usr/bin/tar "
                  "/usr/sbin/service /usr/bin/systemctl\n");
        EXPECT_TRUE(fs::is_symlink("/usr/bin/corvane26"));
        EXPECT_TRUE(fs::is_regular_file("/var/corvane/QueueEntries"));
        EXPECT_TRUE(fs::exists("/var/corvane/corvanerc/corvane26server/icons/icons.txt"));
    });
}

// The test for the group goes through awk: were it not found, the group would be made again.
TEST(ToolPaths, TheServiceGroupIsFoundWithTheOtherAwk) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        TakeApart({"awk"});
        ASSERT_FALSE(fs::exists("/bin/awk"));
        ASSERT_EQ(RunCommitScript(NewRootRun()).status, 0);
        const auto second = RunCommitScript(NewRootRun());
        EXPECT_EQ(second.status, 0) << second.out;
        EXPECT_EQ(second.out.find("Service Group"), std::string::npos) << second.out;
        EXPECT_EQ(second.err, "");
    });
}

TEST(ToolPaths, ASystemWithNeitherPackageToolIsSetUpAllTheSame) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        TakeApart({"rpm", "dpkg", "dpkg-query"});
        for (const char* tool : {"/usr/bin/rpm", "/usr/bin/dpkg", "/usr/bin/dpkg-query"})
            fs::remove(tool);
        fs::remove("/etc/os-release");
        WriteFile("/etc/os-release", "ID=slackware\n");
        const auto result = RunCommitScript(NewRootRun());
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(result.out.ends_with("completed successfully!\n\n")) << result.out;
    });
}

TEST(ToolPaths, AFileThatIsNotExecutableCountsAsMissing) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        TakeApart({"awk"});
        WriteFile("/bin/awk", "");
        EXPECT_EQ(ToolsAtTheEnd("AWK"), "/usr/bin/awk\n");
    });
}

TEST(ToolPaths, TheFallbackOfStringsIsItsFirstPathAndChkconfigHasNone) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        TakeApart({"chkconfig"});
        fs::remove("/usr/bin/strings");
        EXPECT_EQ(ToolsAtTheEnd("STRINGS CHKCONFIG"), "/usr/bin/strings /sbin/chkconfig\n");
    });
}

}  // namespace
