// What an undo plans on a machine that other users changed after the setup.
#include "undo/UndoPlan.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "apps/RootSetup.h"
#include "harness/TempDir.h"
#include "machine/ThrowawayRoot.h"

namespace {

const std::string wantsDirectory = "/etc/systemd/system/graphical.target.wants";

Descriptor OpenForPlan(const char* path) {
    return Descriptor(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

State StateForPlan(const std::string& path) {
    return *ReadStateAt(OpenForPlan("/").Number(), path.substr(1), Reading::AllFiles);
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
    const Descriptor live = OpenForPlan(sharedDirectory);
    EXPECT_FALSE(FindUndo(saved, content, live.Number(), {}, purpose, plan));
    return plan;
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
            const QString reason = QStringLiteral(": has another number than the setup gave it");
            EXPECT_EQ(plan.kept, number == 4000
                                     ? QStringList()
                                     : QStringList({"user svc" + reason, "group svc" + reason}));
        }
    });
}

}  // namespace
