// Users who enter and leave the service group, in a real user database.
#include <filesystem>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/Installation.h"

namespace fs = std::filesystem;
using namespace hx_test;

namespace {

using Users = std::vector<std::string>;

const std::string usermod = "/usr/sbin/usermod";
const std::string recordCall = "echo \"$*\" >> /usermod_calls; exec /usr/sbin/usermod.real \"$@\"";
const std::string title = "Adding/Removing users from the Corvane Compute Service Group\n";

CInstallBase& RunFor(const Users& wanted) {
    CInstallBase& run = NewRootRun();
    for (const auto& name : wanted)
        run.m_serviceMembers.append(QString::fromStdString(name));
    return run;
}

void PrepareGroup(const Users& present, const Users& others) {
    MakeServiceGroup(present);
    for (const auto& name : others)
        AddUser(name);
}

// What the script prints between the service account and the directories.
std::string MembersPart(const std::string& out) {
    const size_t begin = out.find(title);
    const size_t end =
        std::min(out.find("Wrote Corvane'26 run script"), out.find("Created directory"));
    return begin == std::string::npos ? "" : out.substr(begin, end - begin);
}

std::string Said(const Users& added, const Users& removed) {
    std::string text;
    for (const auto& name : added)
        text += "Added " + name + "\n";
    for (const auto& name : removed)
        text += "Removed " + name + "\n";
    return text.empty() ? "" : title + text + "\n";
}

std::string CallsOfUsermod(const Users& added, const Users& removed) {
    std::string text;
    for (const auto& name : added)
        text += "--append -G corvsrvc " + name + "\n";
    for (const auto& name : removed)
        text += "-G people " + name + "\n";
    return text;
}

struct MembersCase {
    const char* name;
    Users present, others, wanted, added, removed;
    const char* members;  // afterwards
};

const MembersCase membersCases[] = {
    {"join and leave",
     {"ada", "bob", "zoe"},
     {"carol", "dora"},
     {"ada", "carol", "dora"},
     {"carol", "dora"},
     {"bob", "zoe"},
     "ada,carol,dora"},
    {"none wanted", {"ada", "bob"}, {}, {}, {}, {}, "ada,bob"},
    {"another order", {"ada", "bob"}, {}, {"bob", "ada"}, {}, {}, "ada,bob"},
    {"fewer wanted", {"ada", "bob"}, {}, {"bob"}, {}, {}, "ada,bob"},
    {"fewer wanted, another user",
     {"ada", "bob", "zoe"},
     {"carol"},
     {"carol"},
     {"carol"},
     {},
     "ada,bob,zoe,carol"},
    {"one joins", {"ada"}, {"carol"}, {"ada", "carol"}, {"carol"}, {}, "ada,carol"},
    // Compatibility: a wanted member removed by its position in the list joins in the next setup.
    {"too far back in the list",
     {"ada", "bob"},
     {"xavier", "yves", "zoe"},
     {"xavier", "yves", "zoe", "bob"},
     {"xavier", "yves", "zoe"},
     {"ada", "bob"},
     "xavier,yves,zoe"},
    {"the next setup",
     {"xavier", "yves", "zoe"},
     {"bob"},
     {"xavier", "yves", "zoe", "bob"},
     {"bob"},
     {},
     "xavier,yves,zoe,bob"},
};

TEST(Members, JoinAndLeaveByRule) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const auto& row : membersCases) {
        SCOPED_TRACE(row.name);
        ExpectOnMachine([&] {
            PrepareGroup(row.present, row.others);
            // The group's changes are then the only ones.
            AddUser(serviceAccount);
            const std::string before = AccountFiles();
            ReplaceProgram(usermod, recordCall);
            EXPECT_EQ(MembersPart(Complete(RunFor(row.wanted))), Said(row.added, row.removed));
            EXPECT_EQ(Members(), row.members);
            EXPECT_EQ(ReadFile("/usermod_calls"), CallsOfUsermod(row.added, row.removed));
            EXPECT_EQ(AccountFiles() == before, row.added.empty());
        });
    }
}

HX_MACHINE_TEST(Members, JoinGroupCreatedInSameSetup) {
    AddUser("ada", "people", {"others"});
    Complete(RunFor({"ada"}));
    EXPECT_EQ(Members(), "ada");
    EXPECT_EQ(GroupsOf("ada"), "people others corvsrvc");
}

