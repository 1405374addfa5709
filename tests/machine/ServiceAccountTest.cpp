// The service account in a real user database: created once, then left unchanged.
#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/Installation.h"
#include "machine/ServiceManager.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

const std::string opening = "Starting Corvane'26 Installation script\n\n";
const std::string groupCreated = "Corvane Service Group created\n\n";
const std::string userCreated = "Corvane Service User created\n\n";
const std::string groupFailed = "Error, unable to create Corvane service group.\n";
constexpr const char* failing = "echo refused >&2; exit 7";

// A system account with the properties that the setup asks for.
void ExpectAccount(const std::string& shell, const std::string& user = serviceAccount,
                   const std::string& group = serviceAccount) {
    const std::string record = Shell("getent group " + group);
    const Match parts = FirstMatch(record, "^" + group + ":[^:]*:([1-9][0-9]{0,2}):$");
    ASSERT_FALSE(parts.empty()) << record;
    const std::string userRecord = Shell("getent passwd " + user);
    EXPECT_TRUE(IsMatch(userRecord, user + ":[^:]*:[1-9][0-9]{0,2}:" + parts[1] +
                                        ":Corvane Compute Service:/var/corvane:" + shell))
        << userRecord;
}

CInstallBase& RunWithQueue(int queueType) {
    CInstallBase& run = NewRootRun();
    run.m_queueType = queueType;
    return run;
}

// Expects a complete setup whose output starts like this.
void ExpectOutput(const std::string& begin, int queueType = 1) {
    const std::string out = Complete(RunWithQueue(queueType));
    EXPECT_TRUE(out.starts_with(opening + begin)) << out;
}

TEST(ServiceAccount, HasLoginShellOnlyForExternalQueue) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const int type : {0, 1, 2, 3}) {
        ExpectOnMachine([&] {
            ExpectOutput(groupCreated + userCreated, type);
            ExpectAccount(type == 2 ? "/bin/bash" : "/sbin/nologin");
            // Another queue type changes nothing of an account.
            const std::string before = AccountFiles();
            ExpectOutput("Wrote Corvane'26 run script", 3 - type);
            EXPECT_EQ(AccountFiles(), before);
        });
    }
}

HX_MACHINE_TEST(ServiceAccount, KeepsHomeForAnotherInstallDirectory) {
    CInstallBase& run = RunWithQueue(1);
    run.m_installDir = QStringLiteral("/srv/corvane");
    Complete(run);
    ExpectAccount("/sbin/nologin");
    EXPECT_FALSE(fs::exists(sharedDir));
}

HX_MACHINE_TEST(ServiceAccount, CanHaveOtherNames) {
    CInstallBase& run = RunWithQueue(2);
    run.m_serviceUser = QStringLiteral("chemuser");
    run.m_serviceGroup = QStringLiteral("chemgroup");
    Complete(run);
    ExpectAccount("/bin/bash", "chemuser", "chemgroup");
    EXPECT_EQ(Access(sharedDir), "775 chemuser:chemgroup");
    EXPECT_EQ(Access(sharedDir + "/QueueLimits"), "664 chemuser:chemgroup");
    EXPECT_EQ(Shell("getent passwd corvsrvc; getent group corvsrvc"), "");
}

HX_MACHINE_TEST(ServiceAccount, IsKeptWhenAdministratorCreatedIt) {
    AddGroup("people");
    Succeed({"groupadd", "corvsrvc"});
    Succeed({"useradd", "-M", "-g", "people", "-d", "/home/service", "-s", "/bin/sh", "corvsrvc"});
    const std::string before = AccountFiles();
    Complete(RunWithQueue(2));
    EXPECT_EQ(AccountFiles(), before);
}

HX_MACHINE_TEST(ServiceAccount, GetsUserInExistingGroup) {
    Succeed({"groupadd", "--gid", "54321", "corvsrvc"});
    ExpectOutput(userCreated);
    EXPECT_NE(Shell("getent passwd corvsrvc").find(":54321:Corvane Compute Service:"),
              std::string::npos);
}

HX_MACHINE_TEST(ServiceAccount, GetsGroupForExistingUser) {
    AddUser("corvsrvc");
    const std::string user = Shell("getent passwd corvsrvc");
    ExpectOutput(groupCreated + "Created directory");
    EXPECT_EQ(Shell("getent passwd corvsrvc"), user);
}

// The last group has a member of that name.
HX_MACHINE_TEST(ServiceAccount, IsFoundByWholeGroupNameOnly) {
    for (const char* name : {"corvsrvc2", "xcorvsrvc", "corv"})
        AddGroup(name);
    WriteFile("/etc/group", ReadFile("/etc/group") + "others:x:54322:corvsrvc\n");
    ExpectOutput(groupCreated);
}

HX_MACHINE_TEST(ServiceAccount, StopsScriptWhenGroupaddFails) {
    ReplaceProgram("/usr/sbin/groupadd", failing);
    const std::string before = AccountFiles();
    const auto result = RunCommitScript(RunWithQueue(1));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, opening + groupFailed);
    EXPECT_EQ(result.err, "refused\n");
    EXPECT_EQ(AccountFiles(), before);
    EXPECT_FALSE(fs::exists(sharedDir));
    RestoreProgram("/usr/sbin/groupadd");
    Complete(RunWithQueue(1));
    ExpectAccount("/sbin/nologin");
}

HX_MACHINE_TEST(ServiceAccount, KeepsGroupForRerunWhenUseraddFails) {
    ReplaceProgram("/usr/sbin/useradd", failing);
    const auto result = RunCommitScript(RunWithQueue(1));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              opening + groupCreated + "Error, unable to create Corvane service user.\n");
    EXPECT_EQ(result.err, "refused\n");
    EXPECT_NE(Shell("getent group corvsrvc"), "");
    EXPECT_EQ(Shell("getent passwd corvsrvc"), "");
    EXPECT_FALSE(fs::exists(sharedDir));
    RestoreProgram("/usr/sbin/useradd");
    ExpectOutput(userCreated);
    ExpectAccount("/sbin/nologin");
}

// Without an answer about the group the script tries to create it, and stops where it exists.
HX_MACHINE_TEST(ServiceAccount, IsCreatedWhenGetentFails) {
    ReplaceProgram("/usr/bin/getent", failing);
    const auto first = RunCommitScript(RunWithQueue(1));
    EXPECT_EQ(first.status, 0);
    EXPECT_TRUE(first.out.starts_with(opening + groupCreated + userCreated)) << first.out;
    const auto second = RunCommitScript(RunWithQueue(1));
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.out, opening + groupFailed);
    RestoreProgram("/usr/bin/getent");
    Complete(RunWithQueue(1));
}

HX_MACHINE_TEST(ServiceAccount, IsCreatedOnComputeNode) {
    CInstallBase& run = RunWithQueue(3);
    run.m_clusterNode = true;
    Complete(run);
    ExpectAccount("/sbin/nologin");
    EXPECT_TRUE(ServiceCalls().empty());
    for (const auto& path : {serviceProgram, unitFile, renderedUnit})
        EXPECT_FALSE(fs::exists(path)) << path;
}

}  // namespace
