// The text of a saved state, and what several attempts of a setup amount to.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"
#include "undo/AccountUse.h"
#include "undo/SavedSetup.h"
#include "undo/UnsavedSetups.h"

namespace {

State SavedFileState(const char* sha256) {
    State file;
    file.kind = State::Kind::File;
    file.mode = 0664;
    file.owner = 991;
    file.group = 990;
    file.digest = sha256;
    return file;
}

State SavedLinkState(const char* path) {
    State link;
    link.kind = State::Kind::Link;
    link.target = path;
    return link;
}

const std::string limitsPath = "/var/corvane/QueueLimits";

SavedSetup SomeSetup() {
    SavedSetup saved;
    saved.isComplete = true;
    saved.isInPlace = true;
    saved.isResultKnown = false;
    saved.record = {"manifest", "answers"};
    saved.members["corvsrvc"] = {"ann", "bob"};
    Differences first;
    first.accounts = {{true, "corvsrvc", 0, 990, "", "", ""},
                      {false, "corvsrvc", 991, 990, "Service", "/var/corvane", "/bin/bash"}};
    first.members = {{Change::Delete, "ann", "corvsrvc"}};
    first.paths = {
        {Change::Modify, limitsPath, SavedFileState("a"), SavedFileState("b"),
         &Find(Item::QueueLimits)},
        {Change::Create, "/etc/odd\n\xff%\"", State(), SavedLinkState("\xe9/target"), nullptr}};
    first.services = {{Change::Delete, "corvane24_service.service", "active", ""}};
    saved.attempts = {first};
    return saved;
}

TEST(SavedSetup, TextKeepsEverything) {
    const SavedSetup saved = SomeSetup();
    const auto parsed = ParseSavedSetup(TextOf(saved), sharedDirectory);
    ASSERT_TRUE(parsed);
    EXPECT_TRUE(parsed->isComplete);
    EXPECT_TRUE(parsed->isInPlace);
    EXPECT_FALSE(parsed->isResultKnown);
    EXPECT_EQ(parsed->record, saved.record);
    EXPECT_EQ(parsed->members, saved.members);
    EXPECT_EQ(parsed->attempts, saved.attempts);
}

TEST(SavedSetup, RefusesOtherTexts) {
    const QByteArray text = TextOf(SomeSetup());
    for (qsizetype i = 0; i + 1 < text.size(); ++i)
        EXPECT_FALSE(ParseSavedSetup(text.first(i), sharedDirectory)) << i;
    for (const auto& [from, to] : {std::pair("\"modify\"", "\"replace\""),
                                   {"436", "\"436\""},
                                   {"\"attempts\"", "\"changes\""},
                                   {"\"uid\"", "\"user\""}}) {
        QByteArray changed = text;
        EXPECT_FALSE(ParseSavedSetup(changed.replace(from, to), sharedDirectory)) << to;
    }
}

TEST(SavedSetup, IsAboutStateBeforeFirstAttempt) {
    SavedSetup saved = SomeSetup();
    Differences second;
    second.accounts = {{true, "corvsrvc", 0, 980, "", "", ""}};
    second.members = {{Change::Create, "ann", "corvsrvc"}};
    second.paths = {
        {Change::Modify, limitsPath, SavedFileState("b"), SavedFileState("c"), nullptr}};
    second.services = {{Change::Delete, "corvane24_service.service", "inactive", ""}};
    saved.attempts.push_back(second);
    const auto paths = PathsOf(saved);
    ASSERT_EQ(paths.size(), 2u);
    EXPECT_EQ(paths[0].before, SavedFileState("a"));
    EXPECT_EQ(paths[0].entry, &Find(Item::QueueLimits));
    EXPECT_EQ(paths[0].after,
              (std::vector<State>{SavedFileState("b"), SavedFileState("b"), SavedFileState("c")}));
    ASSERT_EQ(AccountsOf(saved).size(), 2u);
    EXPECT_EQ(AccountsOf(saved)[0], second.accounts[0]);  // created last
    EXPECT_EQ(MembersOf(saved), saved.attempts[0].members);
    EXPECT_EQ(ServicesOf(saved), saved.attempts[0].services);
}

// What is before the first of five setups, and what the last one left.
TEST(SavedSetup, CollapsesToFirstAndLastState) {
    SavedSetup saved = SomeSetup();
    for (int setup = 0; setup < 5; ++setup) {
        Differences later;
        later.paths = {
            {Change::Modify, limitsPath, SavedFileState("b"), SavedFileState("c"), nullptr}};
        later.accounts = {{true, "corvsrvc", 0, 980, "", "", ""}};
        saved.attempts.push_back(later);
        Collapse(saved);
    }
    ASSERT_EQ(saved.attempts.size(), 1u);
    const auto paths = PathsOf(saved);
    ASSERT_EQ(paths.size(), 2u);
    EXPECT_EQ(paths[0].before, SavedFileState("a"));
    EXPECT_EQ(paths[0].entry, &Find(Item::QueueLimits));
    EXPECT_EQ(paths[0].after, std::vector<State>{SavedFileState("c")});
    EXPECT_EQ(paths[1].after, std::vector<State>{SavedLinkState("\xe9/target")});
    ASSERT_EQ(AccountsOf(saved).size(), 2u);
    EXPECT_EQ(AccountsOf(saved)[0].gid, 980u);
    EXPECT_EQ(MembersOf(saved), SomeSetup().attempts[0].members);
}

// The complete setup did not change what the interrupted one may have changed.
TEST(SavedSetup, CollapseKeepsStatesOfInterruptedSetup) {
    SavedSetup saved = SomeSetup();
    Differences interrupted;
    interrupted.paths = {
        {Change::Modify, limitsPath, SavedFileState("b"), SavedFileState("c"), nullptr}};
    saved.attempts.push_back(interrupted);
    saved.attempts.emplace_back();
    Collapse(saved);
    const std::vector<State> states = PathsOf(saved)[0].after;
    for (const char* each : {"b", "c"})
        EXPECT_NE(std::ranges::find(states, SavedFileState(each)), states.end()) << each;
    EXPECT_EQ(PathsOf(saved)[0].before, SavedFileState("a"));
}

// Another process has the file.
TEST(UnsavedSetups, AreNotFoundWhenFileCannotBeRead) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        const std::string path = "/var/corvane/corvane26";
        Shell("rm -rf /var/corvane /var/lib/corvane26; mkdir /var/corvane; echo > " + path);
        const Descriptor live(open("/var/corvane", O_PATH | O_DIRECTORY));
        const Descriptor file(open(path.c_str(), O_RDONLY));
        SavedSetup saved;
        EXPECT_FALSE(FindUnsavedSetups(QStringLiteral("/var/corvane"), live.Number(), saved));
        std::signal(SIGIO, SIG_IGN);
        ASSERT_EQ(fcntl(file.Number(), F_SETLEASE, F_WRLCK), 0);
        const Failure failure =
            FindUnsavedSetups(QStringLiteral("/var/corvane"), live.Number(), saved);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->text, "cannot read \"" + QString::fromStdString(path) +
                                     "\": Resource temporarily unavailable");
    });
}

