// Accounts of a staged setup: what differs from the live machine, and how it gets there.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "harness/TempDir.h"
#include "machine/Accounts.h"
#include "machine/ThrowawayRoot.h"
#include "merge/Accounts.h"

namespace fs = std::filesystem;

namespace {

const std::string livePasswd =
    "root:x:0:0:root:/root:/bin/bash\nann:x:1001:100::/home/ann:/bin/sh\nbob:x:1002:100::/"
    ":\n+::::::\n";
const std::string liveGroup = "root:x:0:\npeople:x:100:\nlab:x:200:ann,bob\n";
const std::string serviceRecord =
    "corvsrvc:x:990:991:Corvane Compute Service:/var/corvane:/bin/bash\n";

struct Comparison {
    std::string passwd, group;  // staged; empty: the live file is unchanged
    std::vector<std::string> differences;
    std::string problem;
};

const Comparison comparisons[] = {
    {"", "", {}, ""},
    {livePasswd, liveGroup, {}, ""},
    {livePasswd + serviceRecord,
     liveGroup + "corvsrvc:x:991:\n",
     {"group corvsrvc 991", "user corvsrvc 990 991 Corvane Compute Service /var/corvane /bin/bash"},
     ""},
    // The setup changes members, not the script.
    {"",
     "root:x:0:\npeople:x:100:bob\nlab:x:200:ann,bob\n",
     {},
     "cannot repeat a change of group \"people\""},
    {livePasswd.substr(livePasswd.find('\n') + 1),
     "",
     {},
     "cannot repeat a change of user \"root\""},
    {"", "root:x:0:\npeople:x:100:\n", {}, "cannot repeat a change of group \"lab\""},
    {"",
     "root:x:0:\npeople:x:101:\nlab:x:200:ann,bob\n",
     {},
     "cannot repeat a change of group \"people\""},
    {"root:x:0:0:root:/root:/bin/bash\nann:x:0:100::/home/ann:/bin/sh\nbob:x:1002:100::/"
     ":\n+::::::\n",
     "",
     {},
     "cannot repeat a change of user \"ann\""},
    {livePasswd + "corvsrvc:x:-1:991:::\n", "", {}, "cannot repeat a change of user \"corvsrvc\""},
    {livePasswd + "corvsrvc\n", "", {}, "cannot repeat a change of user \"corvsrvc\""},
    {"", liveGroup + "corvsrvc:x:9x:\n", {}, "cannot repeat a change of group \"corvsrvc\""},
};

// Stages the text of a file, or nothing.
void Stage(const std::string& path, const std::string& text) {
    fs::remove(path);
    if (!text.empty())
        hx_test::WriteFile(path, text);
}

std::vector<std::string> LinesOf(const Differences& differences) {
    std::vector<std::string> lines;
    for (const AccountDifference& account : differences.accounts) {
        const std::string gid = std::to_string(account.gid);
        lines.push_back(account.isGroup
                            ? "group " + account.name + " " + gid
                            : "user " + account.name + " " + std::to_string(account.uid) + " " +
                                  gid + " " + account.comment + " " + account.home + " " +
                                  account.shell);
    }
    for (const MemberDifference& member : differences.members) {
        lines.push_back(member.user + (member.change == Change::Create ? " joins " : " leaves ") +
                        member.group);
    }
    return lines;
}

Differences FindStaged(const LiveRows& atStaging, const MemberChanges& members,
                       std::string& problem) {
    StagedMachine staged;
    staged.etc = Descriptor(open("/staged", O_PATH | O_DIRECTORY | O_CLOEXEC));
    staged.serviceGroup = QStringLiteral("corvsrvc");
    staged.members = members;
    Differences differences;
    const Failure failure = FindAccountDifferences(atStaging, staged, differences);
    problem = failure ? failure->text.toStdString() : "";
    return differences;
}

Differences FindStaged(const MemberChanges& members, std::string& problem) {
    return FindStaged(ReadLiveRows(-1), members, problem);
}

TEST(Accounts, DifferAsInStagedFiles) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        hx_test::WriteFile("/etc/passwd", livePasswd);
        hx_test::WriteFile("/etc/group", liveGroup);
        fs::create_directory("/staged");
        for (const Comparison& comparison : comparisons) {
            Stage("/staged/passwd", comparison.passwd);
            Stage("/staged/group", comparison.group);
            std::string problem;
            const Differences differences = FindStaged({}, problem);
            EXPECT_EQ(problem, comparison.problem);
            if (problem.empty()) {
                EXPECT_EQ(LinesOf(differences), comparison.differences);
            }
        }
        // A deleted file is a device in the upper layer.
        Stage("/staged/group", "");
        fs::remove("/staged/passwd");
        ASSERT_EQ(mkfifo("/staged/passwd", 0600), 0);
        std::string problem;
        FindStaged({}, problem);
        EXPECT_EQ(problem, "cannot read \"/etc/passwd\": Invalid argument");
    });
}

