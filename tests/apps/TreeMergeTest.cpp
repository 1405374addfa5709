// Members of the service group and the service account attack the merge of a staged setup. Whatever
// they do, files of others stay as they are, and a failed merge leaves the tree as it was.
#include "merge/TreeMerge.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <functional>
#include <set>

#include "apps/PlantedEntries.h"
#include "apps/RootSetup.h"
#include "harness/Effort.h"
#include "harness/Expect.h"
#include "harness/TempDir.h"
#include "machine/Snapshot.h"
#include "machine/ThrowawayRoot.h"
#include "merge/PrivateDirectory.h"

namespace {

namespace fs = std::filesystem;
using Kinds = State::Kind;
using hx_test::PlantedEntries;
using hx_test::PlantedEntry;

constexpr uid_t accountId = 4000;
constexpr gid_t groupId = 4000;
constexpr uid_t memberId = 4001;

const std::string liveTree = "/srv/corvane";
const std::string stagedTree = "/stage/tree";
const std::string victim = "/srv/victim";
const std::string secretDirectory = "/srv/corvane/secret";

struct Row {
    std::string path;
    const Entry* entry;
    Kind kind;
    mode_t mode;
};

// The rows of a setup as root, and pages below theirs.
std::vector<Row> Rows() {
    std::vector<Row> rows;
    for (const Entry& entry : Entries()) {
        const unsigned all =
            AsRoot | WithoutClusterNode | WithSubmissionScripts | WithEarlierRepository;
        if (!IsInTree(entry) || !Applies(entry, all))
            continue;
        rows.push_back({entry.path, &entry, entry.kind, entry.rootMode});
        if (!entry.ownsAllBelow)
            continue;
        const std::string path = entry.path;
        rows.push_back({path + "/page", &entry, Kind::File, 0644});
        rows.push_back({path + "/deep", &entry, Kind::Directory, 0755});
        rows.push_back({path + "/deep/page", &entry, Kind::File, 0644});
    }
    return rows;
}

const Entry& PagesRow() {
    return *std::ranges::find_if(Entries(), &Entry::ownsAllBelow);
}

std::string Pages() {
    return liveTree + '/' + PagesRow().path;
}

void Own(const std::string& path, const Row& row) {
    const bool root = row.entry->owner == Owner::Root;
    EXPECT_EQ(lchown(path.c_str(), root ? 0 : accountId, root ? 0 : groupId), 0) << path;
    if (row.kind != Kind::Link) {
        EXPECT_EQ(chmod(path.c_str(), row.mode), 0) << path;
    }
}

void LayOutTree(const std::string& top, const std::string& text) {
    for (const Row& row : Rows()) {
        const std::string path = row.path.empty() ? top : top + '/' + row.path;
        if (row.kind == Kind::Directory)
            fs::create_directories(path);
        else if (row.kind == Kind::Link)
            fs::create_symlink("/" + text, path);
        else
            hx_test::WriteFile(path, row.entry->item == Item::QueueEntries ? "" : text + row.path);
        Own(path, row);
    }
}

std::vector<PathDifference> Compare() {
    std::vector<PathDifference> differences;
    const Descriptor staged(open(stagedTree.c_str(), O_PATH));
    const Descriptor live(open(liveTree.c_str(), O_PATH));
    for (const Row& row : Rows()) {
        const bool isQueue = row.entry->item == Item::QueueEntries;
        const Reading reading = isQueue ? Reading::Nothing : Reading::AllFiles;
        State after = *ReadStateAt(staged.Number(), row.path, reading);
        const State before = live ? *ReadStateAt(live.Number(), row.path, reading) : State();
        const bool isPage = row.path != row.entry->path;
        if (before.kind == Kinds::File && isPage)
            after.digest = before.digest;
        if (before.kind == Kinds::Directory && after.kind == Kinds::Directory)
            after.mode = before.mode;
        if (after == before)
            continue;
        const Change change = before.kind == Kinds::Missing ? Change::Create : Change::Modify;
        const std::string path = row.path.empty() ? liveTree : liveTree + '/' + row.path;
        differences.push_back({change, path, before, after, row.entry});
    }
    return differences;
}

StagedMachine OpenStaged() {
    StagedMachine staged;
    staged.tree = Descriptor(open(stagedTree.c_str(), O_PATH | O_DIRECTORY));
    staged.etc = Descriptor(open("/stage/etc", O_PATH | O_DIRECTORY));
    staged.bin = Descriptor(open("/stage/bin", O_PATH | O_DIRECTORY));
    staged.installDir = QString::fromStdString(liveTree);
    return staged;
}

enum class End { Keep, TakeBack, Die };

// The failure's text and remedy; empty on success.
std::string Merge(const std::vector<PathDifference>& differences, End end = End::Keep,
                  MergePurpose purpose = MergePurpose::Setup) {
    const StagedMachine staged = OpenStaged();
    const bool isRoot = getuid() == 0;
    TreeMerge merge(staged, isRoot ? accountId : getuid(), isRoot ? groupId : getgid(),
                    static_cast<uid_t>(-1), purpose);
    Undo undo;
    Failure failure = merge.PlaceInTree(differences, undo);
    if (end == End::Die)
        _exit(failure ? 1 : 0);
    if (!failure)
        failure = merge.PlaceOutside(differences, undo);
    if (!failure)
        failure = merge.Verify();
    if (failure || end == End::TakeBack)
        undo.Run();
    else
        merge.Finish();
    return failure ? failure->text.toStdString() + '\n' + failure->remedy.toStdString() : "";
}

// In a process that ends without its destructors.
void DieInMerge(const std::vector<PathDifference>& differences,
                MergePurpose purpose = MergePurpose::Setup) {
    const pid_t child = fork();
    if (child == 0)
        Merge(differences, End::Die, purpose);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

std::string Identity(const std::string& path, bool withChangeTime = true) {
    struct stat found = {};
    EXPECT_EQ(lstat(path.c_str(), &found), 0) << path;
    std::string text = hx_test::Describe(path);
    for (const timespec& time : {found.st_mtim, withChangeTime ? found.st_ctim : timespec()})
        text += ' ' + std::to_string(time.tv_sec) + '.' + std::to_string(time.tv_nsec);
    return text;
}

hx_test::Snapshot TreeSnapshot(const std::string& top = liveTree) {
    return hx_test::SnapshotOf(top, {""});
}

void LayOutLiveTree() {
    fs::remove_all(liveTree);
    LayOutTree(liveTree, "old");
    mkdir(secretDirectory.c_str(), 0700);
    hx_test::WriteFile(secretDirectory + "/key", "secret");
}

// A machine with a tree of an earlier setup, a staged one, and victims. /srv is a file system of
// its own, where directories can be exchanged.
void LayOutMachine() {
    ASSERT_EQ(mount("tmpfs", "/srv", "tmpfs", 0, "mode=755"), 0);
    for (const char* directory : {"/stage/tree", "/stage/etc", "/stage/bin"})
        fs::create_directories(directory);
    LayOutTree(stagedTree, "new");
    LayOutLiveTree();
    hx_test::WriteFile(victim, "secret");
    chmod(victim.c_str(), 0600);
}

void ExpectScenarioOnMachine(const std::function<void()>& body) {
    HX_EXPECT_SCENARIO([&] {
        LayOutMachine();
        body();
    });
}

// The staged entries are in place, with content, mode and owner. Existing pages keep their content.
void ExpectPlaced(const std::string& top = liveTree) {
    const auto staged = TreeSnapshot(stagedTree);
    const auto live = TreeSnapshot(top);
    for (const Row& row : Rows()) {
        const std::string path = row.path.empty() ? "" : '/' + row.path;
        if (row.path == row.entry->path && row.entry->item != Item::QueueEntries) {
            ASSERT_TRUE(live.contains(path)) << path;
            EXPECT_EQ(live.at(path), staged.at(path)) << path;
        }
    }
}

TEST(TreeMerge, CreatesMissingInstallDirectory) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        fs::remove_all(liveTree);
        const auto before = TreeSnapshot("/srv");
        EXPECT_EQ(Merge(Compare(), End::TakeBack), "");
        EXPECT_EQ(TreeSnapshot("/srv"), before);
        EXPECT_EQ(Merge(Compare()), "");
        EXPECT_EQ(TreeSnapshot(), TreeSnapshot(stagedTree));
        EXPECT_EQ(Shell("ls -A /srv"), "corvane\nvictim");
    });
}

