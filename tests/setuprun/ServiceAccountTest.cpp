// What is read about the service's user and group, from user and group databases of the test's own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

// A group with so many members, whose names have seven letters.
std::string GroupOf(int members) {
    std::string line = "corvsrvc:x:612:";
    for (int i = 0; i < members; ++i)
        line += (i == 0 ? "" : ",") + ("m" + std::to_string(1000000 + i).substr(1));
    return line + "\n";
}

// A user whose comment has so many bytes.
std::string UserWithComment(size_t bytes) {
    return "corvsrvc:x:611:100:" + std::string(bytes, 'c') + ":/:/bin/false\n";
}

class ServiceAccount : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // Looks at a fresh run, with this answer of sysconf ("69=2048") where one is given.
    void Look(const std::function<void(CInstallBase&)>& look, const std::string& sysconf = {},
              const std::string& fail = {}) const {
        m_machine.Expect(AsRoot, [&] {
            setenv("HX_TEST_SYSCONF", sysconf.c_str(), 1);
            setenv("HX_TEST_FAIL", fail.c_str(), 1);
            Arguments arguments({"cv_install"});
            CInstallBase run(false, arguments.argc(), arguments.argv());
            look(run);
        });
    }

    static std::string GroupSize(int bytes) {
        return std::to_string(_SC_GETGR_R_SIZE_MAX) + "=" + std::to_string(bytes);
    }
    static std::string UserSize(int bytes) {
        return std::to_string(_SC_GETPW_R_SIZE_MAX) + "=" + std::to_string(bytes);
    }

    Machine m_machine;
};

void ExpectMembers(CInstallBase& run, int count) {
    EXPECT_EQ(run.m_serviceGid, 612);
    ASSERT_EQ(run.m_serviceCurrentMembers.size(), count);
    EXPECT_EQ(run.m_serviceCurrentMembers.first(), "m000000");
    EXPECT_EQ(run.m_serviceCurrentMembers.last(),
              "m" + QString::number(1000000 + count - 1).mid(1));
}

void ExpectNoGroup(CInstallBase& run) {
    EXPECT_EQ(run.m_serviceGid, -1);
    EXPECT_TRUE(run.m_serviceCurrentMembers.isEmpty());
}

TEST_F(ServiceAccount, IsUnknownWithoutUserAndGroup) {
    Look([](CInstallBase& run) {
        EXPECT_EQ(run.m_serviceUid, -1);
        ExpectNoGroup(run);
    });
}

TEST_F(ServiceAccount, HasTheIdsAndTheMembersInTheirOrder) {
    m_machine.Write("/etc/passwd", "root:x:0:0::/:/bin/sh\n" + UserWithComment(3));
    m_machine.Write("/etc/group", "root:x:0:\ncorvsrvc:x:612:zoe,anna,größe,mike\n");
    Look([](CInstallBase& run) {
        EXPECT_EQ(run.m_serviceUid, 611);
        EXPECT_EQ(run.m_serviceGid, 612);
        EXPECT_EQ(run.m_serviceCurrentMembers,
                  (QStringList{"zoe", "anna", QString::fromUtf8("größe"), "mike"}));
    });
}

TEST_F(ServiceAccount, MayHaveAUserAlone) {
    m_machine.Write("/etc/passwd", UserWithComment(3));
    Look([](CInstallBase& run) {
        EXPECT_EQ(run.m_serviceUid, 611);
        ExpectNoGroup(run);
    });
}

TEST_F(ServiceAccount, MayHaveAGroupAlone) {
    m_machine.Write("/etc/group", "corvsrvc:x:612:\n");
    Look([](CInstallBase& run) {
        EXPECT_EQ(run.m_serviceUid, -1);
        EXPECT_EQ(run.m_serviceGid, 612);
        EXPECT_TRUE(run.m_serviceCurrentMembers.isEmpty());
    });
}

TEST_F(ServiceAccount, AUserWithThePrimaryGroupIsNoMember) {
    m_machine.Write("/etc/passwd", "anna:x:700:612::/:/bin/sh\n");
    m_machine.Write("/etc/group", "corvsrvc:x:612:bert\n");
    Look([](CInstallBase& run) { EXPECT_EQ(run.m_serviceCurrentMembers, QStringList{"bert"}); });
}

TEST_F(ServiceAccount, TakesTheUserFirstAndTheGroupSecond) {
    m_machine.Write("/etc/passwd", "mine:x:711:1::/:/bin/sh\nours:x:712:1::/:/bin/sh\n");
    m_machine.Write("/etc/group", "mine:x:721:\nours:x:722:carl\n");
    Look([](CInstallBase& run) {
        run.DiscoverServiceUserGroup("mine", "ours");
        EXPECT_EQ(run.m_serviceUid, 711);
        EXPECT_EQ(run.m_serviceGid, 722);
        EXPECT_EQ(run.m_serviceCurrentMembers, QStringList{"carl"});
    });
}

