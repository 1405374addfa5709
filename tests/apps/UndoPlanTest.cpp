// What an undo plans on a machine that other users changed after the setup.
#include "undo/UndoPlan.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

constexpr uid_t undoneAccount = 4000;

const std::string wantsDirectory = "/etc/systemd/system/graphical.target.wants";

Descriptor OpenForPlan(const char* path) {
    return Descriptor(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

State StateForPlan(const std::string& path) {
    return *ReadStateAt(OpenForPlan("/").Number(), path.substr(1),
                        ReadingOfSaved(RowOfPath(path, sharedDirectory), true));
}

// The saved content is in /stage.
UndoPlan PlanOf(const Differences& setup, UndoPurpose purpose) {
    SavedSetup saved;
    saved.isComplete = true;
    saved.attempts = {setup};
    StagedMachine content;
    content.installDir = QLatin1String(sharedDirectory);
    content.tree = OpenForPlan("/stage/tree");
    content.etc = OpenForPlan("/stage/etc");
    content.bin = OpenForPlan("/stage/bin");
    UndoPlan plan;
    EXPECT_FALSE(IsRemoval(purpose) && FindTreeElsewhere(plan.isTreeKept));
    const Descriptor live = OpenForPlan(sharedDirectory);
    constexpr TreeOwners owners = {undoneAccount, undoneAccount, undoneAccount};
    EXPECT_FALSE(FindUndo(saved, content, live.Number(), owners, {}, purpose, plan));
    return plan;
}

std::string KeptIn(const UndoPlan& plan) {
    return plan.kept.join(u'\n').toStdString();
}

void ExpectPlanOnMachine(const std::function<void()>& body) {
    HX_EXPECT_SCENARIO([&] {
        Shell("rm -rf /var/corvane; mkdir -p /stage/tree /stage/etc /stage/bin /var/corvane");
        body();
    });
}

// The setup deleted them in the other order.
TEST(UndoPlan, CreatesDirectoriesBeforeWhatIsInThem) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectPlanOnMachine([] {
        Shell("mkdir " + wantsDirectory + "; ln -s /unit " + wantsDirectory + "/unit");
        Differences setup;
        for (const std::string& path : {wantsDirectory + "/unit", wantsDirectory})
            setup.paths.push_back({Change::Delete, path, StateForPlan(path), {}, nullptr});
        Shell("rm -r " + wantsDirectory);
        const auto paths = PlanOf(setup, UndoPurpose::Undo).differences.paths;
        ASSERT_EQ(paths.size(), 2u);
        EXPECT_EQ(paths[0].path, wantsDirectory);
        EXPECT_EQ(paths[1].path, wantsDirectory + "/unit");
    });
}

Differences Created(const std::vector<std::string>& paths) {
    Differences setup;
    for (const std::string& path : paths)
        setup.paths.push_back(
            {Change::Create, path, {}, StateForPlan(path), RowOfPath(path, sharedDirectory)});
    return setup;
}

// A member of the service group did that.
TEST(UndoPlan, KeepsWhatIsInDirectoryOfOther) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectPlanOnMachine([] {
        Shell(
            "cd /var/corvane; mkdir -p corvanerc/corvane26server/icons; echo > QueueLimits; "
            "echo > corvanerc/corvane26server/icons/page; chown -R 4000:4000 .");
        const std::string pages = "/var/corvane/corvanerc/corvane26server";
        const Differences setup = Created({"/var/corvane/QueueLimits", "/var/corvane/corvanerc",
                                           pages, pages + "/icons", pages + "/icons/page"});
        EXPECT_EQ(PlanOf(setup, UndoPurpose::Undo).differences.paths.size(), 5u);
        Shell(
            "cd /var/corvane; mkdir mine; chown 4001 mine; mv corvanerc moved; mv mine corvanerc; "
            "mv moved/corvane26server corvanerc");
        const UndoPlan plan = PlanOf(setup, UndoPurpose::Purge);
        ASSERT_EQ(plan.differences.paths.size(), 1u);
        EXPECT_EQ(plan.differences.paths[0].path, "/var/corvane/QueueLimits");
        EXPECT_EQ(KeptIn(plan), "/var/corvane/corvanerc: is another directory");
        EXPECT_TRUE(plan.remaining.contains(pages + "/icons/page"));
    });
}