TEST(TreeMerge, CreatesMissingDirectoriesComplete) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        Shell("cd /srv/corvane; rm -r secret corvanerc qchemrc QueueEntries; umask 077");
        const auto before = TreeSnapshot();
        EXPECT_EQ(Merge(Compare(), End::TakeBack), "");
        EXPECT_EQ(TreeSnapshot(), before);
        EXPECT_EQ(Merge(Compare()), "");
        EXPECT_EQ(TreeSnapshot(), TreeSnapshot(stagedTree));
    });
}

TEST(TreeMerge, WorksInDirectoryThatPassesOnItsGroup) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        Shell("cd /srv/corvane; rm -r qchemrc; chmod 2775 . /stage/tree");
        EXPECT_EQ(Merge(Compare()), "");
        ExpectPlaced();
        EXPECT_EQ(Shell("ls -A /srv/corvane | grep setup"), "");
    });
}

TEST(TreeMerge, CreatesFilesWithoutSetIdBits) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        Shell("chmod 6775 /stage/tree/corvane26");
        EXPECT_EQ(Merge(Compare(), End::Keep, MergePurpose::Undo), "");
        EXPECT_EQ(Shell("stat -c %a /srv/corvane/corvane26"), "775");
    });
}

TEST(TreeMerge, ReplacesFilesThroughLinkOfRoots) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        Shell(
            "mkdir /srv/disk; mv /srv/corvane /srv/disk/tree; ln -s disk/../disk/tree "
            "/srv/corvane; "
            "chown 0:0 /srv/corvane/corvanerc /srv/corvane/corvanerc/corvane26server/icons/page; "
            "chmod 600 /srv/corvane/QueueLimits");
        const auto before = TreeSnapshot("/srv/disk");
        const std::string queue = Identity(liveTree + "/QueueEntries");
        EXPECT_EQ(Merge(Compare(), End::TakeBack), "");
        EXPECT_EQ(TreeSnapshot("/srv/disk"), before);
        EXPECT_EQ(Merge(Compare()), "");
        ExpectPlaced("/srv/disk/tree");
        EXPECT_EQ(Identity(liveTree + "/QueueEntries"), queue);
        EXPECT_EQ(Shell("stat -Lc %u /srv/corvane/corvanerc/corvane26server/icons/page"), "4000");
    });
}

TEST(TreeMerge, GivesLinkBelowPagesToAccount) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        const std::string path = Pages() + "/link";
        fs::create_symlink(victim, path);
        const std::string before = Identity(victim);
        const Descriptor live(open(liveTree.c_str(), O_PATH));
        const State old = *ReadStateAt(live.Number(), path.substr(liveTree.size() + 1));
        State given = old;
        given.owner = accountId;
        const std::vector<PathDifference> differences = {
            {Change::Modify, path, old, given, &PagesRow()}};
        EXPECT_EQ(Merge(differences, End::TakeBack), "");
        EXPECT_EQ(Shell("stat -c %u " + path), "0");
        EXPECT_EQ(Merge(differences), "");
        EXPECT_EQ(Shell("stat -c %u " + path), "4000");
        EXPECT_EQ(Identity(victim), before);
    });
}