TEST(Accounts, KeepChangesOfOthersSinceStaging) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        hx_test::WriteFile("/etc/passwd", livePasswd);
        hx_test::WriteFile("/etc/group", liveGroup + "corvsrvc:x:991:bob,zoe\n");
        const LiveRows atStaging = ReadLiveRows(-1);
        fs::create_directory("/staged");
        // Meanwhile, two join, one leaves, and a user is created.
        hx_test::WriteFile("/etc/group", liveGroup + "corvsrvc:x:991:bob,eva,ann\n");
        hx_test::WriteFile("/etc/passwd", livePasswd + "carl:x:1003:100::/:\n");
        const MemberChanges changes = {.joining = {"ann", "dora"}, .leaving = {"zoe", "bob"}};
        std::string problem;
        EXPECT_EQ(LinesOf(FindStaged(atStaging, changes, problem)),
                  (std::vector<std::string>{"dora joins corvsrvc", "bob leaves corvsrvc"}));
        EXPECT_EQ(problem, "");
    });
}

// A machine without the service account.
void PrepareAccounts() {
    hx_test::RemoveServiceAccount();
    hx_test::AddUser("ann");
    hx_test::AddUser("bob", "people", {"lab"});
    hx_test::AddUser("zoe", "people", {"lab"});
    hx_test::AddUser("eva");
    hx_test::Succeed({"gpasswd", "-A", "eva", "lab"});
}

// Adds members as usermod does.
void RunScriptCommands() {
    hx_test::Succeed({"groupadd", "--system", "corvsrvc"});
    hx_test::Succeed({"useradd", "--system", "--gid", "corvsrvc", "--comment",
                      "Corvane Compute Service", "-M", "--home", "/var/corvane", "--shell",
                      "/sbin/nologin", "corvsrvc"});
    hx_test::Succeed({"usermod", "--append", "-G", "corvsrvc", "zoe"});
    hx_test::Succeed({"usermod", "--append", "-G", "corvsrvc", "ann"});
}

const std::string accountDatabases[] = {"passwd", "group", "shadow", "gshadow"};

void Copy(const std::string& from, const std::string& to) {
    for (const std::string& name : accountDatabases)
        fs::copy_file(from + name, to + name, fs::copy_options::overwrite_existing);
}

// Copies the account files as the script's commands change them to /staged.
void StageScriptCommands() {
    fs::create_directories("/staged");
    fs::create_directories("/former");
    Copy("/etc/", "/former/");
    RunScriptCommands();
    Copy("/etc/", "/staged/");
    Copy("/former/", "/etc/");
}

const MemberChanges joiningMembers = {.joining = {"zoe", "ann"}, .leaving = {}};

Failure ApplyStaged(const MemberChanges& members, Undo& undo) {
    std::string problem;
    const Differences differences = FindStaged(members, problem);
    EXPECT_EQ(problem, "");
    return ApplyAccounts(differences, undo);
}

void ExpectAccountFiles(const std::string& directory) {
    for (const std::string& name : accountDatabases)
        EXPECT_EQ(hx_test::ReadFile("/etc/" + name), hx_test::ReadFile(directory + name)) << name;
}