HX_MACHINE_TEST(Members, KeepUserWithoutAnotherGroup) {
    PrepareGroup({"ada"}, {"carol", "dora"});
    AddUser("solo", serviceAccount, {serviceAccount});
    ASSERT_EQ(Members(), "ada,solo");
    ASSERT_EQ(GroupsOf("solo"), "corvsrvc");
    ReplaceProgram(usermod, recordCall);
    EXPECT_EQ(MembersPart(Complete(RunFor({"carol", "dora"}))), Said({"carol", "dora"}, {"ada"}));
    EXPECT_EQ(Members(), "solo,carol,dora");
    EXPECT_EQ(ReadFile("/usermod_calls"), CallsOfUsermod({"carol", "dora"}, {"ada"}));
}

// The list of groups that usermod sets includes the primary group.
HX_MACHINE_TEST(Members, KeepOtherGroupsOfLeavingUser) {
    PrepareGroup({}, {"carol"});
    AddUser("bob", "people", {"early", serviceAccount, "late"});
    ReplaceProgram(usermod, recordCall);
    Complete(RunFor({"carol"}));
    EXPECT_EQ(Members(), "carol");
    EXPECT_TRUE(ReadFile("/usermod_calls").ends_with("\n-G people,early,late bob\n"));
    EXPECT_EQ(GroupsOf("bob"), "people early late");
}

HX_MACHINE_TEST(Members, StopAtUnknownWantedUser) {
    PrepareGroup({"ada"}, {"carol", "dora"});
    const auto result = ExpectStop(
        title + "Added carol\nError, unable to add user, ghost to the Corvane service group.",
        RunFor({"carol", "ghost", "dora"}));
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(Members(), "ada,carol");
    EXPECT_FALSE(fs::exists(sharedDir));
    AddUser("ghost");
    Complete(RunFor({"carol", "ghost", "dora"}));
    EXPECT_EQ(Members(), "carol,ghost,dora");
}

HX_MACHINE_TEST(Members, SkipUnknownLeavingUser) {
    PrepareGroup({"ada", "ghost", "bob"}, {"carol", "dora", "erik"});
    Shell("sed -i /^ghost:/d /etc/passwd");
    ASSERT_EQ(Members(), "ada,ghost,bob");
    const auto result = RunCommitScript(RunFor({"carol", "dora", "erik"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(MembersPart(result.out), Said({"carol", "dora", "erik"}, {"ada", "bob"}));
    EXPECT_NE(result.err.find("ghost"), std::string::npos) << result.err;
    EXPECT_EQ(Members(), "ghost,carol,dora,erik");
}

HX_MACHINE_TEST(Members, StopWhenRemovalFails) {
    PrepareGroup({"ada", "bob"}, {"carol", "dora"});
    ReplaceProgram(usermod,
                   "[ \"$1\" != -G ] || { echo refused >&2; exit 9; }\n"
                   "exec /usr/sbin/usermod.real \"$@\"");
    const auto result = ExpectStop(
        "Added carol\nAdded dora\n"
        "Error, unable to remove user, ada from the Corvane service group.",
        RunFor({"carol", "dora"}));
    EXPECT_EQ(result.err, "refused\n");
    EXPECT_EQ(Members(), "ada,bob,carol,dora");
    EXPECT_FALSE(fs::exists(sharedDir));
    RestoreProgram(usermod);
    // There are now more present than wanted names: none is removed.
    Complete(RunFor({"carol", "dora"}));
    EXPECT_EQ(Members(), "ada,bob,carol,dora");
}

constexpr const char* usermodWithAddToGroup = R"sh(echo "$*" >> /usermod_calls
case $1 in
--add-to-group) exec /usr/sbin/usermod.real --append -G "$2" "$3";;
--append) echo "usermod: unrecognized option '--append'" >&2; exit 2;;
*) exec /usr/sbin/usermod.real "$@";;
esac)sh";

HX_MACHINE_TEST(Members, JoinWithAddToGroupWithoutAppend) {
    PrepareGroup({"ada"}, {"carol", "dora"});
    ReplaceProgram(usermod, usermodWithAddToGroup);
    EXPECT_EQ(MembersPart(Complete(RunFor({"carol", "dora"}))), Said({"carol", "dora"}, {"ada"}));
    EXPECT_EQ(Members(), "carol,dora");
    EXPECT_EQ(ReadFile("/usermod_calls"),
              "--append -G corvsrvc carol\n--add-to-group corvsrvc carol\n"
              "--append -G corvsrvc dora\n--add-to-group corvsrvc dora\n-G people ada\n");
}

}  // namespace