TEST(TreeMerge, OpensFilesUpToHardLimit) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const rlim_t hardLimit : {1000U, 100U}) {
        ExpectScenarioOnMachine([hardLimit] {
            std::vector<PathDifference> differences;
            for (int page = 0; page < 200; ++page) {
                const std::string path = Pages() + "/page" + std::to_string(page);
                hx_test::WriteFile(path, "page");
                const Descriptor root(open("/", O_PATH));
                const State old = *ReadStateAt(root.Number(), path.substr(1));
                differences.push_back({Change::Modify, path, old, old, &PagesRow()});
                differences.back().after.owner = accountId;
            }
            const auto before = TreeSnapshot();
            const rlimit limit = {60, hardLimit};
            setrlimit(RLIMIT_NOFILE, &limit);
            const std::string failure = Merge(differences);
            rlimit restored = {};
            getrlimit(RLIMIT_NOFILE, &restored);
            EXPECT_EQ(restored.rlim_cur, 60U);
            if (hardLimit == 1000U) {
                EXPECT_EQ(failure, "");
                EXPECT_NE(TreeSnapshot(), before);
            } else {
                hx_test::ExpectHolds(failure, "\": Too many open files\nRaise the hard limit");
                EXPECT_EQ(TreeSnapshot(), before);
            }
        });
    }
}

// Between the plan and the merge, or before both, each row is replaced by each kind. Without a
// refusal, the staged entry is there afterwards.
void ExpectHarmless(const Row& row, const PlantedEntry& plant, bool isPlanned) {
    SCOPED_TRACE(row.path + " replaced by " + plant.name + (isPlanned ? ", planned" : ""));
    LayOutLiveTree();
    const std::string path = liveTree + '/' + row.path;
    auto differences = Compare();
    fs::remove_all(path);
    plant.put(path, {victim, secretDirectory});
    const bool isSecret = fs::exists(path + "/key");
    // A rename changes the time of the inode, so also that of a hard link's other name.
    const bool hasTime = !isSecret && !plant.changesTimeOfFile;
    const std::string before = Identity(isSecret ? path : victim, hasTime);
    const std::string key = isSecret ? Identity(path + "/key") : "";
    if (isPlanned)
        differences = Compare();
    const auto snapshot = TreeSnapshot();
    Merge(differences, End::TakeBack);
    EXPECT_EQ(TreeSnapshot(), snapshot);
    const std::string failure = Merge(differences);
    const std::string secret =
        isSecret ? Shell("find /srv/corvane -name key -printf %h") : std::string();
    EXPECT_EQ(Identity(isSecret ? secret : victim, hasTime), before) << failure;
    EXPECT_EQ(isSecret ? Identity(secret + "/key") : "", key);
    const bool isReplaced = failure.empty() && row.path == row.entry->path &&
                            row.kind == Kind::File &&
                            (isPlanned || row.entry->item != Item::QueueEntries);
    EXPECT_TRUE(!isReplaced || fs::is_regular_file(fs::symlink_status(path)));
    EXPECT_TRUE(failure.empty() || failure.starts_with("unsafe path: ")) << failure;
}

// Each kind of entry replaces every ninth row, and with HX_TEST_EVERY_FAULT all.
TEST(TreeMerge, LeavesTargetsOfHostileReplacements) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const size_t step = hx_test::TriesEveryFault() ? 1 : 9;
    ExpectScenarioOnMachine([&] {
        size_t number = 0;
        for (const Row& row : Rows()) {
            if (row.path.empty())
                continue;
            for (size_t i = number++ % step; i < PlantedEntries().size(); i += step) {
                for (const bool isPlanned : {false, true})
                    ExpectHarmless(row, PlantedEntries()[i], isPlanned);
            }
        }
    });
}

struct Refusal {
    const char* command;  // in the install directory
    const char* message;
};

// The tree stays as it was before the merge.
void ExpectRefused(const std::vector<Refusal>& refusals) {
    for (const auto& [command, message] : refusals) {
        SCOPED_TRACE(command);
        ExpectScenarioOnMachine([command = std::string(command), message = std::string(message)] {
            Shell("cd /srv/corvane; " + command);
            const auto before = TreeSnapshot("/srv");
            hx_test::ExpectHolds(Merge(Compare()), message);
            EXPECT_EQ(TreeSnapshot("/srv"), before);
        });
    }
}

TEST(TreeMerge, RefusesUnsafeDirectories) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectRefused({
        {"chown 4001 corvanerc", "\"/srv/corvane/corvanerc\" belongs to another user"},
        {"chown 4001 .", "\"/srv/corvane\" belongs to another user"},
        {"chown 0:0 corvanerc; chmod 700 corvanerc", "\"/srv/corvane/corvanerc\" is not readable"},
        {"mv corvanerc/* /srv; rmdir corvanerc; mv secret corvanerc",
         "\"/srv/corvane/corvanerc\" is not readable"},
        {"chown 0:0 corvanerc; mount --bind corvanerc corvanerc", "corvanerc\" is a mount point"},
        {"chown 4000 qchemrc", "qchemrc\" is not owned by root"},
        {"chmod 775 qchemrc", "qchemrc\" is not a directory that only root can write to"},
        {"chmod 1777 /srv", "\"/srv/corvane\" is below a directory that others than root"},
        {"chown 4000 /srv", "\"/srv/corvane\" is below a directory that others than root"},
        {"mv ../corvane ../disk; ln -s disk ../corvane; chown -h 4000 ../corvane",
         "\"/srv/corvane\" is a symbolic link not owned by root"},
        {"chown 0 corvanerc/corvane26server/icons/page; "
         "ln corvanerc/corvane26server/icons/page ../second",
         "icons/page\" has more than one hard link"},
        {"chown 0 corvanerc/corvane26server/icons/page; chmod 600 "
         "corvanerc/corvane26server/icons/page",
         "icons/page\" is not readable for all users"},
        {"chown 4001 corvanerc/corvane26server/icons/deep/page",
         "icons/deep/page\" belongs to another user"},
    });
}