TEST(Accounts, BecomeThoseOfTheScript) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        PrepareAccounts();
        StageScriptCommands();
        Undo undo;
        const Failure failure = ApplyStaged(joiningMembers, undo);
        EXPECT_FALSE(failure) << failure->text.toStdString();
        ExpectAccountFiles("/staged/");
        EXPECT_FALSE(fs::exists("/var/mail/corvsrvc"));
    });
}

// userdel deletes a group of the user's name. This one has an administrator.
void AddServiceGroupWithNumberOfStaged() {
    const std::string id =
        hx_test::Run({"sh", "-c", "sed -n 's/^corvsrvc:x:\\(.*\\):.*/\\1/p' /staged/group"}).out;
    hx_test::Succeed({"groupadd", "--gid", id.substr(0, id.find('\n')), "corvsrvc"});
    hx_test::Succeed({"gpasswd", "-A", "eva", "corvsrvc"});
}

TEST(Accounts, AreRestoredByUndo) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const struct {
        bool groupExists;
        const char* members;
        MemberChanges changes;
    } cases[] = {
        {false, "", joiningMembers},
        {true, "", joiningMembers},
        {true, "bob,zoe,eva", {.joining = {"ann"}, .leaving = {"bob", "eva"}}},
    };
    for (const auto& [groupExists, members, changes] : cases) {
        HX_EXPECT_SCENARIO([&, &groupExists = groupExists, &members = members, &changes = changes] {
            PrepareAccounts();
            StageScriptCommands();
            if (groupExists) {
                AddServiceGroupWithNumberOfStaged();
                hx_test::Succeed({"gpasswd", "--members", members, "corvsrvc"});
                fs::remove("/staged/group");
                Copy("/etc/", "/former/");
            }
            for (const char* path : {"/var/corvane", "/var/mail"})
                fs::create_directories(path);
            hx_test::WriteFile("/var/corvane/file", "of the home directory");
            hx_test::WriteFile("/var/mail/corvsrvc", "mail");
            Undo undo;
            const Failure failure = ApplyStaged(changes, undo);
            EXPECT_FALSE(failure) << failure->text.toStdString();
            undo.Run();
            ExpectAccountFiles("/former/");
            EXPECT_TRUE(fs::exists("/var/corvane/file"));
            EXPECT_TRUE(fs::exists("/var/mail/corvsrvc"));
        });
    }
}

// Users of a second source of the name service, and users in no other group.
void PrepareMembers() {
    hx_test::RemoveServiceAccount();
    hx_test::Succeed({"sed", "-i", "s/^passwd:.*/& extrausers/", "/etc/nsswitch.conf"});
    fs::create_directories("/var/lib/extrausers");
    hx_test::WriteFile("/var/lib/extrausers/passwd",
                       "remote:x:70001:70000::/:/bin/sh\nother@lab:x:70002:70000::/:/bin/sh\n");
    hx_test::MakeServiceGroup({"ann", "bob"});
    hx_test::Succeed({"useradd", "-M", "-g", "corvsrvc", "-G", "corvsrvc", "only"});
    hx_test::AddUser("cat", "people", {"lab"});
    hx_test::Succeed({"gpasswd", "--add", "remote", "corvsrvc"});
}

TEST(Accounts, HaveMembersExactlyAsAnswered) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const struct {
        MemberChanges changes;
        std::string members;
    } cases[] = {
        {{.joining = {"cat", "other@lab"}, .leaving = {}}, "ann,bob,only,remote,cat,other@lab"},
        {{.joining = {}, .leaving = {"ann", "bob", "only", "remote"}}, ""},
        {{.joining = {"cat"}, .leaving = {"bob", "remote"}}, "ann,only,cat"},
        // Others may have made a change already.
        {{.joining = {"ann"}, .leaving = {"cat"}}, "ann,bob,only,remote"},
    };
    for (const auto& [changes, members] : cases) {
        HX_EXPECT_SCENARIO([&, &changes = changes, &members = members] {
            PrepareMembers();
            const std::string others = hx_test::Run({"grep", "-v", "^corvsrvc:", "/etc/group"}).out;
            std::vector<MemberDifference> differences;
            Failure failure = FindMemberDifferences("corvsrvc", changes, differences);
            Undo undo;
            if (!failure)
                failure = ApplyMembers(differences, undo);
            EXPECT_FALSE(failure) << failure->text.toStdString();
            EXPECT_EQ(hx_test::Members(), members);
            EXPECT_EQ(hx_test::Run({"grep", "-v", "^corvsrvc:", "/etc/group"}).out, others);
        });
    }
}

