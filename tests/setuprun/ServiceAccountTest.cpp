// The service account in user and group databases.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "Machine.h"

namespace {

// Returns a group with this number of members, whose names have seven letters.
std::string GroupOf(int members) {
    std::string line = "corvsrvc:x:612:";
    for (int i = 0; i < members; ++i)
        line += (i == 0 ? "" : ",") + ("m" + std::to_string(1000000 + i).substr(1));
    return line + "\n";
}

// Returns a user whose comment has this number of bytes.
std::string UserWithComment(size_t bytes) {
    return "corvsrvc:x:611:100:" + std::string(bytes, 'c') + ":/:/bin/false\n";
}

class ServiceAccount : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Constructs a run, with answers of sysconf and failing calls as interpose.c reads them.
    void ExpectRun(const std::function<void(CInstallBase&)>& body, const std::string& sysconf = {},
                   const std::string& fail = {}) const {
        m_machine.Expect(AsRoot, [&] {
            setenv("HX_TEST_SYSCONF", sysconf.c_str(), 1);
            setenv("HX_TEST_FAIL", fail.c_str(), 1);
            Construct({program}, body);
        });
    }

    void ExpectAccount(int uid, int gid, const QStringList& members,
                       const std::string& sysconf = {}, const std::string& fail = {}) const {
        const auto check = [&](CInstallBase& run) {
            EXPECT_EQ(run.m_serviceUid, uid);
            EXPECT_EQ(run.m_serviceGid, gid);
            EXPECT_EQ(run.m_serviceCurrentMembers, members);
        };
        ExpectRun(check, sysconf, fail);
    }

    Machine m_machine;
};

TEST_F(ServiceAccount, HasIdsAndMembersOfRecords) {
    struct {
        std::string users;
        std::string groups;
        int uid;
        int gid;
        QStringList members;
    } const cases[] = {{"", "", -1, -1, {}},
                       {"root:x:0:0::/:/bin/sh\n" + UserWithComment(3),
                        "root:x:0:\ncorvsrvc:x:612:zoe,anna,größe,mike\n",
                        611,
                        612,
                        {"zoe", "anna", "größe", "mike"}},
                       {UserWithComment(3), "", 611, -1, {}},
                       {"", "corvsrvc:x:612:\n", -1, 612, {}},
                       // A user with the group as primary group is not a member.
                       {"anna:x:700:612::/:/bin/sh\n", "corvsrvc:x:612:bert\n", -1, 612, {"bert"}}};
    for (const auto& test : cases) {
        m_machine.Write("/etc/passwd", test.users);
        m_machine.Write("/etc/group", test.groups);
        ExpectAccount(test.uid, test.gid, test.members);
    }
}

TEST_F(ServiceAccount, UsesNamesOfUserAndGroup) {
    m_machine.Write("/etc/passwd", "mine:x:711:1::/:/bin/sh\nours:x:712:1::/:/bin/sh\n");
    m_machine.Write("/etc/group", "mine:x:721:\nours:x:722:carl\n");
    ExpectRun([](CInstallBase& run) {
        run.DiscoverServiceUserGroup("mine", "ours");
        EXPECT_EQ(run.m_serviceUid, 711);
        EXPECT_EQ(run.m_serviceGid, 722);
        EXPECT_EQ(run.m_serviceCurrentMembers, QStringList{"carl"});
    });
}

TEST_F(ServiceAccount, AppendsMembersWhenDiscoveredAgain) {
    m_machine.Write("/etc/passwd", UserWithComment(3));
    m_machine.Write("/etc/group", "corvsrvc:x:612:anna,bert\n");
    ExpectRun([](CInstallBase& run) {
        run.DiscoverServiceUserGroup("corvsrvc", "corvsrvc");
        const QStringList members = {"anna", "bert", "anna", "bert"};
        EXPECT_EQ(run.m_serviceCurrentMembers, members);
        run.DiscoverServiceUserGroup("missing", "missing");
        EXPECT_EQ(run.m_serviceUid, -1);
        EXPECT_EQ(run.m_serviceGid, -1);
        EXPECT_EQ(run.m_serviceCurrentMembers, members);
    });
}

// The tenth buffer has 524288 bytes if the first has 1024.
TEST_F(ServiceAccount, FindsGroupThatFitsTenthBuffer) {
    const std::string size = std::to_string(_SC_GETGR_R_SIZE_MAX) + "=";
    m_machine.Write("/etc/group", GroupOf(30000));
    ExpectRun(
        [](CInstallBase& run) {
            EXPECT_EQ(run.m_serviceGid, 612);
            ASSERT_EQ(run.m_serviceCurrentMembers.size(), 30000);
            EXPECT_EQ(run.m_serviceCurrentMembers.first(), "m000000");
            EXPECT_EQ(run.m_serviceCurrentMembers.last(), "m029999");
        },
        size + "1024");
    m_machine.Write("/etc/group", GroupOf(33000));
    ExpectAccount(-1, -1, {}, size + "1024");
    ExpectRun([](CInstallBase& run) { EXPECT_EQ(run.m_serviceCurrentMembers.size(), 33000); },
              size + "2048");
}

TEST_F(ServiceAccount, FindsUserThatFitsTenthBuffer) {
    const std::string size = std::to_string(_SC_GETPW_R_SIZE_MAX) + "=";
    m_machine.Write("/etc/group", "corvsrvc:x:612:anna\n");
    m_machine.Write("/etc/passwd", UserWithComment(500000));
    ExpectAccount(611, 612, {"anna"}, size + "1024");
    m_machine.Write("/etc/passwd", UserWithComment(530000));
    ExpectAccount(-1, 612, {"anna"}, size + "1024");
    ExpectAccount(611, 612, {"anna"}, size + "2048");
}

TEST_F(ServiceAccount, IsUnknownAfterFailedLookup) {
    m_machine.Write("/etc/passwd", UserWithComment(3));
    m_machine.Write("/etc/group", "corvsrvc:x:612:anna\n");
    for (const std::string error : {"5", "24", "34"}) {
        ExpectAccount(-1, 612, {"anna"}, {}, "getpwnam_r=" + error);
        ExpectAccount(611, -1, {}, {}, "getgrnam_r=" + error);
    }
}

TEST_F(ServiceAccount, PrintsNothing) {
    const auto result = m_machine.Run(AsRoot, [] {
        setenv("HX_TEST_FAIL", "getpwnam_r=5,getgrnam_r=5", 1);
        Construct({program});
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
}

}  // namespace