TEST(TreeMerge, RefusesFuseWithoutAsking) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        const Descriptor daemon(open("/dev/fuse", O_RDWR));
        if (!daemon)
            GTEST_SKIP() << "no FUSE";
        const auto differences = Compare();
        const std::string point = liveTree + "/corvanerc";
        const std::string options =
            "fd=" + std::to_string(daemon.Number()) + ",rootmode=40000,user_id=0,group_id=0";
        ASSERT_EQ(mount("none", point.c_str(), "fuse.test", 0, options.c_str()), 0);
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);  // nothing answers a call
            const Descriptor top(open(liveTree.c_str(), O_PATH));
            const std::string failure = Merge(differences);
            const bool isRefused =
                failure.starts_with(
                    "unsafe path: \"/srv/corvane/corvanerc\" is on a FUSE file system") &&
                !ReadState(top.Number(), "corvanerc") && errno == EREMOTE &&
                !ReadStateAt(top.Number(), "corvanerc/corvane26");
            _exit(isRefused ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        umount2(point.c_str(), MNT_DETACH);
    });
}

// "u:4001:PERMISSIONS" as a default list of a directory with mode 775.
std::string DefaultAcl(uint16_t permissions) {
    struct {
        uint16_t tag, permissions;
        uint32_t id;
    } const entries[] = {
        {1, 7, ~0U}, {2, permissions, memberId}, {4, 7, ~0U}, {16, 7, ~0U}, {32, 5, ~0U}};
    return std::string("\2\0\0\0", 4) +
           std::string(reinterpret_cast<const char*>(entries), sizeof entries);
}

bool HasAcl(const std::string& path, const char* name = "system.posix_acl_access") {
    return getxattr(path.c_str(), name, nullptr, 0) > 0;
}

TEST(TreeMerge, LimitsInheritedAccess) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const uint16_t permissions : {uint16_t{7}, uint16_t{5}}) {
        ExpectScenarioOnMachine([&] {
            fs::remove_all(liveTree + "/corvanerc");
            fs::remove_all(liveTree + "/qchemrc");
            const std::string acl = DefaultAcl(permissions);
            ASSERT_EQ(
                setxattr(liveTree.c_str(), "system.posix_acl_default", acl.data(), acl.size(), 0),
                0);
            ASSERT_EQ(Merge(Compare()), "");
            ExpectPlaced();
            // Root's have none, and those of the account at most one that lets others read.
            for (const Row& row : Rows()) {
                if (row.kind == Kind::Link || row.path.empty() ||
                    row.entry->item == Item::QueueEntries)
                    continue;
                EXPECT_EQ(HasAcl(liveTree + '/' + row.path),
                          row.entry->owner != Owner::Root && permissions == 5)
                    << row.path;
            }
            EXPECT_FALSE(HasAcl(liveTree + "/qchemrc", "system.posix_acl_default"));
        });
    }
}

// A private copy below a directory that others can write to, reached through a link of the user's.
// Another user owns one of its directories.
void BecomeOwnerOfTree() {
    Shell(
        "cd /srv; chmod 1777 .; mv corvane disk; ln -s disk corvane; cd disk; "
        "rm -r secret qchemrc; echo job > QueueEntries; chmod 600 QueueEntries; "
        "chown -hR 4001:4001 . ../corvane /stage; chmod 2700 . /stage/tree; "
        "chown 4000 corvanerc /stage/tree/corvanerc");
    ASSERT_EQ(setgroups(0, nullptr), 0);
    ASSERT_EQ(setgid(memberId), 0);
    ASSERT_EQ(setuid(memberId), 0);
}

TEST(TreeMerge, ChangesPrivateCopyOfRegularUser) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const MergePurpose purpose : {MergePurpose::Undo, MergePurpose::Repair}) {
        ExpectScenarioOnMachine([&] {
            BecomeOwnerOfTree();
            const std::string acl = DefaultAcl(7);
            setxattr(liveTree.c_str(), "system.posix_acl_default", acl.data(), acl.size(), 0);
            const auto before = TreeSnapshot("/srv/disk");
            EXPECT_EQ(Merge(Compare(), End::TakeBack, purpose), "");
            EXPECT_EQ(TreeSnapshot("/srv/disk"), before);
            DieInMerge(Compare(), purpose);
            EXPECT_EQ(Merge({}, End::Keep, purpose), "");
            ExpectPlaced("/srv/disk");
            EXPECT_TRUE(HasAcl(liveTree + "/corvane26"));
            EXPECT_EQ(Shell("cd /srv/disk; cat QueueEntries; stat -c '%a %u %g' QueueEntries"),
                      "job\n666 4001 4001");
            EXPECT_EQ(Shell("ls -A /srv/disk /srv/disk/* | grep setup"), "");
        });
    }
}

