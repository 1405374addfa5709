// The service's group and user in a real user database: made once, then left alone.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/Installation.h"
#include "machine/ServiceManager.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

const std::string Opening = "Starting Corvane'26 Installation script\n\n";
const std::string GroupCreated = "Corvane Service Group created\n\n";
const std::string UserCreated = "Corvane Service User created\n\n";
constexpr const char* Failing = "#!/bin/sh\necho refused >&2\nexit 7\n";

std::string Record(const char* database, const std::string& name) {
    return hx_test::Run({"getent", database, name}).out;
}

// The number of a system account, and the rest of the user's record as the setup asks for it.
void ExpectAccount(const std::string& user, const std::string& group, const std::string& shell) {
    std::smatch groupParts;
    const std::string groupRecord = Record("group", group);
    ASSERT_TRUE(std::regex_match(groupRecord, groupParts,
                                 std::regex(group + ":[^:]*:([1-9][0-9]{0,2}):\n")))
        << groupRecord;
    const std::string userRecord = Record("passwd", user);
    EXPECT_TRUE(std::regex_match(
        userRecord, std::regex(user + ":[^:]*:[1-9][0-9]{0,2}:" + groupParts[1].str() +
                               ":Corvane Compute Service:/var/corvane:" + shell + "\n")))
        << userRecord;
}

CInstallBase& RunWithQueue(int queueType) {
    CInstallBase& run = NewRootRun();
    run.m_queueType = queueType;
    return run;
}

TEST(ServiceAccount, TheFirstRunMakesItWithTheShellOfTheQueueType) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const int type : {0, 1, 2, 3}) {
        HX_EXPECT_SCENARIO([&] {
            PrepareMachine();
            const auto result = RunCommitScript(RunWithQueue(type));
            EXPECT_EQ(result.status, 0) << result.out;
            EXPECT_TRUE(result.out.starts_with(Opening + GroupCreated + UserCreated)) << result.out;
            ExpectAccount("corvsrvc", "corvsrvc", type == 2 ? "/bin/bash" : "/sbin/nologin");
        });
    }
}

TEST(ServiceAccount, ItsHomeIsTheSharedDirectoryThoughTheSetupIsElsewhere) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        CInstallBase& run = RunWithQueue(1);
        run.m_installDir = QStringLiteral("/srv/corvane");
        EXPECT_EQ(RunCommitScript(run).status, 0);
        ExpectAccount("corvsrvc", "corvsrvc", "/sbin/nologin");
        EXPECT_FALSE(fs::exists("/var/corvane"));
    });
}

TEST(ServiceAccount, TakesOtherNames) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        CInstallBase& run = RunWithQueue(2);
        run.m_serviceUser = QStringLiteral("chemuser");
        run.m_serviceGroup = QStringLiteral("chemgroup");
        EXPECT_EQ(RunCommitScript(run).status, 0);
        ExpectAccount("chemuser", "chemgroup", "/bin/bash");
        EXPECT_EQ(Access("/var/corvane"), "775 chemuser:chemgroup");
        EXPECT_EQ(Access("/var/corvane/QueueLimits"), "664 chemuser:chemgroup");
        EXPECT_EQ(Record("passwd", "corvsrvc") + Record("group", "corvsrvc"), "");
    });
}

TEST(ServiceAccount, ASecondRunChangesNothingOfItWhateverTheQueueType) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        ASSERT_EQ(RunCommitScript(RunWithQueue(1)).status, 0);
        const std::string before = AccountFiles();
        for (const int type : {1, 2}) {
            const auto result = RunCommitScript(RunWithQueue(type));
            EXPECT_EQ(result.status, 0);
            EXPECT_TRUE(result.out.starts_with(Opening + "Wrote Corvane'26 run script"))
                << result.out;
            EXPECT_EQ(AccountFiles(), before) << type;
        }
    });
}

TEST(ServiceAccount, AnAccountOfTheAdministratorsMakingIsTakenAsItIs) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddGroup("people");
        ASSERT_EQ(hx_test::Run({"groupadd", "corvsrvc"}).status, 0);
        ASSERT_EQ(hx_test::Run({"useradd", "-M", "-g", "people", "-d", "/home/service", "-s",
                                "/bin/sh", "corvsrvc"})
                      .status,
                  0);
        const std::string before = AccountFiles();
        EXPECT_EQ(RunCommitScript(RunWithQueue(2)).status, 0);
        EXPECT_EQ(AccountFiles(), before);
    });
}