// Each user can create a hard link.
TEST(UndoPlan, KeepsQueueEntriesWithHardLink) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectPlanOnMachine([] {
        const std::string path = "/var/corvane/QueueEntries";
        Shell("umask 0; touch " + path + "; chown 4000:4000 " + path);
        Differences setup = Created({path});
        setup.paths[0].change = Change::Modify;
        setup.paths[0].before = setup.paths[0].after;
        setup.paths[0].before.mode = 0644;
        EXPECT_EQ(PlanOf(setup, UndoPurpose::Undo).differences.paths.size(), 1u);
        Shell("ln " + path + " /var/corvane/second");
        const UndoPlan plan = PlanOf(setup, UndoPurpose::Undo);
        EXPECT_EQ(plan.differences.paths.size(), 0u);
        EXPECT_EQ(KeptIn(plan), "/var/corvane/QueueEntries: jobs are never restored");
    });
}

// The mount points do not begin with /var.
TEST(UndoPlan, KeepsMountsBelowLinkInRemoval) {
    HX_REQUIRE_THROWAWAY_ROOT();
    HX_EXPECT_SCENARIO([] {
        EXPECT_EQ(
            Shell("exec 2>&1; set -e; mkdir -p /top/stage/tree /top/stage/etc /top/stage/bin "
                  "/top/proc /top/data/corvane/qchemrc; cd /top; ln -s data var; "
                  "mount --bind /proc proc; cd data/corvane; touch QueueLimits qchemrc/qchemrc; "
                  "mount --bind qchemrc qchemrc"),
            "");
        ASSERT_EQ(chroot("/top"), 0);
        Differences setup = Created({"/data/corvane/QueueLimits", "/data/corvane/qchemrc/qchemrc"});
        for (PathDifference& path : setup.paths) {
            path.path.replace(0, 5, "/var");
            path.entry = RowOfPath(path.path, sharedDirectory);
        }
        bool isElsewhere = true;
        EXPECT_FALSE(FindTreeElsewhere(isElsewhere));
        EXPECT_FALSE(isElsewhere);
        EXPECT_EQ(KeptIn(PlanOf(setup, UndoPurpose::Purge)),
                  "/var/corvane/qchemrc/qchemrc: is on another file system");
        ASSERT_EQ(mount("/data/corvane", "/data/corvane", nullptr, MS_BIND, nullptr), 0);
        const UndoPlan plan = PlanOf(setup, UndoPurpose::Purge);
        EXPECT_EQ(plan.differences.paths.size(), 0u);
        EXPECT_EQ(KeptIn(plan), "/var/corvane: other machines may use it");
        // An undo takes back exactly what the setup changed.
        EXPECT_EQ(PlanOf(setup, UndoPurpose::Undo).differences.paths.size(), 2u);
    });
}

TEST(UndoPlan, KeepsAccountsWithOtherNumbers) {
    HX_REQUIRE_THROWAWAY_ROOT();
    ExpectPlanOnMachine([] {
        Shell("groupadd -g 4000 svc; useradd -u 4000 -g svc -c x -M -d /srv -s /bin/sh svc");
        for (const id_t number : {4000U, 4001U}) {
            Differences setup;
            setup.accounts = {{true, "svc", 0, number, "", "", ""},
                              {false, "svc", number, 4000, "y", "/srv", "/bin/sh"}};
            const UndoPlan plan = PlanOf(setup, UndoPurpose::ForcedUndo);
            EXPECT_EQ(plan.differences.accounts.size(), number == 4000 ? 2u : 0u);
            EXPECT_EQ(KeptIn(plan), number == 4000
                                        ? ""
                                        : "user svc: has another number than the setup gave it\n"
                                          "group svc: has another number than the setup gave it");
        }
    });
}

}  // namespace