TEST(TreeMerge, VerifyFindsWhatChangedMeanwhile) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const Refusal changes[] = {
        {"rm corvane26; touch corvane26", "corvane26\" was changed during the setup"},
        {"chmod 777 corvane26", "corvane26\" was changed during the setup"},
        {"chown 4001 corvane26", "corvane26\" was changed during the setup"},
        {"chown 0 corvanerc/corvane26", "corvanerc/corvane26\" was changed during the setup"},
        {"mv qchemrc moved; cp -a moved qchemrc", "qchemrc/qchemrc\" was changed during the setup"},
        {"chown 4001 corvanerc", "corvanerc\" belongs to another user"},
        {"mv ../corvane ../moved; cp -a ../moved ../corvane",
         "/srv/corvane\" was changed during the setup"},
    };
    for (const auto& [command, message] : changes) {
        SCOPED_TRACE(command);
        ExpectScenarioOnMachine([command = std::string(command), message = std::string(message)] {
            Shell("chown 0:0 /srv/corvane/corvanerc/corvane26");
            const StagedMachine staged = OpenStaged();
            TreeMerge merge(staged, accountId, groupId, static_cast<uid_t>(-1));
            Undo undo;
            ASSERT_FALSE(merge.PlaceInTree(Compare(), undo));
            EXPECT_FALSE(merge.Verify());
            Shell("cd /srv/corvane; " + command);
            const Failure failure = merge.Verify();
            ASSERT_TRUE(failure);
            hx_test::ExpectHolds(failure->text.toStdString(), message);
            undo.Run();
        });
    }
}

struct QueueCase {
    const char* command;  // makes QueueEntries, with the line "job"
    bool stays;
    const char* result;  // mode and owner of the former file afterwards
};

TEST(TreeMerge, KeepsOrSetsAsideQueueEntries) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const QueueCase cases[] = {
        {"chown 4000 QueueEntries; chmod 644 QueueEntries", true, "666 4000"},
        {"chown 4000 QueueEntries; chmod 600 QueueEntries", false, "600 4000"},  // a key
        {"chown 0 QueueEntries; chmod 644 QueueEntries", false, "644 0"},
        {"chown 4001 QueueEntries; chmod 644 QueueEntries", false, "644 4001"},
        {"chown 4000 QueueEntries; chmod 644 QueueEntries; ln QueueEntries ../second", false,
         "644 4000"},
    };
    for (const QueueCase& test : cases) {
        SCOPED_TRACE(test.command);
        ExpectScenarioOnMachine([&] {
            Shell("cd /srv/corvane; echo job >> QueueEntries; " + std::string(test.command));
            const auto before = TreeSnapshot();
            const auto differences = Compare();
            EXPECT_EQ(Merge(differences, End::TakeBack), "");
            EXPECT_EQ(TreeSnapshot(), before);
            EXPECT_EQ(Merge(differences), "");
            const std::string former =
                test.stays ? "/srv/corvane/QueueEntries" : "/srv/corvane/QueueEntries.2*";
            EXPECT_EQ(Shell("stat -c '%a %u' " + former), test.result);
            EXPECT_EQ(Shell("cat " + former), "job");
            EXPECT_EQ(Shell("stat -c '%a %u' /srv/corvane/QueueEntries"), "666 4000");
        });
    }
}

TEST(TreeMerge, KeepsJobsOfQueueFileThatIsTakenBack) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        fs::remove(liveTree + "/QueueEntries");
        const StagedMachine staged = OpenStaged();
        {
            TreeMerge merge(staged, accountId, groupId, static_cast<uid_t>(-1));
            Undo undo;
            ASSERT_FALSE(merge.PlaceInTree(Compare(), undo));
            Shell("echo job >> /srv/corvane/QueueEntries");
            undo.Run();
        }
        EXPECT_EQ(Shell("cat /srv/corvane/QueueEntries.2*"), "job");
        EXPECT_FALSE(fs::exists(liveTree + "/QueueEntries"));
    });
}

TEST(TreeMerge, RefusesHardLinkBelowDeepPages) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        std::string path = Pages();
        Descriptor directory(open(path.c_str(), O_PATH));
        for (int depth = 0; depth < 1100; ++depth) {
            ASSERT_EQ(mkdirat(directory.Number(), "deeper", 0755), 0);
            directory = OpenDirectory(directory.Number(), "deeper");
            path += "/deeper";
        }
        chmod(victim.c_str(), 0644);
        ASSERT_EQ(linkat(AT_FDCWD, victim.c_str(), directory.Number(), "page", 0), 0);
        const std::string before = Identity(victim);
        State old = *ReadState(directory.Number(), "page");
        State given = old;
        given.owner = accountId;
        hx_test::ExpectHolds(Merge({{Change::Modify, path + "/page", old, given, &PagesRow()}}),
                             "/deeper/page\" has more than one hard link");
        EXPECT_EQ(Identity(victim), before);
    });
}

TEST(TreeMerge, WorksWithoutExchange) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        fs::remove_all(liveTree + "/qchemrc");
        fs::remove(liveTree + "/QueueEntries");
        const auto before = TreeSnapshot();
        setenv("HX_TEST_FAIL", "renameat2=22", 1);
        EXPECT_EQ(Merge(Compare(), End::TakeBack), "");
        EXPECT_EQ(TreeSnapshot(), before);
        fs::create_directory(liveTree + "/corvane26.new");
        Shell("cd /srv/corvane; mv corvane26 ..; mkdir corvane26");
        hx_test::ExpectHolds(Merge(Compare()), "corvane26\" cannot be replaced");
        Shell("cd /srv/corvane; rmdir corvane26 corvane26.new; mv ../corvane26 .");
        EXPECT_EQ(TreeSnapshot(), before);
        EXPECT_EQ(Merge(Compare()), "");
        unsetenv("HX_TEST_FAIL");
        ExpectPlaced();
    });
}

