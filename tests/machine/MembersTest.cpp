// People who enter and leave the service group, in a real user database.
#include <gtest/gtest.h>

#include <filesystem>

#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/Installation.h"
#include "machine/ThrowawayRoot.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

constexpr const char* Title = "Adding/Removing users from the Corvane Compute Service Group\n";

// Notes its arguments, then does the work.
constexpr const char* RecordingUsermod =
    "#!/bin/sh\necho \"$*\" >> /usermod_calls\nexec /usr/sbin/usermod.real \"$@\"\n";

CInstallBase& RunFor(const QStringList& wanted) {
    CInstallBase& run = NewRootRun();
    run.m_serviceMembers = wanted;
    return run;
}

QStringList Names(std::initializer_list<const char*> names) {
    QStringList list;
    for (const char* name : names)
        list.append(QString::fromUtf8(name));
    return list;
}

// What the script says between the service account and the directories.
std::string MembersPart(const ProcessResult& result) {
    const size_t begin = result.out.find(Title);
    const size_t end = result.out.find("Wrote Corvane'26 run script");
    const size_t made = result.out.find("Created directory");
    return begin == std::string::npos ? "" : result.out.substr(begin, std::min(end, made) - begin);
}

void PrepareGroup(const std::vector<std::string>& present, const std::vector<std::string>& others) {
    PrepareMachine();
    MakeServiceGroup(present);
    for (const auto& name : others)
        AddPerson(name, "people");
}

TEST(Members, JoinAndLeave) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada", "bob", "zoe"}, {"carol", "dora"});
        const auto result = RunCommitScript(RunFor(Names({"ada", "carol", "dora"})));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(MembersPart(result),
                  std::string(Title) + "Added carol\nAdded dora\nRemoved bob\nRemoved zoe\n\n");
        EXPECT_EQ(Members(), "ada,carol,dora");
    });
}

TEST(Members, JoinAGroupThatTheSameRunMakes) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareMachine();
        AddPerson("ada", "people", {"others"});
        EXPECT_EQ(RunCommitScript(RunFor(Names({"ada"}))).status, 0);
        EXPECT_EQ(Members(), "ada");
        EXPECT_EQ(GroupsOf("ada"), "people others corvsrvc");
    });
}

TEST(Members, WithoutAChangeNothingIsSaidAndNothingDone) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada", "bob"}, {});
        ASSERT_EQ(RunCommitScript(NewRootRun()).status, 0);
        const std::string before = AccountFiles();
        ReplaceAccountTool("usermod", RecordingUsermod);
        for (const auto& wanted : {Names({}), Names({"bob", "ada"}), Names({"bob"})}) {
            const auto result = RunCommitScript(RunFor(wanted));
            EXPECT_EQ(result.status, 0);
            EXPECT_EQ(MembersPart(result), "");
        }
        EXPECT_EQ(AccountFiles(), before);
        EXPECT_FALSE(fs::exists("/usermod_calls"));
    });
}

TEST(Members, FewerWantedThanPresentNamesRemoveNobody) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada", "bob", "zoe"}, {"carol"});
        const auto result = RunCommitScript(RunFor(Names({"carol"})));
        EXPECT_EQ(MembersPart(result), std::string(Title) + "Added carol\n\n");
        EXPECT_EQ(Members(), "ada,bob,zoe,carol");
    });
}

TEST(Members, AWantedMemberWhoStandsTooFarBehindLeaves) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada", "bob"}, {"xavier", "yves", "zoe"});
        const QStringList wanted = Names({"xavier", "yves", "zoe", "bob"});
        const auto result = RunCommitScript(RunFor(wanted));
        EXPECT_EQ(MembersPart(result),
                  std::string(Title) +
                      "Added xavier\nAdded yves\nAdded zoe\nRemoved ada\nRemoved bob\n\n");
        EXPECT_EQ(Members(), "xavier,yves,zoe");
        // The next run takes him in again.
        EXPECT_EQ(MembersPart(RunCommitScript(RunFor(wanted))),
                  std::string(Title) + "Added bob\n\n");
        EXPECT_EQ(Members(), "xavier,yves,zoe,bob");
    });
}

TEST(Members, APersonWithoutAnotherGroupStays) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada"}, {"carol", "dora"});
        AddPerson("solo", ServiceAccount, {ServiceAccount});
        ASSERT_EQ(Members(), "ada,solo");
        ASSERT_EQ(GroupsOf("solo"), "corvsrvc");
        ReplaceAccountTool("usermod", RecordingUsermod);
        const auto result = RunCommitScript(RunFor(Names({"carol", "dora"})));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(MembersPart(result),
                  std::string(Title) + "Added carol\nAdded dora\nRemoved ada\n\n");
        EXPECT_EQ(Members(), "solo,carol,dora");
        EXPECT_EQ(ReadFile("/usermod_calls"),
                  "--append -G corvsrvc carol\n--append -G corvsrvc dora\n-G people ada\n");
    });
}