TEST_F(ServiceAccount, DiscoveredTwiceHasItsMembersTwice) {
    m_machine.Write("/etc/group", "corvsrvc:x:612:anna,bert\n");
    Look([](CInstallBase& run) {
        run.DiscoverServiceUserGroup("corvsrvc", "corvsrvc");
        EXPECT_EQ(run.m_serviceCurrentMembers, (QStringList{"anna", "bert", "anna", "bert"}));
    });
}

TEST_F(ServiceAccount, ThatIsGoneLosesItsIdsAndKeepsTheList) {
    m_machine.Write("/etc/passwd", UserWithComment(3));
    m_machine.Write("/etc/group", "corvsrvc:x:612:anna\n");
    Look([](CInstallBase& run) {
        run.DiscoverServiceUserGroup("nobody-here", "nobody-here");
        EXPECT_EQ(run.m_serviceUid, -1);
        EXPECT_EQ(run.m_serviceGid, -1);
        EXPECT_EQ(run.m_serviceCurrentMembers, QStringList{"anna"});
    });
}

TEST_F(ServiceAccount, AGroupOf30000MembersFitsIntoTenCalls) {
    m_machine.Write("/etc/group", GroupOf(30000));
    Look([](CInstallBase& run) { ExpectMembers(run, 30000); });
}

TEST_F(ServiceAccount, AGroupOf33000MembersDoesNot) {
    m_machine.Write("/etc/group", GroupOf(33000));
    Look(ExpectNoGroup);
}

TEST_F(ServiceAccount, AGroupBufferStartsAtTheSystemsSize) {
    m_machine.Write("/etc/group", GroupOf(33000));
    Look([](CInstallBase& run) { ExpectMembers(run, 33000); }, GroupSize(2048));
}

TEST_F(ServiceAccount, AGroupBufferStartsAt1024BytesAtLeast) {
    m_machine.Write("/etc/group", GroupOf(30000));
    for (const int size : {-1, 0, 512, 1023})
        Look([](CInstallBase& run) { ExpectMembers(run, 30000); }, GroupSize(size));
    m_machine.Write("/etc/group", GroupOf(33000));
    Look(ExpectNoGroup, GroupSize(-1));
}

// The whole line has to fit, and the tenth buffer has 524288 bytes.
TEST_F(ServiceAccount, AUserRecordMayFillTenCalls) {
    m_machine.Write("/etc/passwd", UserWithComment(500000));
    for (const int size : {1024, -1, 512})
        Look([](CInstallBase& run) { EXPECT_EQ(run.m_serviceUid, 611); }, UserSize(size));
}

TEST_F(ServiceAccount, AUserRecordThatIsLongerIsNotFoundButTheGroupIs) {
    m_machine.Write("/etc/passwd", UserWithComment(530000));
    m_machine.Write("/etc/group", "corvsrvc:x:612:anna\n");
    Look([](CInstallBase& run) {
        EXPECT_EQ(run.m_serviceUid, -1);
        EXPECT_EQ(run.m_serviceGid, 612);
        EXPECT_EQ(run.m_serviceCurrentMembers, QStringList{"anna"});
    });
    Look([](CInstallBase& run) { EXPECT_EQ(run.m_serviceUid, 611); }, UserSize(2048));
}

TEST_F(ServiceAccount, AnyOtherErrorLeavesThatIdUnknown) {
    m_machine.Write("/etc/passwd", UserWithComment(3));
    m_machine.Write("/etc/group", "corvsrvc:x:612:anna\n");
    const auto expectGroup = [](CInstallBase& run) {
        EXPECT_EQ(run.m_serviceUid, -1);
        EXPECT_EQ(run.m_serviceGid, 612);
    };
    const auto expectUser = [](CInstallBase& run) {
        EXPECT_EQ(run.m_serviceUid, 611);
        ExpectNoGroup(run);
    };
    for (const char* error : {"5", "24", "34"}) {
        Look(expectGroup, {}, std::string("getpwnam_r=") + error);
        Look(expectUser, {}, std::string("getgrnam_r=") + error);
    }
}

TEST_F(ServiceAccount, IsReadWithoutAWord) {
    const auto result = m_machine.Run(AsRoot, [] {
        setenv("HX_TEST_FAIL", "getpwnam_r=5,getgrnam_r=5", 1);
        Arguments arguments({"cv_install"});
        const CInstallBase run(false, arguments.argc(), arguments.argv());
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
}

}  // namespace