PathDifference Outside(Change change, const std::string& path) {
    const std::string staged =
        path.starts_with("/etc") ? "/stage" + path : "/stage/bin" + path.substr(8);
    const Descriptor root(open("/", O_PATH));
    const auto read = [&](const std::string& name) {
        return *ReadStateAt(root.Number(), name.substr(1), Reading::AllFiles);
    };
    return {change, path, read(path), change == Change::Delete ? State() : read(staged), nullptr};
}

TEST(TreeMerge, PlacesAndDeletesOutsideOfTree) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        Shell(
            "umask 022; mkdir -p /stage/etc/units/wants; echo unit > /stage/etc/units/unit; "
            "ln -s ../unit /stage/etc/units/wants/unit; ln -s /srv/corvane/x /stage/bin/x; "
            "mkdir -p /etc/units; mkdir /etc/old; echo old > /etc/old/unit; "
            "echo old > /etc/units/unit; echo old > /usr/bin/x");
        const std::vector<PathDifference> differences = {
            Outside(Change::Modify, "/usr/bin/x"),
            Outside(Change::Delete, "/etc/old"),
            Outside(Change::Delete, "/etc/old/unit"),
            Outside(Change::Modify, "/etc/units/unit"),
            Outside(Change::Create, "/etc/units/wants"),
            Outside(Change::Create, "/etc/units/wants/unit")};
        const std::string show =
            "cd /etc; find units old /usr/bin/x /usr/bin/.corvane* -printf '%p %y %m %l\\n'; "
            "cat units/unit";
        const std::string before = Shell(show);
        EXPECT_EQ(Merge(differences, End::TakeBack), "");
        EXPECT_EQ(Shell(show), before);
        Shell("chmod 775 /etc/units");
        hx_test::ExpectHolds(Merge(differences),
                             "/etc/units/unit\" is below a directory that others");
        Shell("chmod 755 /etc/units");
        EXPECT_EQ(Shell(show), before);
        EXPECT_EQ(Merge(differences), "");
        EXPECT_EQ(Shell(show),
                  "units d 755 \nunits/wants d 755 \nunits/wants/unit l 777 ../unit\n"
                  "units/unit f 644 \n/usr/bin/x l 777 /srv/corvane/x\nunit");
    });
}

// What a killed merge left goes, except directories, which it may have replaced. Another directory
// of root's stays, even with such a name.
TEST(TreeMerge, CleansUpAfterKilledMerge) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        Shell("cd /srv/corvane; rm -r qchemrc corvane26; mkdir corvane26; touch corvane26/job");
        const auto differences = Compare();
        fs::rename(secretDirectory, liveTree + "/.corvane26_setup_abcdef");
        const std::string key = Identity(liveTree + "/.corvane26_setup_abcdef/key");
        DieInMerge(differences);
        EXPECT_EQ(Shell("ls -d /srv/corvane/.corvane26_setup_* | wc -l"), "2");
        EXPECT_EQ(Merge(Compare()), "");
        ExpectPlaced();
        EXPECT_EQ(
            Shell("cd /srv/corvane; ls -d .corvane26_setup_* corvane26.2*/* | sed s/2[-0-9]*/D/2"),
            ".corvane26_setup_abcdef\ncorvane26.D/job");
        EXPECT_EQ(Identity(liveTree + "/.corvane26_setup_abcdef/key"), key);
    });
}