// The list that is set names the person's own group, too.
TEST(Members, APersonWithSeveralGroupsKeepsTheOthers) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({}, {"carol"});
        AddPerson("bob", "people", {"early", ServiceAccount, "late"});
        const std::string others = GroupsOf("bob");
        ReplaceAccountTool("usermod", RecordingUsermod);
        EXPECT_EQ(RunCommitScript(RunFor(Names({"carol"}))).status, 0);
        EXPECT_EQ(Members(), "carol");
        const std::string calls = ReadFile("/usermod_calls");
        EXPECT_TRUE(calls.ends_with("\n-G people,early,late bob\n")) << calls;
        EXPECT_EQ(GroupsOf("bob"), "people early late") << others;
    });
}

TEST(Members, AnUnknownNameAmongTheWantedStopsTheScript) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada"}, {"carol", "dora"});
        const auto result = RunCommitScript(RunFor(Names({"carol", "ghost", "dora"})));
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.out.ends_with(
            std::string(Title) +
            "Added carol\nError, unable to add user, ghost to the Corvane service group.\n"))
            << result.out;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(Members(), "ada,carol");
        EXPECT_FALSE(fs::exists(SharedDirectory));
        AddPerson("ghost", "people");
        EXPECT_EQ(RunCommitScript(RunFor(Names({"carol", "ghost", "dora"}))).status, 0);
        EXPECT_EQ(Members(), "carol,ghost,dora");
    });
}

TEST(Members, AnUnknownNameAmongTheLeavingIsPassedOver) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada", "ghost", "bob"}, {"carol", "dora", "erik"});
        ASSERT_EQ(hx_test::Run({"sed", "-i", "/^ghost:/d", "/etc/passwd"}).status, 0);
        ASSERT_EQ(Members(), "ada,ghost,bob");
        const auto result = RunCommitScript(RunFor(Names({"carol", "dora", "erik"})));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(MembersPart(result), std::string(Title) +
                                           "Added carol\nAdded dora\nAdded erik\n"
                                           "Removed ada\nRemoved bob\n\n");
        EXPECT_NE(result.err.find("ghost"), std::string::npos) << result.err;
        EXPECT_EQ(Members(), "ghost,carol,dora,erik");
    });
}

TEST(Members, AFailingRemovalStopsTheScript) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada", "bob"}, {"carol", "dora"});
        ReplaceAccountTool("usermod",
                           "#!/bin/sh\n[ \"$1\" != -G ] || { echo refused >&2; exit 9; }\n"
                           "exec /usr/sbin/usermod.real \"$@\"\n");
        const QStringList wanted = Names({"carol", "dora"});
        const auto result = RunCommitScript(RunFor(wanted));
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.out.ends_with(
            "Added carol\nAdded dora\n"
            "Error, unable to remove user, ada from the Corvane service group.\n"))
            << result.out;
        EXPECT_EQ(result.err, "refused\n");
        EXPECT_EQ(Members(), "ada,bob,carol,dora");
        EXPECT_FALSE(fs::exists(SharedDirectory));
        RestoreAccountTool("usermod");
        // The present names are now more than the wanted ones: nobody is removed any more.
        EXPECT_EQ(RunCommitScript(RunFor(wanted)).status, 0);
        EXPECT_EQ(Members(), "ada,bob,carol,dora");
    });
}

constexpr const char* OtherUsermod = R"sh(#!/bin/sh
echo "$*" >> /usermod_calls
case $1 in
--add-to-group) exec /usr/sbin/usermod.real --append -G "$2" "$3";;
--append) echo "usermod: unrecognized option '--append'" >&2; exit 2;;
*) exec /usr/sbin/usermod.real "$@";;
esac
)sh";

TEST(Members, AUsermodThatKnowsOnlyAddToGroupTakesTheSecondForm) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada"}, {"carol", "dora"});
        ReplaceAccountTool("usermod", OtherUsermod);
        const auto result = RunCommitScript(RunFor(Names({"carol", "dora"})));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(MembersPart(result),
                  std::string(Title) + "Added carol\nAdded dora\nRemoved ada\n\n");
        EXPECT_EQ(Members(), "carol,dora");
        EXPECT_EQ(ReadFile("/usermod_calls"),
                  "--append -G corvsrvc carol\n--add-to-group corvsrvc carol\n"
                  "--append -G corvsrvc dora\n--add-to-group corvsrvc dora\n-G people ada\n");
    });
}

TEST(Members, AUsermodThatKnowsTheFirstFormIsCalledOnce) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareGroup({"ada"}, {"carol"});
        ReplaceAccountTool("usermod", RecordingUsermod);
        EXPECT_EQ(RunCommitScript(RunFor(Names({"ada", "carol"}))).status, 0);
        EXPECT_EQ(ReadFile("/usermod_calls"), "--append -G corvsrvc carol\n");
    });
}

}  // namespace