struct Collision {
    std::vector<std::string> command;  // run after the staging
    std::string problem;
};

TEST(Accounts, AreNotChangedAfterCollision) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const Collision collisions[] = {
        {{"groupadd", "corvsrvc"}, "cannot create group \"corvsrvc\" with ID "},
        {{"sh", "-c",
          "groupadd --gid $(sed -n 's/^corvsrvc:x:\\(.*\\):.*/\\1/p' /staged/group) other"},
         "cannot create group \"corvsrvc\" with ID "},
        {{"useradd", "--no-user-group", "corvsrvc"}, "cannot create user \"corvsrvc\" with ID "},
        {{"sh", "-c",
          "useradd --uid $(sed -n 's/^corvsrvc:x:\\([0-9]*\\):.*/\\1/p' /staged/passwd) other"},
         "cannot create user \"corvsrvc\" with ID "},
        {{"userdel", "zoe"}, "cannot add user \"zoe\" to group \"corvsrvc\": "},
    };
    for (const Collision& collision : collisions) {
        HX_EXPECT_SCENARIO([&] {
            PrepareAccounts();
            StageScriptCommands();
            std::string problem;
            const Differences differences = FindStaged(joiningMembers, problem);
            hx_test::Succeed(collision.command);
            Copy("/etc/", "/former/");
            Undo undo;
            const Failure failure = ApplyAccounts(differences, undo);
            ASSERT_TRUE(failure);
            EXPECT_EQ(failure->text.toStdString().substr(0, collision.problem.size()),
                      collision.problem);
            undo.Run();
            ExpectAccountFiles("/former/");
        });
    }
}

TEST(Accounts, KeepMembersThatOthersChanged) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        hx_test::RemoveServiceAccount();
        hx_test::MakeServiceGroup({"ann"});
        for (const MemberDifference& member :
             {MemberDifference{Change::Create, "ann", "corvsrvc"},
              MemberDifference{Change::Delete, "bob", "corvsrvc"}}) {
            Undo undo;
            const Failure failure = ApplyMembers({member}, undo);
            ASSERT_TRUE(failure);
            EXPECT_TRUE(
                failure->text.endsWith(QStringLiteral("another process changed this group")))
                << failure->text.toStdString();
        }
        EXPECT_EQ(hx_test::Members(), "ann");
    });
}

TEST(Accounts, ReportMessagesOfTools) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        hx_test::WriteFile("/usr/sbin/groupadd", "#!/bin/sh\nprintf 'one\\ntwo\\n' >&2\nexit 3\n");
        Differences differences;
        AccountDifference group;
        group.isGroup = true;
        group.name = "corvsrvc";
        group.gid = 64321;
        differences.accounts.push_back(group);
        Undo undo;
        Failure failure = ApplyAccounts(differences, undo);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->text,
                  QStringLiteral("cannot create group \"corvsrvc\" with ID 64321: one; two"));
        hx_test::WriteFile("/usr/sbin/groupadd", "#!/bin/sh\nexit 3\n");
        EXPECT_TRUE(
            ApplyAccounts(differences, undo)->text.endsWith(QStringLiteral("exit status 3")));
        fs::remove("/usr/sbin/groupadd");
        EXPECT_TRUE(ApplyAccounts(differences, undo)
                        ->text.endsWith(QStringLiteral("No such file or directory")));
    });
}

}  // namespace