// Repeats `step` as another user until the object is destroyed.
class Attacker {
public:
    Attacker(uid_t user, const std::function<void()>& step) : m_process(fork()) {
        if (m_process != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (setgroups(0, nullptr) != 0 || setgid(groupId) != 0 || setuid(user) != 0 ||
            chdir(liveTree.c_str()) != 0)
            _exit(1);
        for (;;)
            step();
    }
    ~Attacker() {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    Attacker(const Attacker&) = delete;
    Attacker& operator=(const Attacker&) = delete;

private:
    const pid_t m_process;
};

void Exchange(const std::string& one, const std::string& other) {
    renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
}

// Puts a directory of the attacker's in place of each private one, at once.
void ReplacePrivateDirectory() {
    static const int watch = inotify_init();
    static std::string planted;
    if (planted.empty())
        inotify_add_watch(watch, ".", IN_CREATE);
    std::array<char, 4096> events = {};
    const ssize_t length = read(watch, events.data(), events.size());
    for (ssize_t at = 0; at < length;) {
        inotify_event event = {};
        std::memcpy(&event, events.data() + at, sizeof event);
        const std::string name = events.data() + at + sizeof event;
        at += static_cast<ssize_t>(sizeof event + event.len);
        if (!name.starts_with(".corvane26_setup_") || name == planted ||
            rename(name.c_str(), "stolen") != 0)
            continue;
        mkdir(name.c_str(), 0777);
        rmdir(planted.c_str());
        planted = name;
    }
}

void LeaseAndRename() {
    for (const char* name : {"corvane26", "QueueLimits", "QueueEntries"}) {
        const Descriptor file(open(name, O_RDONLY));
        fcntl(file.Number(), F_SETLEASE, F_WRLCK);
        Exchange(name, "corvane26_ssh");
        Exchange(name, "corvane26_ssh");
    }
}

struct Attack {
    const char* name;
    uid_t user;
    const char* prepare;  // as the attacker, in the install directory
    void (*step)();
};

const Attack attacks[] = {
    {"ExchangeOfLink", memberId, "ln -s /srv/victim planted",
     [] {
         for (const char* name : {"corvane26", "QueueLimits", "qchemrc", "QueueEntries"}) {
             Exchange(name, "planted");
             Exchange("planted", name);
         }
     }},
    {"ExchangeOfDirectory", memberId, "mkdir -m 777 planted",
     [] {
         for (const char* name : {"corvane26", "corvanerc", "qchemrc", "QueueEntries"}) {
             Exchange(name, "planted");
             Exchange("planted", name);
         }
     }},
    {"ExchangeOfSecretDirectory", memberId, ":",
     [] {
         for (const char* name : {"corvanerc", "qchemrc", "corvane26_ssh"}) {
             Exchange(name, "secret");
             Exchange("secret", name);
         }
     }},
    {"Inotify", memberId, ":", ReplacePrivateDirectory},
    {"KeyAsQueueEntries", accountId, "umask 077; echo key > planted",
     [] {
         Exchange("planted", "QueueEntries");
         Exchange("QueueEntries", "planted");
     }},
    {"MovedDirectories", accountId, ":",
     [] {
         rename("corvanerc/corvane26server", "away");
         rename("away", "corvanerc/corvane26server");
         rename("corvanerc/corvane26server/icons", "icons");
         rename("icons", "corvanerc/corvane26server/icons");
     }},
    {"Lease", accountId, ":", LeaseAndRename},
};

class TreeMergeAttack : public testing::TestWithParam<Attack> {};

// Merges that are taken back, then one that stays. Victims keep content, mode, owner and times,
// and nothing gives others access to them.
TEST_P(TreeMergeAttack, ChangesNothingOfOthers) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const Attack& attack = GetParam();
    ExpectScenarioOnMachine([&] {
        Shell(
            "cd /srv/corvane; rm -r corvanerc/corvane26server/resources QueueEntries.2*; "
            "chown 0:0 corvanerc/corvane26; chmod 644 QueueEntries; "
            "setpriv --reuid=" +
            std::to_string(attack.user) + " --regid=4000 --clear-groups sh -c '" + attack.prepare +
            "'");
        const auto differences = Compare();
        const std::string file = Identity(victim);
        const std::string key = Identity(secretDirectory + "/key");
        const std::string system = Identity("/srv");
        {
            const Attacker attacker(attack.user, attack.step);
            for (int merge = 0; merge < 20 * hx_test::RaceRounds(); ++merge)
                Merge(differences, End::TakeBack);
        }
        EXPECT_EQ(Identity(victim), file);
        EXPECT_EQ(Identity("/srv"), system);
        const std::string now = Shell("find /srv/corvane -name key");
        EXPECT_EQ(Identity(now), key);
        EXPECT_EQ(Shell("stat -c '%a %u' " + fs::path(now).parent_path().string()), "700 0");
        EXPECT_EQ(Shell("find /srv/corvane -type f -size 4c -name 'planted*' ! -perm 600"), "");
        EXPECT_EQ(Shell("find /srv/corvane -name '.corvane26_setup_*' -user 0"), "");
    });
}

INSTANTIATE_TEST_SUITE_P(Attacks, TreeMergeAttack, testing::ValuesIn(attacks),
                         [](const auto& test) { return std::string(test.param.name); });

// A child that waits, is traced, and ends with status 0 if `body` returns true.
pid_t StartTraced(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, 0, 0);
        raise(SIGSTOP);
        _exit(body() ? 0 : 1);
    }
    waitpid(child, nullptr, 0);
    ptrace(PTRACE_SETOPTIONS, child, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    return child;
}

// Stops the child at the beginning of one of these system calls. False when it ends before.
bool RunToCall(pid_t child, const std::set<uint64_t>& calls) {
    __ptrace_syscall_info call = {};
    do {
        siginfo_t end = {};
        if (ptrace(PTRACE_SYSCALL, child, 0, 0) != 0 ||
            waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WSTOPPED | WNOWAIT) != 0 ||
            end.si_code == CLD_EXITED)
            return false;
        waitpid(child, nullptr, 0);
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof call, &call);
    } while (call.op != PTRACE_SYSCALL_INFO_ENTRY || !calls.contains(call.entry.nr));
    return true;
}

