// The paths that the script finds for its tools on a machine whose /bin is a separate directory.
#include <filesystem>
#include <set>
#include <sstream>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/Installation.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

const std::string sevenTools = "LN AWK TOUCH GREP TAR SERVICE SYSTEMCTL";

// Replaces /bin and /sbin by directories of links into /usr, without those of `missing`.
void Separate(const std::set<std::string>& missing) {
    for (const std::string directory : {"/bin", "/sbin"}) {
        const std::string links = "/separate" + directory;
        fs::create_directories(links);
        for (const auto& entry : fs::directory_iterator("/usr" + directory)) {
            const std::string name = entry.path().filename();
            if (!missing.contains(name))
                fs::create_symlink(entry.path(), links + "/" + name);
        }
        if (fs::is_symlink(directory))
            fs::remove(directory);
        else
            fs::rename(directory, directory + ".was");
        fs::rename(links, directory);
    }
}

// The script is sourced, so that a trap can print its variables at the end.
std::string ToolsAtEnd(const std::string& names) {
    QString path;
    EXPECT_TRUE(NewRootRun().WriteCommitScript(path, false));
    std::string print = "echo";
    std::istringstream words(names);
    for (std::string name; words >> name;)
        print += " ${" + name + "_CMD}";
    const auto result = hx_test::Run(
        {"/usr/bin/bash", "-c", "trap '" + print + "' EXIT; . \"$0\"", path.toStdString()});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    return result.out.substr(result.out.rfind('\n', result.out.size() - 2) + 1);
}

HX_MACHINE_TEST(ToolPaths, PreferBinWhenExecutable) {
    Separate({});
    Shell("ln -sf /usr/bin/true /sbin/service; ln -sf /usr/bin/true /bin/systemctl");
    EXPECT_EQ(ToolsAtEnd(sevenTools),
              "/bin/ln /bin/awk /bin/touch /bin/grep /bin/tar /sbin/service /bin/systemctl\n");
}

HX_MACHINE_TEST(ToolPaths, FallBackToUsr) {
    Separate({"ln", "awk", "touch", "grep", "tar", "service", "systemctl"});
    ASSERT_FALSE(fs::exists("/bin/ln"));
    EXPECT_EQ(ToolsAtEnd(sevenTools),
              "/usr/bin/ln /usr/bin/awk /usr/bin/touch /usr/bin/grep /usr/bin/tar "
              "/usr/sbin/service /usr/bin/systemctl\n");
    EXPECT_TRUE(fs::is_symlink(commandLink));
    EXPECT_TRUE(fs::is_regular_file(sharedDir + "/QueueEntries"));
    EXPECT_TRUE(fs::exists(serverDir + "/icons/icons.txt"));
}

// The check for the group uses awk: without it, the script would try to create the group again.
HX_MACHINE_TEST(ToolPaths, FindServiceGroupWithAwkOfUsr) {
    Separate({"awk"});
    ASSERT_FALSE(fs::exists("/bin/awk"));
    Complete();
    const std::string out = Complete();
    EXPECT_EQ(out.find("Service Group"), std::string::npos) << out;
}

HX_MACHINE_TEST(ToolPaths, AreCompleteWithoutPackageTools) {
    Separate({"rpm", "dpkg", "dpkg-query"});
    Shell(
        "cd /usr/bin; rm -f rpm dpkg dpkg-query /etc/os-release; echo ID=slackware > "
        "/etc/os-release");
    EXPECT_TRUE(Complete().ends_with("completed successfully!\n\n"));
}

HX_MACHINE_TEST(ToolPaths, SkipFileThatIsNotExecutable) {
    Separate({"awk"});
    WriteFile("/bin/awk", "");
    EXPECT_EQ(ToolsAtEnd("AWK"), "/usr/bin/awk\n");
}

HX_MACHINE_TEST(ToolPaths, DefaultToFirstPathForStringsAndChkconfig) {
    Separate({"chkconfig"});
    fs::remove("/usr/bin/strings");
    EXPECT_EQ(ToolsAtEnd("STRINGS CHKCONFIG"), "/usr/bin/strings /sbin/chkconfig\n");
}

}  // namespace
