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
     liveGroup + "corvsrvc:x:991:bob,ann\n",
     {"group corvsrvc 991", "user corvsrvc 990 991 Corvane Compute Service /var/corvane /bin/bash",
      "bob joins corvsrvc", "ann joins corvsrvc"},
     ""},
    {"",
     "root:x:0:\npeople:x:100:bob\nlab:x:200:bob\n",
     {"bob joins people", "ann leaves lab"},
     ""},
    // The order of members is no difference.
    {"", "root:x:0:\npeople:x:100:\nlab:x:200:bob,ann\n", {}, ""},
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

Differences FindStaged(const LiveRows& atStaging, const std::string& stagedEtc,
                       std::string& problem) {
    const Descriptor etc(open(stagedEtc.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    Differences differences;
    const Failure failure = FindAccountDifferences(atStaging, etc.Number(), differences);
    problem = failure ? failure->text.toStdString() : "";
    return differences;
}

Differences FindStaged(const std::string& stagedEtc, std::string& problem) {
    return FindStaged(ReadLiveRows(-1), stagedEtc, problem);
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
            const Differences differences = FindStaged("/staged", problem);
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
        FindStaged("/staged", problem);
        EXPECT_EQ(problem, "cannot read \"/etc/passwd\": Invalid argument");
    });
}

TEST(Accounts, KeepChangesOfOthersSinceStaging) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        hx_test::WriteFile("/etc/passwd", livePasswd);
        hx_test::WriteFile("/etc/group", liveGroup);
        const LiveRows atStaging = ReadLiveRows(-1);
        fs::create_directory("/staged");
        Stage("/staged/group", "root:x:0:\npeople:x:100:bob,ann\nlab:x:200:\n");
        // Meanwhile, bob joins root and people, ann leaves lab, and a user is created.
        hx_test::WriteFile("/etc/group", "root:x:0:bob\npeople:x:100:bob\nlab:x:200:bob\n");
        hx_test::WriteFile("/etc/passwd", livePasswd + "carl:x:1003:100::/:\n");
        std::string problem;
        EXPECT_EQ(LinesOf(FindStaged(atStaging, "/staged", problem)),
                  (std::vector<std::string>{"ann joins people", "bob leaves lab"}));
        EXPECT_EQ(problem, "");
    });
}

// A machine with a group whose members the script below changes.
void PrepareAccounts() {
    hx_test::RemoveServiceAccount();
    hx_test::AddUser("ann");
    hx_test::AddUser("bob", "people", {"lab", "corvlab"});
    hx_test::AddUser("zoe", "people", {"corvlab", "lab"});
    hx_test::AddUser("eva", "people", {"corvlab"});
    hx_test::Succeed({"gpasswd", "-A", "eva", "lab"});
}

// The commands of the commit script.
void RunScriptCommands() {
    hx_test::Succeed({"groupadd", "--system", "corvsrvc"});
    hx_test::Succeed({"useradd", "--system", "--gid", "corvsrvc", "--comment",
                      "Corvane Compute Service", "-M", "--home", "/var/corvane", "--shell",
                      "/sbin/nologin", "corvsrvc"});
    hx_test::Succeed({"usermod", "--append", "-G", "corvsrvc", "zoe"});
    hx_test::Succeed({"usermod", "--append", "-G", "corvsrvc", "ann"});
    // As a member of "people" only through the user's record.
    hx_test::Succeed({"usermod", "-G", "people,lab", "bob"});
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

Failure ApplyStaged(Undo& undo) {
    std::string problem;
    const Differences differences = FindStaged("/staged", problem);
    EXPECT_EQ(problem, "");
    EXPECT_EQ(LinesOf(differences).size(), 6U);
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
        const Failure failure = ApplyStaged(undo);
        EXPECT_FALSE(failure) << failure->text.toStdString();
        ExpectAccountFiles("/staged/");
        EXPECT_FALSE(fs::exists("/var/mail/corvsrvc"));
    });
}

TEST(Accounts, AreRestoredByUndo) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const bool groupExists : {false, true}) {
        HX_EXPECT_SCENARIO([&] {
            PrepareAccounts();
            StageScriptCommands();
            if (groupExists) {
                // userdel deletes a group of the user's name. This one has an administrator.
                const std::string id =
                    hx_test::Run(
                        {"sh", "-c", "sed -n 's/^corvsrvc:x:\\(.*\\):.*/\\1/p' /staged/group"})
                        .out;
                hx_test::Succeed({"groupadd", "--gid", id.substr(0, id.find('\n')), "corvsrvc"});
                hx_test::Succeed({"gpasswd", "-A", "eva", "corvsrvc"});
                Copy("/etc/", "/former/");
            }
            for (const char* path : {"/var/corvane", "/var/mail"})
                fs::create_directories(path);
            hx_test::WriteFile("/var/corvane/file", "of the home directory");
            hx_test::WriteFile("/var/mail/corvsrvc", "mail");
            std::string problem;
            Differences differences = FindStaged("/staged", problem);
            Undo undo;
            const Failure failure = ApplyAccounts(differences, undo);
            EXPECT_FALSE(failure) << failure->text.toStdString();
            undo.Run();
            ExpectAccountFiles("/former/");
            EXPECT_TRUE(fs::exists("/var/corvane/file"));
            EXPECT_TRUE(fs::exists("/var/mail/corvsrvc"));
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
        {{"gpasswd", "--delete", "bob", "corvlab"},
         "cannot remove user \"bob\" from group \"corvlab\": another process changed this group"},
        {{"gpasswd", "--add", "bob", "people"},
         "cannot add user \"bob\" to group \"people\": another process changed this group"},
        {{"userdel", "zoe"}, "cannot add user \"zoe\" to group \"corvsrvc\": "},
    };
    for (const Collision& collision : collisions) {
        HX_EXPECT_SCENARIO([&] {
            PrepareAccounts();
            StageScriptCommands();
            std::string problem;
            const Differences differences = FindStaged("/staged", problem);
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