// Sends the signal, or 0, and returns the exit status; -1 after a signal.
int EndTraced(pid_t child, int signal) {
    if (signal != 0)
        kill(child, signal);
    else
        ptrace(PTRACE_DETACH, child, 0, 0);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(PrivateDirectory, IsCreatedAgainWhenAnotherIsThere) {
    HX_REQUIRE_THROWAWAY_ROOT();
    for (const char* plant : {"mv secret $0", "mkdir -m 755 $0", "mkdir -m 700 $0; chown 4001 $0",
                              "mkdir -m 700 other; ln -s other $0", "mkfifo $0", "touch $0", ":"}) {
        SCOPED_TRACE(plant);
        ExpectScenarioOnMachine([plant = std::string(plant)] {
            const pid_t child = StartTraced([] {
                const auto parent = std::make_shared<LiveDirectory>();
                parent->descriptor = Descriptor(open(liveTree.c_str(), O_PATH | O_DIRECTORY));
                std::unique_ptr<PrivateDirectory> created;
                if (PrivateDirectory::Create(parent, created))
                    return false;
                struct stat found = {};
                fstatat(created.release()->Slots(), "", &found, AT_EMPTY_PATH);
                return found.st_uid == 0 && found.st_mode == (S_IFDIR | 0700U);
            });
            ASSERT_TRUE(RunToCall(child, {SYS_mkdirat}));
            // It exists, and is not open yet.
            ASSERT_TRUE(RunToCall(child, {SYS_openat}));
            const std::string first = Shell("cd /srv/corvane; ls -d .corvane26_setup_*");
            Shell("cd /srv/corvane; rmdir " + first + "; sh -c '" + plant + "' " + first);
            EXPECT_EQ(EndTraced(child, 0), 0);
            EXPECT_EQ(Shell("cd /srv/corvane; ls -A other " + first + " | grep corvane26_new"), "");
            EXPECT_EQ(Shell("cd /srv/corvane; ls -d .corvane26_setup_*/* | grep -c corvane26_new"),
                      "1");
        });
    }
}

TEST(PrivateDirectory, IsRootsWhenAnotherIsPlanted) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        const auto parent = std::make_shared<LiveDirectory>();
        parent->descriptor = Descriptor(open(liveTree.c_str(), O_PATH | O_DIRECTORY));
        const Attacker attacker(memberId, ReplacePrivateDirectory);
        for (int i = 0; i < 2000 * hx_test::RaceRounds(); ++i) {
            std::unique_ptr<PrivateDirectory> created;
            // An attacker who is always faster makes the setup fail.
            if (PrivateDirectory::Create(parent, created))
                continue;
            struct stat found = {};
            ASSERT_EQ(fstat(created->New(), &found), 0);
            ASSERT_EQ(fstatat(created->Slots(), "", &found, AT_EMPTY_PATH), 0);
            ASSERT_EQ(found.st_uid, 0U) << i;
            ASSERT_EQ(found.st_mode, S_IFDIR | 0700U) << i;
        }
    });
}

TEST(TreeMerge, KeepsLinesAppendedMeanwhile) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        const std::string queue = liveTree + "/QueueEntries";
        const int lines = 2000 * hx_test::RaceRounds();
        const pid_t writer = fork();
        if (writer == 0) {
            for (int i = 0; i < lines; ++i) {
                const Descriptor file(open(queue.c_str(), O_WRONLY | O_APPEND));
                if (!file || write(file.Number(), "line\n", 5) != 5)
                    _exit(1);
            }
            _exit(0);
        }
        int status = -1;
        while (waitpid(writer, &status, WNOHANG) == 0) {
            chmod(queue.c_str(), 0646);
            EXPECT_EQ(Merge(Compare(), End::TakeBack), "");
        }
        EXPECT_EQ(status, 0);
        EXPECT_EQ(fs::file_size(queue), static_cast<uintmax_t>(lines) * 5);
    });
}

// False when the merge has ended before that rename.
bool KillBeforeRename(int number, const std::vector<PathDifference>& differences) {
    const pid_t child = StartTraced([&] { return Merge(differences).empty(); });
    while (number > 0 && RunToCall(child, {SYS_renameat, SYS_renameat2}))
        --number;
    EXPECT_EQ(EndTraced(child, SIGKILL), number == 0 ? -1 : 0);
    return number == 0;
}

struct KilledMerge {
    const char* command;  // in the install directory, before the merge
    const char* kept;     // what has a dated name in the end
};

// New entries that were not placed yet go. What was there before stays, under a dated name.
TEST(TreeMerge, IsCompletedByNextOneWhenKilled) {
    HX_REQUIRE_THROWAWAY_ROOT();
    const KilledMerge merges[] = {
        {"rm corvane26; mkdir corvane26; echo job > QueueEntries; chmod 600 QueueEntries; "
         "touch corvane26/job",
         "./corvane26.D\n./corvane26.D/job\n./QueueEntries.D"},
        {"rm -r /srv/corvane", ""},
        {"rm -r qchemrc corvanerc/corvane26server QueueEntries", ""},
    };
    for (const auto& [command, kept] : hx_test::TriedRows(merges)) {
        SCOPED_TRACE(command);
        ExpectScenarioOnMachine([command = std::string(command), kept = std::string(kept)] {
            int rename = 1;
            for (; !testing::Test::HasFailure(); ++rename) {
                LayOutLiveTree();
                Shell("cd /srv/corvane; " + command);
                if (!KillBeforeRename(rename, Compare()))
                    break;
                EXPECT_EQ(Merge(Compare()), "") << rename;
                ExpectPlaced();
                EXPECT_EQ(Shell("cd /srv; ls -A . corvane | grep setup_"), "") << rename;
                EXPECT_EQ(Shell("cd /srv/corvane; find . /srv/corvane.2* -path '*.2*' | sort -f | "
                                "sed 's/[.]2[-0-9]*/.D/'"),
                          kept)
                    << rename;
            }
            EXPECT_GT(rename, 1);
        });
    }
}

TEST(State, ReadsOnlyWhatOthersCanRead) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectScenarioOnMachine([] {
        Shell(
            "cd /srv/corvane; chmod 644 secret/key; truncate --size=1T huge; mkdir secret/open; "
            "cp secret/key secret/open");
        const Descriptor top(open(liveTree.c_str(), O_PATH));
        const Descriptor secret = OpenDirectory(top.Number(), "secret");
        EXPECT_EQ(ReadStateAt(top.Number(), "secret/key")->digest, "");
        EXPECT_EQ(ReadStateAt(top.Number(), "secret/open/key")->digest, "");
        EXPECT_EQ(ReadState(secret.Number(), "key")->digest, "");
        EXPECT_EQ(ReadState(secret.Number(), "key", Reading::AllFiles)->digest,
                  Shell("sha256sum < /srv/corvane/secret/key | cut -d ' ' -f 1"));
        EXPECT_EQ(ReadState(top.Number(), "huge")->digest, "");
    });
}

}  // namespace
