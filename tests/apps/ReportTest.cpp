// What a setup changes: the comparison of staged and live machine, and the report.
#include "report/Report.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <sstream>

#include "Console.h"
#include "apps/RootSetup.h"
#include "harness/Child.h"
#include "harness/Expect.h"
#include "harness/Pattern.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"
#include "report/Agreement.h"

namespace {

using hx_test::ExpectHolds;
using hx_test::ProcessResult;
using hx_test::RunInChild;
using hx_test::TempDir;
using Lines = std::vector<std::string>;

constexpr unsigned serviceMachine = AsRoot | WithoutClusterNode;
constexpr uid_t createdAccount = 4001;
constexpr uid_t recordedAccount = 4002;

Descriptor Open(const std::string& directory) {
    return Descriptor(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::string Text(const State& state) {
    static const std::map<State::Kind, const char*> kinds = {{State::Kind::Missing, "missing"},
                                                             {State::Kind::File, "file"},
                                                             {State::Kind::Directory, "directory"},
                                                             {State::Kind::Link, "link"},
                                                             {State::Kind::Special, "special"}};
    std::ostringstream text;
    text << kinds.at(state.kind) << ' ' << std::oct << state.mode << std::dec << ' ' << state.owner
         << ':' << state.group;
    return text.str() + (state.target.empty() ? "" : " to " + state.target);
}

// "+ PATH STATE", "- PATH", or "PATH STATE -> STATE", with " content" when it differs. "*" follows
// the path of a row of the installation table.
std::string Text(const PathDifference& difference) {
    const std::string path = difference.path + (difference.entry == nullptr ? " " : "* ");
    if (difference.change == Change::Create)
        return "+ " + path + Text(difference.after);
    if (difference.change == Change::Delete)
        return "- " + path;
    const bool differs = difference.before.digest != difference.after.digest;
    std::string text = path + Text(difference.before) + " -> " + Text(difference.after) +
                       (differs ? " content" : "");
    for (const std::string& line : difference.changedLines)
        text += ", " + line;
    return text;
}

// Two equal trees, empty layers, and part of a live /etc. The tmpfs is not a layer of an overlay,
// so that deletions of an overlay can be created in it.
constexpr const char* layOut = R"(
    mountpoint -q /srv || mount -t tmpfs tmpfs /srv
    cd /srv && umount live/pages_mount 2> /dev/null; rm -rf /srv/* /etc/hx; cd /srv
    mkdir staged etc bin && cd staged
    mkdir -p corvanerc/corvane26 corvanerc/corvane26server/resources/js qchemrc
    mkdir corvanerc/corvane26server/icons
    echo a > corvanerc/corvane26server/resources/a.html
    echo b > corvanerc/corvane26server/resources/js/b.js
    for file in corvane26 corvane26_snapshot QueueEntries QueueLimits; do echo $file > $file; done
    chmod 775 corvane26; chmod 666 QueueEntries
    chown -R 4001:4001 .; chown 0:0 qchemrc
    cp -a ../staged ../live
    mkdir -p /etc/hx/full/below && echo a > /etc/hx/a && echo b > /etc/hx/full/below/b
)";

Failure FindDifferences(unsigned conditions, int liveTree, Differences& differences) {
    StagedMachine staged;
    staged.tree = Open("/srv/staged");
    staged.etc = Open("/srv/etc");
    staged.bin = Open("/srv/bin");
    staged.conditions = conditions;
    staged.installDir = "/T";
    return FindPathDifferences(staged, liveTree, recordedAccount, differences);
}

// The differences as lines, and the text of a failure.
Lines Found(unsigned conditions, int liveTree) {
    Differences differences;
    const Failure failure = FindDifferences(conditions, liveTree, differences);
    Lines lines;
    for (const PathDifference& difference : differences.paths)
        lines.push_back(Text(difference));
    if (failure) {
        EXPECT_EQ(failure->status, ExitStatus::TreeRefused);
        EXPECT_NE(failure->remedy, "");
        return {failure->text.toStdString()};
    }
    return lines;
}

// The paths of rows that stay.
Lines Kept(int liveTree) {
    Differences differences;
    EXPECT_FALSE(FindDifferences(serviceMachine, liveTree, differences));
    Lines paths;
    for (const Entry* entry : differences.kept)
        paths.push_back(PathOf(*entry, "/T"));
    return paths;
}

struct TreeCase {
    std::string command;  // in /srv
    Lines expected;
    unsigned conditions = serviceMachine;
};

void ExpectDifferences(const std::vector<TreeCase>& cases) {
    HX_EXPECT_SCENARIO([&] {
        for (const auto& [command, expected, conditions] : cases) {
            SCOPED_TRACE(command);
            Shell(layOut);
            EXPECT_EQ(Shell("cd /srv && (" + command + ") 2>&1 || echo failed"), "");
            const Descriptor live = Open("/srv/live");
            EXPECT_EQ(Found(conditions, live.Number()), expected);
        }
        Shell("umount -l /srv/live/corvanerc/corvane26server/icons");
    });
}

TEST(PathDifferences, FindsChangedFiles) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string was = "/T/corvane26* file 775 4001:4001 -> ";
    const std::string limits = "/T/QueueLimits* file ";
    const std::string runScript = " -> file 775 4001:4001";
    ExpectDifferences({
        {":", {}},
        {"echo new > live/unknown; mkdir staged/unknown; touch live/QueueLimits", {}},
        {"echo new > staged/corvane26", {was + "file 775 4001:4001 content"}},
        {"chmod 755 staged/corvane26", {was + "file 755 4001:4001"}},
        {"chown 4001:4003 staged/corvane26", {was + "file 775 4001:4003"}},
        {"rm live/corvane26", {"+ /T/corvane26* file 775 4001:4001"}},
        // Root does not read what other users cannot read.
        {"chmod 770 live/corvane26 staged/corvane26",
         {"/T/corvane26* file 770 4001:4001 -> file 770 4001:4001 content"}},
        {"truncate -s 1T live/corvane26", {was + "file 775 4001:4001 content"}},
        // Nothing waits for a FIFO's writer or follows a link.
        {"rm live/corvane26; mkfifo -m 666 live/corvane26",
         {"/T/corvane26* special 666 0:0" + runScript + " content"}},
        {"rm live/corvane26; ln -s ../staged/corvane26 live/corvane26",
         {"/T/corvane26* link 0 0:0 to ../staged/corvane26" + runScript + " content"}},
        {"rm live/corvane26; mkdir live/corvane26",
         {"/T/corvane26* directory 755 0:0" + runScript + " content"}},
        {"printf 'maxthreads: 8\\nScratch:\t/tmp\\nThreadsPerMolecule: 4\\nX: 1\\n' > "
         "live/QueueLimits; printf 'MaxThreads: 12\\nScratch: /tmp\\n' > staged/QueueLimits",
         {limits + "644 4001:4001 -> file 644 4001:4001 content, MaxThreads: 8 -> 12, "
                   "ThreadsPerMolecule: 4 -> none"}},
        {"echo 'MaxThreads: secret' > live/QueueLimits; chmod 660 live/QueueLimits",
         {limits + "660 4001:4001 -> file 644 4001:4001 content"}},
        {"touch staged/corvane26_ssh", {}},
        {"touch staged/corvane26_ssh",
         {"+ /T/corvane26_ssh* file 644 0:0"},
         serviceMachine | WithSubmissionScripts},
    });
}

TEST(PathDifferences, KeepsQueueEntriesOfEarlierSetup) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string now = " -> file 666 4001:4001";
    ExpectDifferences({
        {"echo job >> live/QueueEntries", {}},
        {"chown 4002:4002 live/QueueEntries", {}},
        {"chmod 644 live/QueueEntries", {"/T/QueueEntries* file 644 4001:4001" + now}},
        {"chown 4002:4002 live/QueueEntries; chmod 604 live/QueueEntries",
         {"/T/QueueEntries* file 604 4002:4002 -> file 666 4002:4002"}},
        {"chmod 660 live/QueueEntries", {"/T/QueueEntries* file 660 4001:4001" + now}},
        {"chown 4003:4001 live/QueueEntries", {"/T/QueueEntries* file 666 4003:4001" + now}},
        {"ln live/QueueEntries key", {"/T/QueueEntries* file 666 4001:4001" + now}},
        {"rm live/QueueEntries; mkfifo -m 666 live/QueueEntries",
         {"/T/QueueEntries* special 666 0:0" + now}},
        {"rm live/QueueEntries", {"+ /T/QueueEntries* file 666 4001:4001"}},
    });
}

TEST(PathDifferences, FindsDirectoriesAndPages) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string server = "/T/corvanerc/corvane26server";
    const std::string pages = server + "/resources";
    const std::string link =
        "ln -s earlier staged/corvanerc/corvane26server/"
        "CorvaneServerRepository; ";
    ExpectDifferences({
        {"chmod 700 live/corvanerc; chgrp 4003 live/qchemrc", {}},
        {"chmod 705 live/corvanerc; chown 0:0 live/corvanerc; chown 4002 live/corvanerc/corvane26",
         {"/T/corvanerc* directory 705 0:0 -> directory 705 4001:4001",
          "/T/corvanerc/corvane26* directory 755 4002:4001 -> directory 755 4001:4001"}},
        {"rm -r live/corvanerc",
         {"+ /T/corvanerc* directory 755 4001:4001",
          "+ /T/corvanerc/corvane26* directory 755 4001:4001",
          "+ " + server + "* directory 755 4001:4001", "+ " + pages + "* directory 755 4001:4001",
          "+ " + pages + "/a.html* file 644 4001:4001",
          "+ " + pages + "/js* directory 755 4001:4001",
          "+ " + pages + "/js/b.js* file 644 4001:4001",
          "+ " + server + "/icons* directory 755 4001:4001"}},
        {"cd live/corvanerc/corvane26server/resources; echo own > a.html; rm js/b.js; mkfifo f;"
         "ln -s /etc link; chown -h 4001:4001 link",
         {}},
        {"cd live/corvanerc/corvane26server/resources; chown 0:0 . js/b.js; ln -s /etc link",
         {pages + "* directory 755 0:0 -> directory 755 4001:4001",
          pages + "/js/b.js* file 644 0:0 -> file 644 4001:4001",
          pages + "/link* link 0 0:0 to /etc -> link 0 4001:4001 to /etc"}},
        {link, {"+ " + server + "/CorvaneServerRepository* link 0 0:0 to earlier"}},
        {link + "mkdir live/corvanerc/corvane26server/CorvaneServerRepository", {}},
        {"rm -r live/corvanerc/corvane26server/*", {}, AsRoot},
    });
}

TEST(PathDifferences, CreatesAllInNewTree) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        Shell(layOut);
        const Lines expected = {"+ /T* directory 755 4001:4001",
                                "+ /T/corvanerc* directory 755 4001:4001",
                                "+ /T/corvanerc/corvane26* directory 755 4001:4001",
                                "+ /T/corvanerc/corvane26server* directory 755 4001:4001",
                                "+ /T/corvane26* file 775 4001:4001",
                                "+ /T/corvane26_snapshot* file 644 4001:4001",
                                "+ /T/QueueEntries* file 666 4001:4001",
                                "+ /T/QueueLimits* file 644 4001:4001",
                                "+ /T/qchemrc* directory 755 0:0"};
        EXPECT_EQ(Found(AsRoot, -1), expected);
    });
}

TEST(PathDifferences, FindsRowsThatStay) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        Shell(layOut);
        Shell(
            "cd /srv; rm -rf live/corvanerc /etc/corvane26 /usr/bin/corvane26*; "
            "echo new > live/corvane26; ln -s x /usr/bin/corvane26; ln -s y bin/corvane26; "
            "mkdir -p /etc/corvane26; rm -f /etc/systemd/system/corvane26_service.service; "
            "touch live/corvane26_ssh");
        EXPECT_EQ(Kept(-1), (Lines{"/etc/corvane26"}));
        const Descriptor live = Open("/srv/live");
        EXPECT_EQ(Kept(live.Number()), (Lines{"/T", "/T/corvane26_snapshot", "/T/QueueEntries",
                                              "/T/QueueLimits", "/T/qchemrc", "/etc/corvane26"}));
    });
}

TEST(PathDifferences, RefusesUnsafeDirectories) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string server = "/T/corvanerc/corvane26server";
    const std::string below = "cd live/corvanerc/corvane26server/icons; ";
    const std::string tooMany = "too many files or levels of directories in directory \"" + server;
    ExpectDifferences({
        {"cd live/corvanerc; rmdir corvane26; ln -s /etc corvane26",
         {"\"/T/corvanerc/corvane26\" is not a directory"}},
        {"cd live/corvanerc/corvane26server; rmdir icons; mkfifo icons",
         {"\"" + server + "/icons\" is not a directory"}},
        {"chown 4003 live/corvanerc", {"directory \"/T/corvanerc\" is owned by another user"}},
        {"chown 4002 live/qchemrc", {"directory \"/T/qchemrc\" is owned by another user"}},
        {"chown 0 live/corvanerc; chmod 750 live/corvanerc",
         {"other users cannot read directory \"/T/corvanerc\""}},
        {below + "chmod 750 .", {"other users cannot read directory \"" + server + "/icons\""}},
        {below + "mkdir -m 700 a",
         {"other users cannot read directory \"" + server + "/icons/a\""}},
        {below + "/usr/bin/python3 -c 'import os; [os.mknod(str(i)) for i in range(100001)]'",
         {tooMany + "/icons\""}},
        {below + "for i in $(seq 64); do mkdir d; chown 4001:4001 d; cd d; done",
         {tooMany + "/icons" +
          [] {
              std::string path;
              for (int i = 0; i < 64; ++i)
                  path += "/d";
              return path;
          }() +
          "\""}},
        {below + "mkdir m; mount -t tmpfs tmpfs m",
         {"\"" + server + "/icons/m\" is a mount point"}},
    });
}

TEST(PathDifferences, FindsChangesInLayers) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string wants = "/etc/systemd/system/multi-user.target.wants";
    const std::string unit = "/etc/systemd/system/corvane24_service.service";
    ExpectDifferences({
        // Copied, unchanged.
        {"cp -a /etc/hx etc/hx; mkdir -p etc/systemd/system", {}},
        {"for file in passwd passwd- shadow group- gshadow .pwd.lock subuid subuid- subgid subgid-;"
         "do echo hash > etc/$file; done",
         {}},
        {"mkdir etc/hx; echo new > etc/hx/a; mkdir -m 700 etc/hx/full; ln -s a etc/hx/b;"
         "echo private > etc/hx/c; chmod 600 etc/hx/c",
         {"/etc/hx/a file 644 0:0 -> file 644 0:0 content", "+ /etc/hx/b link 0 0:0 to a",
          "+ /etc/hx/c file 600 0:0", "/etc/hx/full directory 755 0:0 -> directory 700 0:0"}},
        {"mkdir etc/hx; ln -s a etc/hx/link; ln -s b /etc/hx/link",
         {"/etc/hx/link link 0 0:0 to b -> link 0 0:0 to a"}},
        {"mkdir -p etc/new/below; touch etc/new/below/file",
         {"+ /etc/new directory 755 0:0", "+ /etc/new/below directory 755 0:0",
          "+ /etc/new/below/file file 644 0:0"}},
        // Deletions: of a file, a directory, and of nothing.
        {"mkdir etc/hx; mknod etc/hx/a c 0 0", {"- /etc/hx/a "}},
        {"mkdir etc/hx; mknod etc/hx/full c 0 0; mknod etc/hx/none c 0 0",
         {"- /etc/hx/full/below/b ", "- /etc/hx/full/below ", "- /etc/hx/full "}},
        {"mkdir etc/hx; echo new > etc/hx/a; echo new > etc/hx/c;"
         "/usr/bin/python3 -c 'import os; os.setxattr(\"etc/hx\", \"trusted.overlay.opaque\", "
         "b\"y\")'",
         {"- /etc/hx/full/below/b ", "- /etc/hx/full/below ", "- /etc/hx/full ",
          "/etc/hx/a file 644 0:0 -> file 644 0:0 content", "+ /etc/hx/c file 644 0:0"}},
        {"mkdir etc/hx; echo file > etc/hx/full; mkdir etc/hx/a; touch etc/hx/a/b",
         {"/etc/hx/a file 644 0:0 -> directory 755 0:0 content", "+ /etc/hx/a/b file 644 0:0",
          "- /etc/hx/full/below/b ", "- /etc/hx/full/below ",
          "/etc/hx/full directory 755 0:0 -> file 644 0:0 content"}},
        {"rm -f /usr/bin/corvane26; ln -s /T/corvane26 bin/corvane26; mkdir -p " + wants +
             " etc/systemd/system; touch " + unit + "; mknod ." + unit + " c 0 0",
         {"- " + unit + "* ", "+ /usr/bin/corvane26* link 0 0:0 to /T/corvane26"}},
    });
}

// Calls `body` in a child, without rights that the test does not have, for its output.
ProcessResult Output(const std::function<void()>& body) {
    return RunInChild({}, [&body] {
        Console::Start();
        body();
    });
}

AccountDifference Group() {
    AccountDifference group;
    group.isGroup = true;
    group.name = "corvsrvc";
    group.gid = createdAccount;
    return group;
}

AccountDifference User() {
    AccountDifference user;
    user.name = "corvsrvc";
    user.uid = user.gid = createdAccount;
    user.comment = accountComment;
    user.home = "/nonexistent";
    user.shell = "/usr/sbin/nologin";
    return user;
}

State StateOf(State::Kind kind, mode_t mode, uid_t owner, const std::string& content = {}) {
    State state;
    state.kind = kind;
    state.mode = mode;
    state.owner = state.group = owner;
    (kind == State::Kind::Link ? state.target : state.digest) = content;
    return state;
}

// Every row of the table that a setup of a machine without Corvane creates, and 40 web pages.
Differences FirstSetup() {
    Differences differences;
    differences.accounts = {Group(), User()};
    differences.members = {{Change::Create, "anna", "corvsrvc"},
                           {Change::Create, "bo", "corvsrvc"}};
    for (const Entry& entry : Entries()) {
        const bool isKept = entry.item >= Item::CommitScript;
        if (!Applies(entry, serviceMachine) || isKept || entry.kind == Kind::Group ||
            entry.kind == Kind::User)
            continue;
        const std::string path = PathOf(entry, sharedDirectory);
        const auto kind = entry.kind == Kind::Directory ? State::Kind::Directory
                          : entry.kind == Kind::Link    ? State::Kind::Link
                                                        : State::Kind::File;
        differences.paths.push_back(
            {Change::Create, path, State(), StateOf(kind, entry.rootMode, 0, "x"), &entry});
        for (int page = 0; entry.ownsAllBelow && page < 20; ++page) {
            differences.paths.push_back({Change::Create, path + "/" + std::to_string(page), State(),
                                         StateOf(State::Kind::File, 0644, createdAccount, "x"),
                                         &entry});
        }
    }
    differences.services = {{Change::Create, serviceUnit, "", "active"}};
    return differences;
}

TEST(Report, ShowsLineForEachChangeOfFirstSetup) {
    const auto result = Output([] {
        StagedMachine staged;
        staged.installDir = sharedDirectory;
        staged.values = {{"Job limit", "8"},
                         {"Memory per thread", "1024 MB"},
                         {"Scratch directory", "/tmp"},
                         {"Scratch per thread", "10 GB"},
                         {"Queue", "internal"},
                         {"Service account", "corvsrvc:corvsrvc"}};
        PrintReport(staged, FirstSetup());
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, R"(Values in use:
  Job limit:          8
  Memory per thread:  1024 MB
  Scratch directory:  /tmp
  Scratch per thread: 10 GB
  Queue:              internal
  Service account:    corvsrvc:corvsrvc
Accounts:
  create group corvsrvc (GID 4001)
  create user corvsrvc (UID 4001, shell /usr/sbin/nologin)
  add anna to group corvsrvc
  add bo to group corvsrvc
Tree /var/corvane:
  create directory /var/corvane
  create directory corvanerc
  create directory corvanerc/corvane26
  create directory corvanerc/corvane26server
  create directory corvanerc/corvane26server/resources with 20 web pages
  create directory corvanerc/corvane26server/icons with 20 web pages
  create file corvane26
  create file corvane26_snapshot
  create file QueueEntries
  create file QueueLimits
  create directory qchemrc
  create file qchemrc/qchemrc
  create file qchemrc/qcscratch
  create file corvane26_service.service
System:
  create link /usr/bin/corvane26 to x
  create link /usr/bin/corvane26_snapshot to x
  create file /usr/bin/corvane26_service_script
  create file /etc/systemd/system/corvane26_service.service
  create link /etc/systemd/system/multi-user.target.wants/corvane26_service.service to x
  create directory /etc/corvane26
  create file /etc/corvane26/service
Services:
  start corvane26_service.service
63 to create, 2 to add, 1 to start.
)");
}

const Entry& PagesRow() {
    return *std::find_if(Entries().begin(), Entries().end(),
                         [](const Entry& entry) { return entry.ownsAllBelow; });
}

TEST(Report, ShowsOldAndNewValues) {
    const auto file = [](mode_t mode, uid_t owner, const char* digest) {
        return StateOf(State::Kind::File, mode, owner, digest);
    };
    Differences differences;
    differences.accounts = {Group(), User()};
    differences.members = {{Change::Delete, "bo", "corvsrvc"}};
    const Entry& script = Find(Item::RunScript);
    const Entry& pages = PagesRow();
    const std::string pagesPath = PathOf(pages, "/T");
    const auto directory = [](uid_t owner) { return StateOf(State::Kind::Directory, 0755, owner); };
    differences.paths = {
        {Change::Modify, pagesPath, directory(0), directory(createdAccount), &pages},
        {Change::Modify, pagesPath + "/a", file(0644, 0, ""), file(0644, createdAccount, ""),
         &pages},
        {Change::Modify, pagesPath + "/b", directory(0), directory(createdAccount), &pages},
        {Change::Modify, pagesPath + "/c", file(0644, 1, ""), file(0644, createdAccount, ""),
         &pages},
        {Change::Modify, pagesPath + "/d", file(0640, 0, "a"), file(0644, 0, "b"), &pages},
        {Change::Modify, "/T/corvane26", file(0755, 0, ""), file(0775, createdAccount, "b"),
         &script},
        {Change::Modify,
         "/T/QueueLimits",
         file(0664, 0, "a"),
         file(0664, 0, "b"),
         nullptr,
         {"MaxThreads: 8 -> 12", "ThreadsPerMolecule: 4 -> none"}},
        {Change::Modify, "/etc/a", StateOf(State::Kind::Special, 0600, 0), file(0600, 0, ""),
         nullptr},
        {Change::Modify, "/etc/b", StateOf(State::Kind::Link, 0, 0, "/old"),
         StateOf(State::Kind::Link, 0, 0, "/new"), nullptr},
        {Change::Create, "/T/c", {}, StateOf(State::Kind::Link, 0, 0, "\x1b[2J\n/etc"), nullptr},
        {Change::Delete, "/etc/d", StateOf(State::Kind::Directory, 0755, 0), {}, nullptr},
        {Change::Delete, "/etc/d\x1b[2J", StateOf(State::Kind::Link, 0, 0, "x"), {}, nullptr},
    };
    differences.services = {{Change::Delete, "corvane24_service.service", "active", ""},
                            {Change::Modify, serviceUnit, "active", "active"}};
    const auto result = Output([&] {
        StagedMachine staged;
        staged.installDir = "/T";
        staged.values = {{"Queue", "a\x1b[2J"}};
        PrintReport(staged, differences);
    });
    EXPECT_EQ(result.out, R"(Values in use:
  Queue: a?[2J
Accounts:
  create group corvsrvc (GID 4001)
  create user corvsrvc (UID 4001, shell /usr/sbin/nologin)
  remove bo from group corvsrvc
Tree /T:
  change corvanerc/corvane26server/resources: owner root:root -> corvsrvc:corvsrvc
  change 2 web pages in corvanerc/corvane26server/resources: owner root:root -> corvsrvc:corvsrvc
  change 1 web page in corvanerc/corvane26server/resources: owner daemon:daemon -> corvsrvc:corvsrvc
  change 1 web page in corvanerc/corvane26server/resources: content, mode 0640 -> 0644
  change corvane26: content, mode 0755 -> 0775, owner root:root -> corvsrvc:corvsrvc
  change QueueLimits: MaxThreads: 8 -> 12, ThreadsPerMolecule: 4 -> none
  create link c to ?[2J?/etc
System:
  change /etc/a: special file -> file
  change /etc/b: /old -> /new
  delete directory /etc/d
  delete link /etc/d?[2J
Services:
  stop corvane24_service.service
  restart corvane26_service.service
3 to create, 9 to change, 2 to delete, 1 to remove, 1 to restart, 1 to stop.
)");
}

// Of a service machine whose run script and unit change.
TEST(Report, ShowsWhatIsKeptWithVerbose) {
    Differences differences;
    for (const Item item : {Item::RunScript, Item::Unit}) {
        const Entry& entry = Find(item);
        differences.paths.push_back({Change::Modify, PathOf(entry, "/T"),
                                     StateOf(State::Kind::File, 0644, 0, "a"),
                                     StateOf(State::Kind::File, 0644, 0, "b"), &entry});
    }
    differences.kept = {&Find(Item::InstallDirectory), &Find(Item::SnapshotScript), &PagesRow(),
                        &Find(Item::AccountRecord)};
    const std::string kept = R"(Kept:
  keep group chem
  keep user ada
  keep directory /T
  keep file corvane26_snapshot
  keep directory corvanerc/corvane26server/resources with its web pages
  keep file /etc/corvane26/service
  keep corvane26_service.service active
)";
    for (const auto level : {Console::Level::Normal, Console::Level::Verbose}) {
        const auto result = Output([&] {
            Console::SetLevel(level);
            StagedMachine staged;
            staged.installDir = "/T";
            staged.conditions = serviceMachine;
            staged.serviceUser = "ada";
            staged.serviceGroup = "chem";
            staged.activeServices = {"corvane24_service", "corvane26_service"};
            PrintReport(staged, differences);
        });
        EXPECT_EQ(result.out,
                  "Tree /T:\n  change corvane26: content\n"
                  "System:\n  change /etc/systemd/system/corvane26_service.service: content\n" +
                      (level == Console::Level::Verbose ? kept : std::string()) + "2 to change.\n");
    }
}

struct RowCase {
    const char* command;  // in the install tree
    std::set<std::string> names;
};

TEST(LiveRows, DifferInWhatSetupMayChange) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const std::string limits = "/var/corvane/QueueLimits";
    const RowCase cases[] = {
        {":", {}},
        {"echo job >> QueueEntries; touch corvane26; mkdir unknown", {}},
        {"chmod 604 QueueEntries", {"/var/corvane/QueueEntries"}},
        // The programs of Corvane write all lines and change the last one.
        {"printf 'MaxThreads: 8\\nMemoryPerThreadMB: 9\\nThreadsPerMolecule: 2\\n' > QueueLimits",
         {}},
        {"sed -i 's/8/9/' QueueLimits", {limits}},
        {"sed -i '/Memory/d' QueueLimits", {limits}},
        {"chmod 600 QueueLimits", {limits}},
        {"echo new > corvane26; rm corvane26_snapshot; chown 4003 corvanerc/corvane26",
         {"/var/corvane/corvane26", "/var/corvane/corvane26_snapshot",
          "/var/corvane/corvanerc/corvane26"}},
        {"ln -sfn /srv /usr/bin/corvane26; echo new > /usr/bin/corvane26_service_script",
         {"/usr/bin/corvane26", "/usr/bin/corvane26_service_script"}},
        {"echo unit > /etc/systemd/system/corvane24_service.service; mkdir /etc/corvane26",
         {"/etc/corvane26", "/etc/systemd/system/corvane24_service.service"}},
        {"echo ann:x:4009:4009::/:/bin/sh >> /etc/passwd; sed -i 's/^users:.*/&ann/' /etc/group",
         {"user ann", "group users"}},
    };
    for (const auto& [command, names] : cases) {
        SCOPED_TRACE(command);
        HX_EXPECT_SCENARIO([command = std::string(command), names = names] {
            Shell(layOut);
            Shell(
                "printf 'maxthreads:8\\nMemoryPerThreadMB: 9\\n' > /srv/live/QueueLimits; "
                "mkdir -p /etc/systemd/system");
            const Descriptor live = Open("/srv/live");
            const LiveRows before = ReadLiveRows(live.Number());
            Shell("cd /srv/live; " + command);
            EXPECT_EQ(DifferingRows(before, ReadLiveRows(live.Number())), names);
            EXPECT_TRUE(DifferingRows(ReadLiveRows(-1), before).contains("/var/corvane"));
        });
    }
}