TEST(AccountUse, FindsProcessesAndFiles) {
    constexpr std::chrono::seconds limit(10);
    const hx_test::TempDir files;
    std::filesystem::create_directory(files / "below");
    hx_test::WriteFile(files / "below/result", "");
    const std::string result = files / "below/result";
    AccountDifference user = {false, "nobody_here", getuid(), getgid(), "", "", ""};
    AccountDifference group = {true, "nobody_here", 0, getgid(), "", "", ""};
    for (const AccountDifference& account : {user, group})
        EXPECT_TRUE(FindAccountUse(account, {}, limit).use.startsWith(u"process "));
    constexpr id_t unused = 3999999999;
    user.uid = unused;
    group.gid = unused;
    for (const AccountDifference& account : {user, group}) {
        const AccountUse found = FindAccountUse(account, {files / "below", "/missing"}, limit);
        EXPECT_EQ(found.use, "");
        EXPECT_EQ(found.searched, QStringList(QString::fromStdString(files / "below")));
        EXPECT_EQ(found.notSearched, QStringList());
        // A regular user may not be able to search crontabs.
        if (account.isGroup || getuid() == 0) {
            EXPECT_EQ(found.missed, "");
        }
    }
    const AccountUse late = FindAccountUse(user, {files / "below"}, std::chrono::seconds(-1));
    EXPECT_EQ(late.searched, QStringList());
    EXPECT_EQ(late.notSearched.size(), 1);
    EXPECT_EQ(late.missed, QString::fromStdString(files / "below"));
}

TEST(AccountUse, MissesWhatCannotBeRead) {
    constexpr id_t unused = 3999999999;
    const hx_test::TempDir files;
    // Calls fail for root, too, with a name or path that is too long.
    const AccountDifference group = {true, "nobody_here", 0, unused, "", "", ""};
    const AccountDifference user = {false, std::string(PATH_MAX, 'x'), unused, unused, "", "", ""};
    const auto findIn = [&](const AccountDifference& account, const std::string& directory) {
        return FindAccountUse(account, {directory}, std::chrono::seconds(10));
    };
    const std::string unreadable = files / std::string(NAME_MAX + 1, 'x');
    const AccountUse found = findIn(group, unreadable);
    EXPECT_EQ(found.use, "");
    EXPECT_EQ(found.searched, QStringList());
    EXPECT_EQ(found.missed, QString::fromStdString(unreadable));
    EXPECT_EQ(findIn(group, files / "missing/below").missed, "");
    EXPECT_EQ(findIn(user, files / "missing").missed, "/var/spool/cron/");
}

// A file of the account, which has no processes.
TEST(AccountUse, SearchesDirectoriesOnLocalFileSystems) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        constexpr uid_t owner = 3999999999;
        const AccountDifference account = {false, "nobody_here", owner, owner, "", "", ""};
        const auto useIn = [&](const std::string& directory) {
            return FindAccountUse(account, {directory}, std::chrono::seconds(10));
        };
        Shell(
            "mkdir -p /srv/real/below /srv/remote; ln -s ./real/../real /srv/link; "
            "touch /srv/real/below/result; chown 3999999999 /srv/real/below/result");
        EXPECT_EQ(useIn("/srv/link").use, "/srv/real/below/result");
        EXPECT_EQ(useIn("/srv/link/below").use, "/srv/real/below/result");
        const Descriptor daemon(open("/dev/fuse", O_RDWR));
        if (!daemon)
            return;
        const std::string options =
            "fd=" + std::to_string(daemon.Number()) + ",rootmode=40000,user_id=0,group_id=0";
        ASSERT_EQ(mount("none", "/srv/remote", "fuse.test", 0, options.c_str()), 0);
        alarm(20);  // nothing answers a call
        EXPECT_EQ(useIn("/srv/remote/below").notSearched,
                  QStringList(QStringLiteral("/srv/remote/below (not a local file system)")));
        alarm(0);
        umount2("/srv/remote", MNT_DETACH);
    });
}

}  // namespace