TEST(ServiceAccount, WhatIsThereOfItIsKeptAndTheRestMade) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        ASSERT_EQ(hx_test::Run({"groupadd", "--gid", "54321", "corvsrvc"}).status, 0);
        const auto result = RunCommitScript(RunWithQueue(1));
        EXPECT_TRUE(result.out.starts_with(Opening + UserCreated)) << result.out;
        EXPECT_NE(Record("passwd", "corvsrvc").find(":54321:Corvane Compute Service:"),
                  std::string::npos);
    });
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddPerson("corvsrvc", "people");
        const std::string user = Record("passwd", "corvsrvc");
        const auto result = RunCommitScript(RunWithQueue(1));
        EXPECT_TRUE(result.out.starts_with(Opening + GroupCreated + "Created directory"))
            << result.out;
        EXPECT_EQ(Record("passwd", "corvsrvc"), user);
    });
}

TEST(ServiceAccount, OnlyTheWholeNameOfAGroupCounts) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        for (const char* name : {"corvsrvc2", "xcorvsrvc", "corv"})
            AddGroup(name);
        // A member of that name is no group of that name.
        WriteFile("/etc/group", ReadFile("/etc/group") + "others:x:54322:corvsrvc\n");
        const auto result = RunCommitScript(RunWithQueue(1));
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.out.starts_with(Opening + GroupCreated)) << result.out;
    });
}

TEST(ServiceAccount, AFailingGroupaddStopsTheScriptBeforeAnythingIsMade) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        ReplaceAccountTool("groupadd", Failing);
        const std::string before = AccountFiles();
        const auto result = RunCommitScript(RunWithQueue(1));
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, Opening + "Error, unable to create Corvane service group.\n");
        EXPECT_EQ(result.err, "refused\n");
        EXPECT_EQ(AccountFiles(), before);
        EXPECT_FALSE(fs::exists(SharedDirectory));
        RestoreAccountTool("groupadd");
        EXPECT_EQ(RunCommitScript(RunWithQueue(1)).status, 0);
        ExpectAccount("corvsrvc", "corvsrvc", "/sbin/nologin");
    });
}

TEST(ServiceAccount, AFailingUseraddLeavesTheGroupForTheNextRun) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        ReplaceAccountTool("useradd", Failing);
        const auto result = RunCommitScript(RunWithQueue(1));
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out,
                  Opening + GroupCreated + "Error, unable to create Corvane service user.\n");
        EXPECT_EQ(result.err, "refused\n");
        EXPECT_NE(Record("group", "corvsrvc"), "");
        EXPECT_EQ(Record("passwd", "corvsrvc"), "");
        EXPECT_FALSE(fs::exists(SharedDirectory));
        RestoreAccountTool("useradd");
        const auto mended = RunCommitScript(RunWithQueue(1));
        EXPECT_EQ(mended.status, 0);
        EXPECT_TRUE(mended.out.starts_with(Opening + UserCreated)) << mended.out;
        ExpectAccount("corvsrvc", "corvsrvc", "/sbin/nologin");
    });
}

// No answer about the group means that it is made; that it is there already then stops the script.
TEST(ServiceAccount, AFailingGetentDoesNotStopTheScriptByItself) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        const std::string getent = ReadFile("/usr/bin/getent");
        WriteFile("/usr/bin/getent", Failing);
        const auto first = RunCommitScript(RunWithQueue(1));
        EXPECT_EQ(first.status, 0);
        EXPECT_TRUE(first.out.starts_with(Opening + GroupCreated + UserCreated)) << first.out;
        const auto second = RunCommitScript(RunWithQueue(1));
        EXPECT_EQ(second.status, 1);
        EXPECT_EQ(second.out, Opening + "Error, unable to create Corvane service group.\n");
        WriteFile("/usr/bin/getent", getent);
        EXPECT_EQ(RunCommitScript(RunWithQueue(1)).status, 0);
    });
}

TEST(ServiceAccount, IsMadeOnAClusterNodeToo) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        CInstallBase& run = RunWithQueue(3);
        run.m_clusterNode = true;
        EXPECT_EQ(RunCommitScript(run).status, 0);
        ExpectAccount("corvsrvc", "corvsrvc", "/sbin/nologin");
        EXPECT_TRUE(ServiceCalls().empty());
        for (const std::string path : {ServiceProgram, UnitFile})
            EXPECT_FALSE(fs::exists(path)) << path;
        EXPECT_FALSE(fs::exists("/var/corvane/corvane26_service.service"));
    });
}

}  // namespace