struct AgreementCase {
    const char* input;      // null: a setup without questions
    std::string runScript;  // a letter for each content, first at staging, then at each look
    std::string limits;     // likewise, for the difference of QueueLimits at each look
    std::string page;
    std::string end;  // the contents of what is merged, or the failure
    int reports;
    std::string contents = {};  // those that the answer d shows
};

// A difference with such a content.
PathDifference ContentOf(const char* path, const Entry* entry, char content) {
    return {Change::Modify, path, StateOf(State::Kind::File, 0644, 0, std::string(1, content)),
            StateOf(State::Kind::File, 0644, 0, "new"), entry};
}

void ExpectAgreement(const AgreementCase& test) {
    StagedMachine staged;
    staged.interactive = test.input != nullptr;
    const std::string script = "/var/corvane/corvane26";
    const auto rowsAt = [&](size_t look) {
        LiveRows rows;
        rows.rows[script].state =
            StateOf(State::Kind::File, 0644, 0, test.runScript.substr(look, 1));
        return rows;
    };
    size_t looks = 0;
    const auto read = [&](LiveMachine& live) {
        live.rows = rowsAt(++looks);
        live.differences.paths = {
            ContentOf("/var/corvane/corvane26", &Find(Item::RunScript), test.runScript.at(looks)),
            ContentOf("/var/corvane/QueueLimits", &Find(Item::QueueLimits),
                      test.limits.at(looks - 1)),
            ContentOf("/var/corvane/page", nullptr, test.page.at(looks - 1))};
        return Failure();
    };
    Differences agreed;
    const auto showContents = [](const Differences& shown) {
        std::printf("content %s\n", shown.paths[0].before.digest.c_str());
    };
    const Failure failure = Agree(staged, rowsAt(0), read, showContents, agreed);
    std::string end;
    if (failure) {
        EXPECT_EQ(failure->status, ExitStatus::Declined);
        end = failure->text.toStdString();
    }
    for (const PathDifference& difference : agreed.paths)
        end += failure ? "" : difference.before.digest;
    EXPECT_EQ(end, test.end);
}

