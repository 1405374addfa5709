// What root's commit script creates on a fresh machine, and what it keeps when it runs again.
#include <sys/stat.h>

#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/Installation.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

HX_MACHINE_TEST(RootRun, CreatesInstallation) {
    umask(077);
    Complete();
    const std::pair<const char*, const char*> modes[] = {
        {"", "775"},
        {"/corvanerc", "775"},
        {"/corvanerc/corvane26", "775"},
        {"/corvanerc/corvane26server", "775"},
        {"/corvanerc/corvane26server/CorvaneServerRepository", nullptr},
        {"/corvanerc/corvane26server/icons", "750"},
        {"/corvanerc/corvane26server/icons/icons.txt", "640"},
        {"/corvanerc/corvane26server/resources", "750"},
        {"/corvanerc/corvane26server/resources/resources.txt", "640"},
        {"/corvane26", "775"},
        {"/corvane26_snapshot", "775"},
        {"/QueueEntries", "666"},
        {"/QueueLimits", "664"}};
    for (const auto& [path, mode] : modes)
        EXPECT_EQ(Access(sharedDir + path),
                  mode == nullptr ? "missing" : mode + std::string(" corvsrvc:corvsrvc"))
            << path;
    EXPECT_EQ(ReadFile(serverDir + "/icons/icons.txt"), "content of icons\n");
    EXPECT_EQ(ReadFile(serverDir + "/resources/resources.txt"), "content of resources\n");
    EXPECT_EQ(ReadFile(sharedDir + "/corvane26"), RunScript());
    EXPECT_EQ(ReadFile(sharedDir + "/corvane26_snapshot"), SnapshotScript());
    EXPECT_EQ(ReadFile(sharedDir + "/QueueEntries"), "");
    EXPECT_EQ(ReadFile(sharedDir + "/QueueLimits"), QueueLimits());
    EXPECT_EQ(fs::read_symlink(commandLink), "/var/corvane/corvane26");
    EXPECT_EQ(fs::read_symlink(snapshotLink), "/var/corvane/corvane26_snapshot");
}

HX_MACHINE_TEST(RootRun, RestoresOwnersButNoDirectoryModesOnRerun) {
    Complete();
    const std::string directories[] = {sharedDir, sharedDir + "/corvanerc",
                                       sharedDir + "/corvanerc/corvane26", serverDir};
    for (const auto& directory : directories)
        fs::permissions(directory, fs::perms::owner_all);
    Shell("chown -R root:root " + sharedDir);
    Complete();
    for (const auto& directory : directories)
        EXPECT_EQ(Access(directory), "700 corvsrvc:corvsrvc") << directory;
    EXPECT_EQ(Shell("find " + sharedDir + " ! -user corvsrvc -o ! -group corvsrvc"),
              sharedDir + "/corvane26_service.service");
}

HX_MACHINE_TEST(RootRun, RewritesScriptsWithTheirModesOnRerun) {
    Complete();
    const std::string garbage(100000, 'x');
    WriteFile(sharedDir + "/corvane26", garbage);
    WriteFile(sharedDir + "/corvane26_snapshot", garbage);
    Shell("cd /var/corvane; chmod 700 corvane26; chmod 4775 corvane26_snapshot");
    Complete();
    EXPECT_EQ(ReadFile(sharedDir + "/corvane26"), RunScript());
    EXPECT_EQ(ReadFile(sharedDir + "/corvane26_snapshot"), SnapshotScript());
    EXPECT_EQ(Mode(sharedDir + "/corvane26"), "775");
    EXPECT_EQ(Mode(sharedDir + "/corvane26_snapshot"), "775");
}

HX_MACHINE_TEST(RootRun, KeepsQueueAndRewritesLimitsOnRerun) {
    Complete();
    Shell(
        "cd /var/corvane; echo 1 chem waiting > QueueEntries; chmod 400 QueueEntries;"
        "printf 'MaxThreads: 3\\nUnknown: dropped\\n' > QueueLimits; chmod 777 QueueLimits");
    CInstallBase& run = NewRootRun();
    run.m_memoryLimitMB = 4096;
    Complete(run);
    EXPECT_EQ(ReadFile(sharedDir + "/QueueEntries"), "1 chem waiting\n");
    EXPECT_EQ(Mode(sharedDir + "/QueueEntries"), "666");
    EXPECT_EQ(ReadFile(sharedDir + "/QueueLimits"), QueueLimits("12", "4096"));
    EXPECT_EQ(Mode(sharedDir + "/QueueLimits"), "664");
}

HX_MACHINE_TEST(RootRun, UnpacksServerFilesOnlyWithoutTheirDirectory) {
    Complete();
    fs::remove(serverDir + "/resources/resources.txt");
    fs::remove_all(serverDir + "/icons");
    Complete();
    EXPECT_TRUE(fs::is_empty(serverDir + "/resources"));
    EXPECT_EQ(ReadFile(serverDir + "/icons/icons.txt"), "content of icons\n");
}

HX_MACHINE_TEST(RootRun, ChangesOnlyRunScriptForAnotherQueueType) {
    Complete();
    const auto list = [] {
        return Shell(
            "find /var/corvane /usr/bin/corvane26 /usr/bin/corvane26_snapshot "
            "-printf '%p %i %m %u %g %s %l\n'");
    };
    CInstallBase& run = NewRootRun();
    run.m_queueType = CInstallBase::QueueInternal;
    const std::string before = list();
    Complete(run);
    Values values = RunScriptValues();
    values["CORV_QUEUE_TYPE"] = "INTERNAL";
    values["CORV_QUEUE_NAME"] = "";
    values["CORV_PARTITION_NAME"] = "";
    EXPECT_EQ(ReadFile(sharedDir + "/corvane26"), RunScript(values));
    // The first type again, so that the run script has its first size.
    Complete();
    EXPECT_EQ(list(), before);
}

HX_MACHINE_TEST(RootRun, SkipsServerFilesOnComputeNode) {
    CInstallBase& run = NewRootRun();
    run.m_clusterNode = true;
    Complete(run);
    EXPECT_EQ(Access(serverDir), "775 corvsrvc:corvsrvc");
    EXPECT_TRUE(fs::is_empty(serverDir));
    EXPECT_TRUE(fs::is_symlink(commandLink));
    Values values = RunScriptValues();
    values["CORV_CLUSTER_NODE"] = "YES";
    EXPECT_EQ(ReadFile(sharedDir + "/corvane26"), RunScript(values));
}

HX_MACHINE_TEST(RootRun, CompletesWhenChownFails) {
    CInstallBase& run = NewRootRun();
    run.m_clusterNode = true;
    ReplaceProgram("/usr/bin/chown", "exit 1");
    Complete(run);
    EXPECT_EQ(Access(sharedDir + "/QueueLimits"), "664 root:root");
}

HX_MACHINE_TEST(RootRun, RefusesScriptOfRootForRegularUser) {
    QString path;
    ASSERT_TRUE(NewRootRun().WriteCommitScript(path, false));
    const std::string script = path.toStdString();
    Shell("chmod 644 " + script);
    const auto result = hx_test::Run(
        {"setpriv", "--reuid=12345", "--regid=12345", "--clear-groups", "/bin/bash", script});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "Starting Corvane'26 Installation script\n\n"
              "Error, the Corvane installation commit script was created by root\n"
              "so must be run by root!\n");
    EXPECT_FALSE(fs::exists(sharedDir));
}

}  // namespace