TEST(Agreement, IsAskedForOnceMoreAfterChanges) {
    const char* declined = "setup canceled: plan not confirmed";
    const char* again = "setup canceled: the machine changed again while the plan was read";
    const AgreementCase cases[] = {
        {"y\n", "aaa", "aa", "aa", "aaa", 1},
        {"n\n", "aaa", "aa", "aa", declined, 1},
        {"d\nD\ny\n", "aaa", "aa", "aa", "aaa", 1, "content a\ncontent a\n"},
        {"d\n", "aaa", "aa", "aa", declined, 1, "content a\n"},
        {"y\nd\nn\n", "abbb", "aaa", "aaa", declined, 2, "content b\n"},
        // Lines of the programs in QueueLimits. What was shown is merged.
        {"y\n", "aaa", "ab", "aa", "aaa", 1},
        // After staging, and after the plan was shown.
        {"y\ny\n", "abbb", "aaa", "aaa", "baa", 2},
        {"y\ny\n", "aabb", "aaa", "aaa", "baa", 2},
        {"y\nn\n", "abbb", "aaa", "aaa", declined, 2},
        {"y\ny\n", "abbc", "aaa", "aaa", again, 2},
        {"y\ny\n", "aaaa", "aaa", "abb", "aab", 2},
        {nullptr, "aaa", "aa", "aa", "aaa", 1},
        {nullptr, "abb", "aa", "aa", "baa", 2},
        {nullptr, "aab", "aa", "aa", "baa", 2},
    };
    for (const AgreementCase& test : cases) {
        SCOPED_TRACE(test.runScript + ' ' + test.limits + ' ' + test.page);
        hx_test::World world;
        world.input = test.input == nullptr ? "" : test.input;
        const ProcessResult result = RunInChild(world, [&] { ExpectAgreement(test); });
        EXPECT_EQ(result.status, 0) << result.out;
        int reports = 0;
        for (size_t at = 0; (at = result.out.find("3 to change.", at)) != std::string::npos; ++at)
            ++reports;
        std::string contents;
        for (const auto& match : hx_test::AllMatches(result.out, "content [a-z]\n"))
            contents += match[0];
        EXPECT_EQ(contents, test.contents);
        EXPECT_EQ(reports, test.reports) << result.out;
        const char* name = test.page == "abb" ? "page" : "corvane26";
        EXPECT_EQ(result.err, reports == 1 ? ""
                                           : "cv_install: warning: the machine changed "
                                             "meanwhile: /var/corvane/" +
                                                 std::string(name) + "\n");
    }
}

TEST(Report, SaysThatNothingChanges) {
    EXPECT_EQ(Output([] { PrintReport(StagedMachine(), {}); }).out, "No changes.\n");
}

}  // namespace
